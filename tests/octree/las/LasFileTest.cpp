#include <core/File.h>
#include <octree/StoreError.h>
#include <octree/las/PointReader.h>
#include <octree/las/Tile.h>
#include <tests/octree/las/RandomCloud.h>
#include <tests/support/HostileTiles.h>
#include <tests/support/LargeAllocations.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <limits>

namespace {

using Support::RandomCloud;

std::string fileOf(const std::string& name) {
    return Core::readLocalFile(std::filesystem::path(LUMARO_SOURCE_DIR) / "tests/octree/las/data" /
                               (name + ".laz"));
}

template <class T>
std::string with(std::string bytes, std::size_t offset, T value) {
    return bytes.replace(offset, sizeof value, reinterpret_cast<const char*>(&value), sizeof value);
}

std::string problemOf(const std::string& bytes) {
    Las::Tile tile;
    try {
        Las::readTile("a.laz", bytes, Las::ALL_FIELDS, {}, tile);
    } catch (const Octree::StoreError& error) {
        return error.what();
    }
    return "none";
}

std::span<const std::byte> bytesOf(const std::string& text) {
    return std::as_bytes(std::span(text));
}

// Offsets in the header.
constexpr std::size_t MINOR_VERSION = 25, POINT_OFFSET = 96, RECORD_COUNT = 100, FORMAT = 104,
                      RECORD_LENGTH = 105, OLD_POINT_COUNT = 107, SCALE = 131;
/// Of the record about the compression, in files of format 0 to 5.
constexpr std::size_t COMPRESSION = 227 + 54;
constexpr std::size_t FIRST_ITEM = COMPRESSION + 34;

TEST(LasRecords, HaveTheirFieldsWhereTheFormatSays) {
    const unsigned char old[] = {1, 0, 0, 0, 0xfe, 0xff, 0xff, 0xff, 3, 0, 0, 0, 0x34, 0x12,
                                 // returns 2 of 3, scan direction; class 5, withheld
                                 0x5a, 0x85, 0xf6, 0x77, 0x02, 0x01,
                                 // 1.5
                                 0, 0, 0, 0, 0, 0, 0xf8, 0x3f,
                                 // colour, extra byte
                                 1, 0, 2, 0, 3, 0, 0xee};
    std::string file = RandomCloud{3, 0, 1}.lasFile() + std::string(std::begin(old), std::end(old));
    Las::Tile tile;
    ASSERT_TRUE(
        Las::readTile("a.las", with(file, OLD_POINT_COUNT, std::uint32_t{1}), Las::ALL_FIELDS, {}, tile));
    const Las::Columns& points = tile.points;
    EXPECT_EQ(points.x[0], 1);
    EXPECT_EQ(points.y[0], -2);
    EXPECT_EQ(points.z[0], 3);
    EXPECT_EQ(points.intensity[0], 0x1234);
    EXPECT_EQ(points.returnNumber[0], 2);
    EXPECT_EQ(points.returnCount[0], 3);
    EXPECT_EQ(points.flags[0], 0b010100);
    EXPECT_EQ(points.classification[0], 5);
    EXPECT_EQ(points.scanAngle[0], -10);
    EXPECT_EQ(points.userData[0], 0x77);
    EXPECT_EQ(points.pointSourceId[0], 0x102);
    EXPECT_EQ(points.gpsTime[0], 1.5);
    EXPECT_EQ(points.green[0], 2);
    EXPECT_EQ(points.extraBytes[0], std::byte{0xee});

    const unsigned char recent[] = {1, 0, 0, 0, 0xfe, 0xff, 0xff, 0xff, 3, 0, 0, 0, 0x34, 0x12,
                                    // return 2 of 15; edge of flight line, channel 2, overlap
                                    0xf2, 0xa8, 200, 0x77, 0xf0, 0xd8, 0x02, 0x01,
                                    // 1.5
                                    0, 0, 0, 0, 0, 0, 0xf8, 0x3f,
                                    // colour, near infrared
                                    1, 0, 2, 0, 3, 0, 4, 0};
    file = RandomCloud{8, 0}.lasFile() + std::string(std::begin(recent), std::end(recent));
    ASSERT_TRUE(Las::readTile("a.las", with(file, 247, std::uint64_t{1}), Las::ALL_FIELDS, {}, tile));
    EXPECT_EQ(points.returnNumber[0], 2);
    EXPECT_EQ(points.returnCount[0], 15);
    EXPECT_EQ(points.flags[0], 0b10101000);
    EXPECT_EQ(points.classification[0], 200);
    EXPECT_EQ(points.userData[0], 0x77);
    EXPECT_EQ(points.scanAngle[0], -10000);
    EXPECT_EQ(points.pointSourceId[0], 0x102);
    EXPECT_EQ(points.gpsTime[0], 1.5);
    EXPECT_EQ(points.blue[0], 3);
    EXPECT_EQ(points.nearInfrared[0], 4);
    EXPECT_TRUE(points.extraBytes.empty());
    EXPECT_EQ(tile.header.scale, (Math::Point<double, 3>(0.01, 0.001, 0.25)));
    EXPECT_EQ(tile.header.offset, (Math::Point<double, 3>(1000.0, -2000.0, 3.5)));
}

/// A variable-length record; extended ones say their size in eight bytes.
std::string record(const std::string& user, std::uint16_t id, const std::string& data, bool isExtended) {
    std::string bytes(isExtended ? 60 : 54, '\0');
    std::memcpy(bytes.data() + 2, user.data(), user.size());
    bytes = with(bytes, 18, id);
    bytes = with(bytes, 20, static_cast<std::uint16_t>(data.size()));
    return bytes + data;
}

TEST(LasFile, ListsItsRecordsAndTheAttributesOfItsExtraBytes) {
    const auto attribute = [](unsigned char type, unsigned char options, const std::string& name) {
        std::string bytes(192, '\0');
        bytes[2] = static_cast<char>(type);
        bytes[3] = static_cast<char>(options);
        std::memcpy(bytes.data() + 4, name.data(), name.size());
        return bytes;
    };
    // The last does not fit into the seven bytes.
    const std::string attributes =
        attribute(5, 0, "OriginId") + attribute(0, 2, "raw") + attribute(3, 0, "late");
    std::string file = RandomCloud{6, 0, 7}.lasFile();
    file += record("LASF_Spec", 4, attributes, false);
    file = with(with(file, RECORD_COUNT, std::uint32_t{1}), POINT_OFFSET,
                static_cast<std::uint32_t>(file.size()));
    file = with(with(file, 235, std::uint64_t{file.size()}), 243, std::uint32_t{1});
    file += record("someone", 77, "behind", true);

    const Las::LasFile las("a.las", bytesOf(file));
    ASSERT_EQ(las.records().size(), 2U);
    EXPECT_EQ(las.records()[1].userId, "someone");
    EXPECT_EQ(las.records()[1].recordId, 77U);
    EXPECT_EQ(las.records()[1].data.size(), 6U);
    const std::vector<Las::ExtraAttribute> found = las.extraAttributes();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].name, "OriginId");
    EXPECT_EQ(found[0].size, 4U);
    EXPECT_EQ(found[1].offset, 4U);
    EXPECT_EQ(found[1].size, 2U);
}

