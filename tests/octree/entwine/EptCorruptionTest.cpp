#include <octree/StoreError.h>
#include <octree/entwine/EntwineTree.h>

#include <gtest/gtest.h>
#include <tests/octree/entwine/EptFixture.h>

#include <cmath>

using Octree::OctreeNodeId;

namespace {

/// Reads the whole store; false when it says that it is damaged. Whatever it gives must be sound in itself.
bool readsWell(const Support::EptFixture& fixture) {
    try {
        Entwine::EntwineTree tree{Entwine::FileSystemLocation(fixture.folder.path())};
        const Math::NBoundingBox<double, 3> cube = tree.storeFacts().boundingCube;
        for (const OctreeNodeId id : Support::allNodes(tree)) {
            Octree::NodePointData data;
            tree.readNode(id, 1.0, data, {});
            for (const Math::Point<double, 3>& position : data.positions()) {
                for (int axis = 0; axis < 3; ++axis) {
                    EXPECT_LE(std::abs(position[axis]), cube.max[axis] - cube.min[axis]);
                }
            }
        }
        return true;
    } catch (const Octree::StoreError&) {
        return false;
    }
}

class EptCorruption : public testing::TestWithParam<const char*> {
protected:
    std::vector<std::string> files() const {
        return {"ept.json", "ept-hierarchy/0-0-0-0.json", "ept-hierarchy/1-1-0-0.json",
                mFixture.tileFile("0-0-0-0"), mFixture.tileFile("2-2-1-0")};
    }

    const Support::EptFixture mFixture{GetParam()};
};

}  // namespace

TEST_P(EptCorruption, OfAnyByteIsAnErrorOrGivesSoundPoints) {
    ASSERT_TRUE(readsWell(mFixture));
    for (const std::string& file : files()) {
        const std::string good = mFixture.folder.read(file);
        std::size_t errors = 0;
        for (std::size_t at = 0; at < good.size(); ++at) {
            for (const unsigned pattern : {0x01u, 0x80u, 0xffu}) {
                SCOPED_TRACE(file + " byte " + std::to_string(at) + " xor " + std::to_string(pattern));
                std::string bad = good;
                bad[at] = static_cast<char>(static_cast<unsigned char>(bad[at]) ^ pattern);
                mFixture.folder.write(file, bad);
                errors += readsWell(mFixture) ? 0u : 1u;
            }
        }
        EXPECT_GT(errors, good.size() / 4) << file;
        mFixture.folder.write(file, good);
        ASSERT_TRUE(readsWell(mFixture));
    }
}

TEST_P(EptCorruption, OfAnyLengthIsAnErrorUnlessItLeavesWholePoints) {
    for (const std::string& file : files()) {
        const std::string good = mFixture.folder.read(file);
        for (std::size_t size = 0; size < good.size(); ++size) {
            SCOPED_TRACE(file + " cut to " + std::to_string(size));
            mFixture.folder.write(file, good.substr(0, size));
            const bool isWhole = file.find(".bin") != std::string::npos && size > 0 && size % 21 == 0;
            EXPECT_EQ(readsWell(mFixture), isWhole);
        }
        mFixture.folder.write(file, good);
    }
}

INSTANTIATE_TEST_SUITE_P(Tiles, EptCorruption, testing::Values("binary", "zstandard"),
                         [](const auto& type) { return std::string(type.param); });
