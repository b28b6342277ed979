#include <octree/Octree.h>

#include <gtest/gtest.h>
#include <tests/support/PotreeFixture.h>

using Octree::Attribute;
using Octree::NodePointData;
using Support::attribute;
using Support::bytesOf;

namespace {

/// The points of a store of one node whose records are these.
NodePointData readRecords(nlohmann::json attributes, const std::string& records, std::uint32_t count) {
    Support::PotreeFixture fixture("DEFAULT");
    fixture.metadata["attributes"] = std::move(attributes);
    fixture.octree = records;
    fixture.hierarchy = Support::hierarchyRecord(0, 0, count, 0, records.size());
    fixture.metadata["hierarchy"]["firstChunkSize"] = fixture.hierarchy.size();
    fixture.writeAll();
    NodePointData data;
    Octree::Octree(Octree::Location::fromPath(fixture.folder.path()))
        .getNodePointData(Octree::OctreeNodeId(), data);
    EXPECT_EQ(data.size(), count);
    return data;
}

std::string position(std::int32_t x, std::int32_t y, std::int32_t z) {
    return bytesOf(x) + bytesOf(y) + bytesOf(z);
}

}  // namespace

TEST(NodeRecords, HoldTheirAttributesInAnyOrderAtAnyAlignment) {
    const auto record = [](unsigned char n) {
        return bytesOf(n) + "ab" + bytesOf<std::uint16_t>(0x1234) + bytesOf<std::uint16_t>(0xff00) +
               bytesOf<std::uint16_t>(n) + "cdefghij" + bytesOf<std::uint32_t>(70000u + n) + "k" +
               position(512 + n, 512, 512 - n) + bytesOf<std::uint16_t>(1000u + n) +
               bytesOf<unsigned char>(n % 2);
    };
    std::string records;
    for (unsigned char n = 0; n < 3; ++n) {
        records += record(n);
    }
    const NodePointData data =
        readRecords({attribute("classification", 1, "uint8"), attribute("Intensity", 2, "uint16"),
                     attribute("rgb", 6, "uint16"), attribute("gps-time", 8, "double"),
                     attribute("ScanIndex", 4, "uint32"), attribute("classification flags", 1, "undreamt-of"),
                     attribute("position", 12, "int32"), attribute("intensity", 2, "uint16"),
                     attribute("visibility", 1, "uint8")},
                    records, 3);
    EXPECT_EQ(data.position(2), (Math::Point<double, 3>(0.5, 0.0, -0.5)));
    EXPECT_EQ(data.color(2), Math::Color(0x12, 0xff, 0));
    EXPECT_EQ(data.intensities(), (std::vector<std::uint16_t>{1000, 1001, 1002}));
    EXPECT_EQ(data.classifications(), (std::vector<std::uint8_t>{0, 1, 2}));
    EXPECT_EQ(data.scanIndices(), (std::vector<std::uint32_t>{70000, 70001, 70002}));
    EXPECT_EQ(data.visibilities(), (std::vector<std::uint8_t>{0, 1, 0}));
    EXPECT_FALSE(data.has(Attribute::Normal));
}

TEST(NodeRecords, OfOneByteChannelsKeepThem) {
    const NodePointData data = readRecords({attribute("rgb", 3, "uint8"), attribute("position", 12, "int32")},
                                           "\x01\x02\xff" + position(0, 0, 0), 1);
    EXPECT_EQ(data.color(0), Math::Color(1, 2, 255));
}

TEST(NodeRecords, HoldNormalsAsCodesOrDoubles) {
    const auto x = attribute("NormalX", 8, "double");
    const auto y = attribute("NormalY", 8, "double");
    const auto z = attribute("NormalZ", 8, "double");
    const auto at = attribute("position", 12, "int32");
    const std::string record = bytesOf(0.5) + position(1, 2, 3) + bytesOf(-1.0) + bytesOf(0.25);
    EXPECT_EQ(readRecords({z, at, x, y}, record + record, 2).normal(1),
              (Math::Point<float, 3>(-1.0f, 0.25f, 0.5f)));
    EXPECT_FALSE(
        readRecords({z, at, x, attribute("Normaly", 8, "double")}, record, 1).has(Attribute::Normal));
    EXPECT_GT(readRecords({attribute("normal_oct16", 2, "uint16"), at}, "\xff\x80" + position(1, 2, 3), 1)
                  .normal(0)
                  .x(),
              0.99f);
}