TEST(LasFile, RefusesByNameWhatItDoesNotRead) {
    const std::string plain = RandomCloud{1, 3}.lasFile();
    const std::string laz = fileOf("format1-extra3-chunk1");
    EXPECT_EQ(problemOf("LASX"), "a.laz: is not a LAS file");
    EXPECT_EQ(problemOf(with(plain, MINOR_VERSION, std::uint8_t{5})),
              "a.laz: LAS version 1.5 is not supported");
    for (const unsigned format : {4U, 5U, 9U, 10U, 64U}) {
        EXPECT_EQ(problemOf(with(plain, FORMAT, static_cast<std::uint8_t>(format))),
                  "a.laz: point format " + std::to_string(format) + " is not supported");
    }
    EXPECT_EQ(problemOf(with(plain, RECORD_LENGTH, std::uint16_t{27})),
              "a.laz: point format 1 takes 28 bytes a point, the header says 27");
    for (const double scale : {0.0, 5e-324, 1e300, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(problemOf(with(plain, SCALE, scale)), "a.laz: scale and offset are not usable");
    }
    EXPECT_EQ(problemOf(with(plain, FORMAT, std::uint8_t{129})),
              "a.laz: is compressed, but its record \"laszip encoded\" is missing");
    EXPECT_EQ(problemOf(with(laz, COMPRESSION, std::uint16_t{1})),
              "a.laz: compressor 1 (pointwise) is not supported for point format 1");
    EXPECT_EQ(problemOf(with(laz, COMPRESSION + 2, std::uint16_t{7})),
              "a.laz: entropy coder 7 is not supported");
    EXPECT_EQ(problemOf(with(laz, FIRST_ITEM + 4, std::uint16_t{1})),
              "a.laz: version 1 of item POINT10 is not supported");
    EXPECT_EQ(problemOf(with(laz, FIRST_ITEM, std::uint16_t{9})),
              "a.laz: item WAVEPACKET13 of 20 bytes does not belong to point format 1 with 3 extra bytes");
}

TEST(LasFile, SaysWhichChunkAndPointItEndsIn) {
    // Without the table chunks are found one after another.
    std::string file = with(fileOf("format0-chunk50"), COMPRESSION + 40, std::uint64_t{0});
    file.resize(file.size() * 6 / 10);
    EXPECT_EQ(problemOf(file), "a.laz: chunk 2: point 25 of 50: the compressed bytes end early");
}

TEST(LasFile, ThatPromisesMoreThanItHoldsIsAnError) {
    const std::string plain = RandomCloud{0, 5}.lasFile();
    EXPECT_EQ(problemOf(with(plain, OLD_POINT_COUNT, std::uint32_t{6})),
              "a.laz: the header says 6 points, there are bytes for 5");
    const std::string laz = fileOf("format0-chunk50");
    EXPECT_EQ(problemOf(with(laz, OLD_POINT_COUNT, std::uint32_t{251})),
              "a.laz: the chunk table ends 1 points before the 251 that the header says");
    // A chunk of very many points: neither memory nor time follows the promise.
    const std::string one = with(fileOf("format2-one-point"), COMPRESSION + 12, std::uint32_t{1} << 28);
    EXPECT_NE(problemOf(with(one, OLD_POINT_COUNT, std::uint32_t{1} << 21)).find("bytes are too few for"),
              std::string::npos);
    EXPECT_NE(
        problemOf(with(one, OLD_POINT_COUNT, (std::uint32_t{1} << 21) + 1)).find("more than a tile may have"),
        std::string::npos);
}

TEST(LasTile, ItsExtraBytesCostNoMoreThanTheFileIsWorth) {
    std::string manyExtra = RandomCloud{0, 0, 4097}.lasFile();
    EXPECT_EQ(problemOf(manyExtra), "a.laz: 4097 extra bytes a point are more than a tile may have");
    // One chunk of two million points: the layers of their extra bytes need not be there.
    const std::string file = Support::Hostile::lazTile(std::uint64_t{1} << 21, 60, 4);
    const TestSupport::LargeAllocations large(std::size_t{1} << 20);
    const std::string problem = problemOf(file);
    EXPECT_NE(problem.find("its 2097152 points of "), std::string::npos) << problem;
    EXPECT_EQ(large.here(), 0u);
}

TEST(LasTile, StopsWhenAsked) {
    std::stop_source stop;
    stop.request_stop();
    Las::Tile tile;
    EXPECT_FALSE(Las::readTile("a.laz", fileOf("format0-chunk50"), Las::ALL_FIELDS, stop.get_token(), tile));
}

/// Nothing here runs on two threads: a sample will do where ThreadSanitizer makes all of it slow.
#ifdef __SANITIZE_THREAD__
constexpr std::size_t STRIDE = 16;
#else
constexpr std::size_t STRIDE = 1;
#endif

/// An error, or as many points as the header declares.
void expectErrorOrAllPoints(const std::string& bytes) {
    Las::Tile tile;
    try {
        Las::readTile("a.laz", bytes, Las::ALL_FIELDS, {}, tile);
        EXPECT_EQ(tile.points.size, tile.header.pointCount);
        EXPECT_EQ(tile.points.x.size(), tile.points.size);
    } catch (const Octree::StoreError& error) {
        EXPECT_EQ(std::string(error.what()).find("a.laz: "), 0U);
    }
}

TEST(LasFile, WithAnyByteChangedIsAnErrorOrHasAllItsPoints) {
    constexpr int FLIPS[] = {0x01, 0x80, 0xff};
    for (const char* name :
         {"format2-one-point", "format3-variable", "format8-variable", "format7-extra2-chunk1"}) {
        SCOPED_TRACE(name);
        const std::string file = fileOf(name);
        // Every change in the header and the records, one of them in the chunks.
        for (std::size_t i = 0; i < file.size(); i += STRIDE) {
            for (std::size_t flip = 0; flip < (i < 500 ? 3 : 1); ++flip) {
                expectErrorOrAllPoints(with(file, i, static_cast<char>(file[i] ^ FLIPS[(i + flip) % 3])));
            }
        }
    }
}

TEST(LasFile, CutAnywhereIsAnErrorOrHasAllItsPoints) {
    for (const char* name : {"format1-extra3-chunk1", "format7-extra2-chunk1", "format6-chunk80"}) {
        SCOPED_TRACE(name);
        const std::string file = fileOf(name);
        std::uint32_t points = 0;
        std::memcpy(&points, file.data() + POINT_OFFSET, sizeof points);
        const std::string withoutTable = with(file, points, std::uint64_t{0});
        for (std::size_t size = 0; size < file.size(); size += STRIDE) {
            expectErrorOrAllPoints(file.substr(0, size));
            expectErrorOrAllPoints(withoutTable.substr(0, size));
        }
    }
}

}  // namespace
