#include <octree/NodeKey.h>
#include <octree/Octree.h>
#include <octree/StoreError.h>
#include <octree/entwine/EntwineTree.h>
#include <octree/potree/Store.h>

#include <gtest/gtest.h>
#include <tests/octree/TruthSummary.h>
#include <tests/octree/entwine/EptFixture.h>
#include <tests/support/RealData.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

using Entwine::EntwineTree;
using Octree::Attribute;
using Octree::NodePointData;
using Octree::OctreeNodeId;
using Support::allNodes;
using Support::TruthSummary;
using TestSupport::realData;

namespace {

using Json = nlohmann::json;

/// Steps of a millimetre, colour, intensity.
using Point = std::array<std::int64_t, 7>;

/// All points of a source in order.
std::vector<Point> sortedPoints(Octree::NodeSource& source) {
    std::vector<Point> points;
    for (const OctreeNodeId id : allNodes(source)) {
        NodePointData data;
        source.readNode(id, 1.0, data, {});
        for (std::size_t i = 0; i < data.size(); ++i) {
            const Math::Point<double, 3> position = data.position(i) + source.storeFacts().referencePosition;
            const Math::Color color = data.color(i);
            points.push_back({std::llround(position[0] * 1000), std::llround(position[1] * 1000),
                              std::llround(position[2] * 1000), color.r(), color.g(), color.b(),
                              data.intensity(i)});
        }
    }
    std::sort(points.begin(), points.end());
    return points;
}

/// How many points have no like among others whose coordinates are the same or one step further along
/// direction.
std::size_t countWithoutLike(const std::vector<Point>& points, const std::vector<Point>& others,
                             std::int64_t direction) {
    std::size_t count = 0;
    for (const Point& point : points) {
        bool isFound = false;
        for (unsigned corner = 0; corner < 8 && !isFound; ++corner) {
            Point like = point;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                like[axis] += (corner >> axis & 1) * direction;
            }
            isFound = std::binary_search(others.begin(), others.end(), like);
        }
        count += isFound ? 0 : 1;
    }
    return count;
}

std::string errorOf(const std::string& store, bool reads) {
    try {
        // A fraction of what stores may take otherwise.
        EntwineTree tree(Entwine::FileSystemLocation(realData() / "ept" / store), {},
                         {.memory = std::uint64_t{64} << 20});
        NodePointData data;
        if (reads) {
            tree.readNode(OctreeNodeId(), 1.0, data, {});
        }
        return "";
    } catch (const Octree::StoreError& error) {
        return error.what();
    }
}

class EptTruth : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(realData() / "ept")) {
            GTEST_SKIP() << "the real stores are not here: " << realData();
        }
    }
};

}  // namespace

TEST_P(EptTruth, EveryNodeIsAsAnIndependentReaderFoundIt) {
    const std::string name = GetParam();
    std::ifstream file(realData() / "truth" / ("ept-" + name + ".json"));
    const Json truth = Json::parse(file);
    const Octree::Location location = Octree::Location::fromPath(realData() / "ept" / name);
    const auto source = std::make_shared<EntwineTree>(*location.entwine());
    EntwineTree& tree = *source;
    const Octree::Octree octree(source, location);
    std::map<std::string, const Json*> listed;
    for (const Json& node : truth["nodes"]) {
        listed[node["name"]] = &node;
    }
    const Json& maximum = truth["totals"]["maxColourValue"];
    const double colorUnit = maximum.is_number() && maximum > 255 ? 256.0 : 1.0;
    const Octree::StoreFacts& facts = tree.storeFacts();

    const Math::Point<double, 3> tolerance(1e-6, 1e-6, 1e-6);
    TruthSummary total(facts.referencePosition);
    const std::vector<OctreeNodeId> nodes = allNodes(tree);
    for (const OctreeNodeId id : nodes) {
        const std::string key = Octree::NodeKey(id).text();
        SCOPED_TRACE(key);
        ASSERT_EQ(listed.count(key), 1u);
        Octree::NodeFacts node;
        NodePointData data;
        ASSERT_TRUE(tree.nodeFacts(id, node, {}));
        EXPECT_EQ(node.pointCount, (*listed[key])["numPointsInHierarchy"]);
        if (listed[key]->contains("error")) {
            EXPECT_THROW(tree.readNode(id, 1.0, data, {}), Octree::StoreError);
            continue;
        }
        ASSERT_TRUE(tree.readNode(id, 1.0, data, {}));
        TruthSummary summary(facts.referencePosition);
        summary.add(data);
        summary.expectSame(*listed[key], colorUnit, tolerance);
        total.add(data);
        const Math::NBoundingBox<float, 3> bounds = octree.pointBounds(id);
        EXPECT_TRUE(std::all_of(data.positions().begin(), data.positions().end(), [&](const auto& position) {
            return bounds.contains(position.template cast<float>());
        }));
    }
    EXPECT_EQ(nodes.size(), listed.size());
    total.expectSame(truth["totals"], colorUnit, tolerance);
    EXPECT_TRUE(facts.boundingBox.contains(total.box.min));
    EXPECT_TRUE(facts.boundingBox.contains(total.box.max));
    EXPECT_EQ(facts.spacing,
              (facts.boundingCube.max[0] - facts.boundingCube.min[0]) / truth["span"].get<double>());
}

INSTANTIATE_TEST_SUITE_P(Stores, EptTruth,
                         testing::Values("lion-binary", "lion-zstandard", "ellipsoid-binary",
                                         "bad-pointcount-binary", "lion-laszip", "lion-laszip14",
                                         "lone-star-laszip", "lone-star-invalid-tile",
                                         "bad-pointcount-laszip"),
                         [](const auto& store) {
                             std::string name = store.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST_F(EptTruth, TheSameCloudHasTheSamePointsInEveryStore) {
    EntwineTree binary(Entwine::FileSystemLocation(realData() / "ept" / "lion-binary"));
    PoTree::Store potree(PoTree::FileSystemLocation(realData() / "potree" / "lion-brotli"));
    const std::vector<Point> expected = sortedPoints(binary);
    ASSERT_EQ(expected.size(), 341989u);
    for (const char* const other : {"lion-zstandard", "lion-laszip", "lion-laszip14"}) {
        EntwineTree tree(Entwine::FileSystemLocation(realData() / "ept" / other));
        EXPECT_TRUE(expected == sortedPoints(tree)) << other;
    }
    // Written from the same points by a converter that rounds down, and then counts one step too far.
    const std::vector<Point> converted = sortedPoints(potree);
    ASSERT_EQ(converted.size(), expected.size());
    EXPECT_EQ(countWithoutLike(expected, converted, 1), 0u);
    EXPECT_EQ(countWithoutLike(converted, expected, -1), 0u);
}

TEST_F(EptTruth, AStoreWithoutTilesOpensAndNamesTheTileThatIsMissing) {
    EXPECT_EQ(errorOf("ellipsoid-nopoints", false), "");
    const std::string error = errorOf("ellipsoid-nopoints", true);
    EXPECT_NE(error.find("ept-data/0-0-0-0.bin: node 0-0-0-0: its points cannot be read"), std::string::npos)
        << error;
}
