#include <octree/Octree.h>
#include <octree/StoreError.h>
#include <octree/potree/Metadata.h>

#include <gtest/gtest.h>
#include <tests/support/PotreeFixture.h>

#include <cmath>

using Octree::OctreeNodeId;

namespace {

/// Reads the whole store; false when it says that it is damaged. Whatever it gives must be sound in itself.
bool readsWell(const std::filesystem::path& folder) {
    try {
        Octree::MemoryBudget budget;
        const auto metadata =
            PoTree::Metadata::read(folder / "metadata.json", PoTree::StoreRole::Cloud, budget);
        const Octree::Octree octree{PoTree::FileSystemLocation(folder)};
        std::vector<OctreeNodeId> pending{OctreeNodeId()};
        std::size_t nodes = 0;
        while (!pending.empty()) {
            const OctreeNodeId id = pending.back();
            pending.pop_back();
            const auto children = octree.children(id);
            pending.insert(pending.end(), children.begin(), children.end());
            Octree::NodePointData data;
            octree.getNodePointData(id, data);
            EXPECT_EQ(data.size(), octree.pointCount(id));
            EXPECT_LT(++nodes, 100u);
            for (const Math::Point<double, 3>& position : data.positions()) {
                const Math::Point<double, 3> point = position + octree.referencePosition();
                for (int axis = 0; axis < 3; ++axis) {
                    const double slack = 5 * metadata.scale[axis] + 1e-9 * std::abs(point[axis]);
                    EXPECT_GE(point[axis], metadata.boundingBox.min[axis] - slack);
                    EXPECT_LE(point[axis], metadata.boundingBox.max[axis] + slack);
                }
            }
        }
        return true;
    } catch (const Octree::StoreError&) {
        return false;
    }
}

struct Outcome {
    std::size_t errors = 0, points = 0;
};

Outcome corruptEveryByte(const Support::PotreeFixture& fixture, const std::string& file) {
    Outcome outcome;
    const std::string good = fixture.folder.read(file);
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (const unsigned pattern : {0x01u, 0x80u, 0xffu}) {
            SCOPED_TRACE(file + " byte " + std::to_string(at) + " xor " + std::to_string(pattern));
            std::string bad = good;
            bad[at] = static_cast<char>(static_cast<unsigned char>(bad[at]) ^ pattern);
            fixture.folder.write(file, bad);
            ++(readsWell(fixture.folder.path()) ? outcome.points : outcome.errors);
        }
    }
    fixture.folder.write(file, good);
    return outcome;
}

}  // namespace

class StoreCorruption : public testing::TestWithParam<const char*> {
protected:
    const Support::PotreeFixture fixture{GetParam()};
};

TEST_P(StoreCorruption, OfAnyByteIsAnErrorOrGivesSoundPoints) {
    ASSERT_TRUE(readsWell(fixture.folder.path()));
    for (const std::string file : {"hierarchy.bin", "octree.bin", "metadata.json"}) {
        const Outcome outcome = corruptEveryByte(fixture, file);
        // Nothing tells a changed intensity or colour in a record from a sound one.
        const bool showsInPositionsOnly = file == "octree.bin" && GetParam() != std::string("BROTLI");
        EXPECT_GT(outcome.errors, showsInPositionsOnly ? outcome.points / 4 : outcome.points) << file;
        ASSERT_TRUE(readsWell(fixture.folder.path()));
    }
}

TEST_P(StoreCorruption, OfAnyLengthIsAnErrorOrGivesSoundPoints) {
    for (const std::string file : {"hierarchy.bin", "octree.bin", "metadata.json"}) {
        const std::string good = fixture.folder.read(file);
        for (std::size_t size = 0; size < good.size(); ++size) {
            SCOPED_TRACE(file + " cut to " + std::to_string(size));
            fixture.folder.write(file, good.substr(0, size));
            EXPECT_FALSE(readsWell(fixture.folder.path()));
        }
        fixture.folder.write(file, good);
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, StoreCorruption, testing::Values("BROTLI", "UNCOMPRESSED"));
