#include <octree/NodeKey.h>
#include <octree/Octree.h>
#include <octree/copc/Head.h>
#include <octree/copc/HierarchyReader.h>
#include <octree/las/PointReader.h>
#include <tests/octree/copc/StorePoints.h>
#include <tests/support/RealData.h>

#include <gtest/gtest.h>

#include <array>
#include <cstring>

using Octree::OctreeNodeId;
using TestSupport::realData;

namespace {

std::filesystem::path realFile() {
    return realData() / "copc" / "lone-star.copc.laz";
}

/// A point's record of format 6, as it was before its compression.
std::array<unsigned char, 30> recordOf(const Las::Columns& points, std::size_t i) {
    std::array<unsigned char, 30> record{};
    const auto put = [&record](std::size_t offset, const auto& value) {
        std::memcpy(record.data() + offset, &value, sizeof value);
    };
    put(0, points.x[i]);
    put(4, points.y[i]);
    put(8, points.z[i]);
    put(12, points.intensity[i]);
    record[14] = static_cast<unsigned char>(points.returnNumber[i] | points.returnCount[i] << 4);
    const unsigned flags = points.flags[i];
    record[15] = static_cast<unsigned char>((flags & 15) | flags >> 6 << 4 | (flags >> 4 & 3) << 6);
    record[16] = points.classification[i];
    record[17] = points.userData[i];
    put(18, points.scanAngle[i]);
    put(20, points.pointSourceId[i]);
    put(22, points.gpsTime[i]);
    return record;
}

/// FNV-1a of all records.
std::uint64_t digestOf(const Las::Columns& points) {
    std::uint64_t digest = 0xcbf29ce484222325;
    for (std::size_t i = 0; i < points.size; ++i) {
        for (const unsigned char byte : recordOf(points, i)) {
            digest = (digest ^ byte) * 0x100000001b3;
        }
    }
    return digest;
}

}  // namespace

TEST(CopcTruth, HasThePointsOfTheSameCloudInEntwine) {
    const std::filesystem::path file = realFile();
    if (!std::filesystem::exists(file)) {
        GTEST_SKIP() << "the real file is not here: " << file;
    }
    const Octree::Limits limits{.memory = std::uint64_t{64} << 20};
    const Octree::Octree copc(Octree::Location::fromPath(file), 1.0, {}, limits);
    const Octree::Octree entwine(Octree::Location::fromPath(realData() / "ept" / "lone-star-laszip"), 1.0, {},
                                 limits);
    const auto points = Support::sortedPoints(copc, *copc.positionGrid());
    EXPECT_EQ(points.size(), copc.totalPointCount());
    EXPECT_TRUE(points == Support::sortedPoints(entwine, *copc.positionGrid()));
}

// As tools/laz-oracle says.
TEST(CopcTruth, EveryRecordIsAsAnIndependentReaderFoundIt) {
    if (!std::filesystem::exists(realFile())) {
        GTEST_SKIP() << "the real file is not here: " << realFile();
    }
    struct Node {
        const char* key;
        std::uint64_t count;
        std::uint64_t digest;
    };
    const Node nodes[] = {
        {"0-0-0-0", 58393, 0x77319596e536bf7f}, {"1-0-0-0", 32909, 0xd6e56c9af747ba67},
        {"1-0-1-0", 8387, 0x27aa6ddbcfda5ccc},  {"1-1-0-0", 30657, 0xd43bd35d251c1ad2},
        {"1-1-1-0", 33647, 0x7814ad44d8ae7a06}, {"2-0-2-0", 212, 0x45e39faa7e3d68fb},
        {"2-1-2-0", 42862, 0xe22a63cc8c815f56}, {"2-1-2-1", 11135, 0xf0396f5c0f335eb6},
        {"2-1-3-0", 30018, 0x3b44f4c2b3f583f1}, {"2-2-2-0", 126731, 0x7dbcfe9e32a956b7},
        {"2-2-2-1", 58730, 0x16b584d062e6078b}, {"2-2-3-0", 54282, 0x8ce77b9d93f15618},
        {"2-3-2-0", 5885, 0x560cf919235f4e20},  {"2-3-3-0", 24696, 0x976f0c260c03ff13},
        {"2-3-3-1", 318, 0xba241d658533c5eb},
    };
    const auto file = std::make_shared<const Octree::RandomAccessFile>(realFile());
    const auto budget = std::make_shared<Octree::MemoryBudget>();
    const Copc::Head head(*file, *budget, {});
    Copc::HierarchyReader hierarchy(file, head.las().header().pointCount, budget);
    const auto page = hierarchy.read(OctreeNodeId(), head.rootPage(), {});
    for (const Node& expected : nodes) {
        const Octree::HierarchyNode* const node = page->find(Octree::NodeKey::parse(expected.key)->id());
        ASSERT_NE(node, nullptr) << expected.key;
        EXPECT_EQ(node->pointCount, expected.count) << expected.key;
        const Octree::ByteRange range = page->rangeOf(*node);
        std::vector<std::byte> bytes(range.size);
        ASSERT_TRUE(file->read(range.offset, bytes.size(), reinterpret_cast<char*>(bytes.data()), {}));
        Las::PointReader reader(head.las(), bytes, node->pointCount, Las::ALL_FIELDS);
        Las::Columns points;
        while (reader.read(points)) {
        }
        EXPECT_EQ(digestOf(points), expected.digest) << expected.key;
    }
}
