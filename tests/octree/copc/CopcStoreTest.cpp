#include <octree/Octree.h>
#include <octree/StoreError.h>
#include <octree/copc/Store.h>
#include <octree/las/Tile.h>
#include <tests/octree/copc/CopcFixture.h>
#include <tests/octree/copc/StorePoints.h>

#include <core/ExceptionChain.h>
#include <core/File.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

using Octree::OctreeNodeId;
using Support::CopcFixture;
using Support::StorePoint;

namespace {

std::vector<StorePoint> pointsOf(const std::filesystem::path& path, const Octree::Limits& limits = {}) {
    const Octree::Octree octree(Octree::Location::fromPath(path), 1.0, {}, limits);
    return Support::sortedPoints(octree, *octree.positionGrid());
}

std::string errorOf(const std::filesystem::path& path, const Octree::Limits& limits = {}) {
    try {
        pointsOf(path, limits);
    } catch (const Octree::StoreError& error) {
        return Core::exceptionChain(error);
    }
    return "none";
}

}  // namespace

TEST(CopcStore, HasThePointsOfItsChunks) {
    const CopcFixture fixture;
    Las::Tile tile;
    ASSERT_TRUE(Las::readTile("source", CopcFixture::source(), Las::ALL_FIELDS, {}, tile));
    const Las::Columns& columns = tile.points;
    std::vector<StorePoint> expected;
    for (std::size_t i = 0; i < columns.size; ++i) {
        expected.push_back({columns.x[i], columns.y[i], columns.z[i], columns.red[i] >> 8,
                            columns.green[i] >> 8, columns.blue[i] >> 8, columns.intensity[i],
                            columns.classification[i], columns.pointSourceId[i]});
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(pointsOf(fixture.path()), expected);

    const Octree::Octree octree(Octree::Location::fromPath(fixture.path()));
    EXPECT_EQ(octree.totalPointCount(), columns.size);
    EXPECT_EQ(octree.spacing(1), 500.0f);
    EXPECT_EQ(octree.location().toString(), Core::pathToUtf8(fixture.path()));
    EXPECT_EQ(octree.location().folder(), fixture.folder.path());
    EXPECT_GT(fixture.pages.size(), 3u);
}

TEST(CopcStore, DamageOfAnyByteIsAnErrorOrLeavesThePointsRight) {
    const CopcFixture fixture;
    const std::vector<StorePoint> expected = pointsOf(fixture.path());
    const std::size_t chunks = fixture.pages.at(OctreeNodeId()).front().offset;
    const std::size_t pages = fixture.beginning.size();
    std::size_t errors = 0, tried = 0;
    for (std::size_t at = 0; at < fixture.file.size(); at += at + 1 == chunks ? pages - chunks + 1 : 1) {
        for (const unsigned pattern : {0x01u, 0xffu}) {
            SCOPED_TRACE("byte " + std::to_string(at) + " xor " + std::to_string(pattern));
            std::string bad = fixture.file;
            bad[at] = static_cast<char>(static_cast<unsigned char>(bad[at]) ^ pattern);
            fixture.folder.write("bad.laz", bad);
            ++tried;
            try {
                // Steps of the grid are the same whatever scale and offset say.
                EXPECT_TRUE(pointsOf(fixture.folder.path() / "bad.laz") == expected);
            } catch (const Octree::StoreError&) {
                ++errors;
            }
        }
    }
    EXPECT_GT(errors, tried / 4);
    EXPECT_LT(errors, tried);
}

TEST(CopcStore, AFileOfAnyOtherLengthIsAnError) {
    const CopcFixture fixture;
    for (std::size_t size = 0; size < fixture.file.size(); size += size < 700 ? 1 : 53) {
        fixture.folder.write("bad.laz", fixture.file.substr(0, size));
        EXPECT_NE(errorOf(fixture.folder.path() / "bad.laz"), "none") << size;
    }
}

TEST(CopcStore, ContradictionsAreErrorsThatNameTheNode) {
    using Entries = std::vector<CopcFixture::Entry>;
    struct Attack {
        std::function<void(CopcFixture&, Entries& root)> change;
        const char* message;
    };
    const Attack attacks[] = {
        {[](auto& fixture, auto& root) {
             fixture.beginning[247] = 31;
             root[0].count = 2;
         },
         "node 0-0-0-0: its chunk has 1 points, the hierarchy says 2"},
        {[](auto& fixture, auto& root) {
             fixture.beginning[250] = 1;  // 2^24 points more
             root[0].count = (1 << 21) + 1;
         },
         "are more than a node may have"},
        {[](auto& fixture, auto& root) {
             fixture.beginning[250] = 1;
             root[0].count = 1 << 21;
         },
         "are too many for "},
        {[](auto&, auto& root) { root[0].count = -2; }, "node 0-0-0-0: has -2 points in"},
        {[](auto&, auto& root) { root[0].size = -1; }, "node 0-0-0-0: has 1 points in -1 bytes"},
        {[](auto&, auto& root) { root[0].offset = ~std::uint64_t{0}; }, "lie outside the file"},
        {[](auto&, auto& root) { root.front().count = -1; }, "node 0-0-0-0: has -1 points"},
        {[](auto&, auto& root) { root.push_back(root[0]); }, "node 0-0-0-0: is there twice"},
        {[](auto&, auto& root) { root.erase(root.begin()); }, "node 0-0-0-0: is missing"},
        {[](auto&, auto& root) { root.back().id = root.back().id.child(0); }, "its parent is missing"},
        {[](auto& fixture, auto& root) {
             fixture.beginning[247] = 31;
             const OctreeNodeId deep = root[1].id.child(0).child(0).child(0);
             fixture.pages.at(root[1].id).push_back({deep, root[0].offset, root[0].size, 1});
         },
         "its parent is missing"},
        {[](auto& fixture, auto&) { fixture.beginning[247] = 29; },
         "the nodes have 30 points, the header says 29"},
    };
    const std::uint16_t extraBytes = 65000, recordLength = 36 + extraBytes;
    CopcFixture large;
    const std::size_t items = large.beginning.find("laszip encoded") - 2 + 54 + 34;
    std::memcpy(&large.beginning[105], &recordLength, 2);
    std::memcpy(&large.beginning[items + 2 * 6 + 2], &extraBytes, 2);
    large.write();
    EXPECT_NE(errorOf(large.path()).find("65000 extra bytes a point"), std::string::npos)
        << errorOf(large.path());

    for (const Attack& attack : attacks) {
        CopcFixture fixture;
        attack.change(fixture, fixture.pages.at(OctreeNodeId()));
        fixture.write();
        const std::string message = errorOf(fixture.path());
        EXPECT_NE(message.find(attack.message), std::string::npos) << message << " for " << attack.message;
    }
}

TEST(CopcStore, TakesNoMoreMemoryThanItsLimit) {
    const CopcFixture fixture;
    std::size_t refused = 0;
    for (std::uint64_t limit = 1; limit <= 65536; limit *= 2) {
        const std::string message = errorOf(fixture.path(), {.memory = limit});
        const bool isRefused = message.find("its limit is " + std::to_string(limit)) != std::string::npos;
        EXPECT_TRUE(isRefused || message == "none") << message;
        refused += isRefused ? 1 : 0;
    }
    EXPECT_GT(refused, 10u);
    EXPECT_LT(refused, 17u);
}
