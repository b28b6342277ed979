#include <render/pointcloud/NodeVertexPacking.h>

#include <gtest/gtest.h>
#include <tests/support/PotreeFixture.h>
#include <tests/support/RealData.h>

#include <algorithm>
#include <filesystem>
#include <utility>

namespace {

using Octree::OctreeNodeId;
using Render::VertexContainer;
using Bytes = std::vector<int>;
using TestSupport::realData;

VertexContainer verticesOf(const Octree::Octree& octree, OctreeNodeId id) {
    VertexContainer vertices;
    EXPECT_TRUE(Render::loadNodeVertices(octree, id, vertices, {}));
    return vertices;
}

Bytes intensitiesOf(const Octree::Octree& octree, OctreeNodeId id) {
    const VertexContainer vertices = verticesOf(octree, id);
    Bytes result;
    std::transform(vertices.data(), vertices.data() + vertices.size(), std::back_inserter(result),
                   [](const VertexContainer::Vertex& vertex) { return vertex.intensity; });
    return result;
}

/// One point with these intensities and this scan index.
class OnePoint : public Octree::NodeSource {
public:
    const Octree::StoreFacts& storeFacts() const override { return mFacts; }
    bool nodeFacts(OctreeNodeId, Octree::NodeFacts&, const std::stop_token&) override { return true; }
    bool readNode(OctreeNodeId, double, Octree::NodePointData& data, const std::stop_token&) override {
        data.reset(1);
        data.setPositions({{1.0, 2.0, 3.0}});
        data.setIntensities({0xabff});
        data.setScanIndices({scanIndex});
        return true;
    }

    std::uint32_t scanIndex = 65536;

private:
    Octree::StoreFacts mFacts;
};

}  // namespace

TEST(NodeVertexPacking, IntensitiesOfAnyDepthUseAllGreys) {
    // The root's are 7, 1031 and 607.
    const std::vector<std::pair<nlohmann::json, Bytes>> expected{{nullptr, {0, 4, 2}},
                                                                 {{65535}, {0, 4, 2}},
                                                                 {{1031}, {0, 128, 75}},
                                                                 {{255}, {7, 255, 255}},
                                                                 {{80}, {7, 255, 255}}};
    for (const char* encoding : {"BROTLI", "UNCOMPRESSED", "DEFAULT"}) {
        for (const auto& [largest, bytes] : expected) {
            SCOPED_TRACE(encoding + largest.dump());
            Support::PotreeFixture fixture(encoding);
            if (!largest.is_null()) {
                fixture.metadata["attributes"][1]["max"] = largest;
                fixture.writeMetadata();
            }
            const Octree::Octree octree(Octree::Location::fromPath(fixture.folder.path()));
            EXPECT_EQ(intensitiesOf(octree, OctreeNodeId()), bytes);
            Octree::NodePointData data;
            octree.getNodePointData(OctreeNodeId(), data);
            EXPECT_EQ(data.intensities(), (std::vector<std::uint16_t>{7, 1031, 607}));
        }
    }
}

TEST(NodeVertexPacking, WhatAHostsSourceGivesKeepsItsUpperByteAndItsScanNeverWraps) {
    const Octree::Octree octree(std::make_shared<OnePoint>(), Octree::Location());
    const VertexContainer vertices = verticesOf(octree, OctreeNodeId());
    ASSERT_EQ(vertices.size(), 1u);
    EXPECT_EQ(vertices.data()->intensity, 0xab);
    EXPECT_EQ(vertices.data()->scanIndex, 65535);
}

TEST(NodeVertexPacking, RealStoresShowTheirIntensities) {
    if (!std::filesystem::exists(realData() / "potree")) {
        GTEST_SKIP() << "the real stores are not here: " << realData();
    }
    // By the largest intensity of each: 254, 254, 78 and 580 of 1023, 2744 of 4095, 65535.
    const std::vector<std::pair<const char*, int>> brightest{{"potree/autzen-trim-brotli", 254},
                                                             {"potree/autzen-trim-default", 254},
                                                             {"potree/colour-1k-uncompressed", 254},
                                                             {"potree/dbh-extra-uncompressed", 78},
                                                             {"potree/megaplot-brotli", 145},
                                                             {"potree/lone-star-brotli", 171},
                                                             {"potree/lion-brotli", 255},
                                                             {"ept/lone-star-laszip", 171},
                                                             {"ept/bad-pointcount-laszip", 254},
                                                             {"ept/lion-zstandard", 255}};
    for (const auto& [store, expected] : brightest) {
        const Octree::Octree octree(Octree::Location::fromPath(realData() / store));
        int largest = 0;
        std::vector<OctreeNodeId> pending{OctreeNodeId()};
        while (!pending.empty()) {
            const OctreeNodeId id = pending.back();
            pending.pop_back();
            const Octree::NodeChildren children = octree.children(id);
            pending.insert(pending.end(), children.begin(), children.end());
            const Bytes intensities = intensitiesOf(octree, id);
            largest = std::max(
                largest, intensities.empty() ? 0 : *std::max_element(intensities.begin(), intensities.end()));
        }
        EXPECT_EQ(largest, expected) << store;
    }
}
