// Files that public encoders made of clouds that are known, and the same clouds uncompressed. data/README.md
// says how the files were made.

#include <core/File.h>
#include <octree/StoreError.h>
#include <octree/las/PointReader.h>
#include <octree/las/Tile.h>
#include <tests/octree/las/RandomCloud.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

using Las::Field;

std::string fileOf(const std::string& name) {
    return Core::readLocalFile(std::filesystem::path(LUMARO_SOURCE_DIR) / "tests/octree/las/data" /
                               (name + ".laz"));
}

Las::Tile read(const std::string& bytes, unsigned fields = Las::ALL_FIELDS) {
    Las::Tile tile;
    EXPECT_TRUE(Las::readTile("cloud.laz", bytes, fields, {}, tile));
    return tile;
}

/// Bit by bit, which tells zeros and NaNs apart.
template <class T>
void expectSameColumn(const char* what, const std::vector<T>& actual, const std::vector<T>& expected) {
    ASSERT_EQ(actual.size(), expected.size()) << what;
    for (std::size_t i = 0; i < actual.size(); ++i) {
        ASSERT_EQ(std::memcmp(&actual[i], &expected[i], sizeof(T)), 0) << what << " of point " << i;
    }
}

void expectSame(const Las::Columns& actual, const Las::Columns& expected) {
    EXPECT_EQ(actual.size, expected.size);
    expectSameColumn("x", actual.x, expected.x);
    expectSameColumn("y", actual.y, expected.y);
    expectSameColumn("z", actual.z, expected.z);
    expectSameColumn("intensity", actual.intensity, expected.intensity);
    expectSameColumn("return number", actual.returnNumber, expected.returnNumber);
    expectSameColumn("return count", actual.returnCount, expected.returnCount);
    expectSameColumn("flags", actual.flags, expected.flags);
    expectSameColumn("classification", actual.classification, expected.classification);
    expectSameColumn("scan angle", actual.scanAngle, expected.scanAngle);
    expectSameColumn("user data", actual.userData, expected.userData);
    expectSameColumn("point source id", actual.pointSourceId, expected.pointSourceId);
    expectSameColumn("GPS time", actual.gpsTime, expected.gpsTime);
    expectSameColumn("red", actual.red, expected.red);
    expectSameColumn("green", actual.green, expected.green);
    expectSameColumn("blue", actual.blue, expected.blue);
    expectSameColumn("near infrared", actual.nearInfrared, expected.nearInfrared);
    expectSameColumn("extra bytes", actual.extraBytes, expected.extraBytes);
}

class LasRoundTrip : public testing::TestWithParam<Support::EncodedCloud> {};

TEST_P(LasRoundTrip, EveryFieldOfEveryPointIsWhatWasEncoded) {
    const Support::EncodedCloud& encoded = GetParam();
    const std::string plain = encoded.cloud.lasFile();
    if (const char* folder = std::getenv("LUMARO_WRITE_LAS")) {
        std::ofstream(std::filesystem::path(folder) / (encoded.name + ".las"), std::ios::binary) << plain;
    }
    const Las::Tile expected = read(plain);
    ASSERT_EQ(expected.points.size, encoded.cloud.count);
    expectSame(read(fileOf(encoded.name)).points, expected.points);
}

TEST_P(LasRoundTrip, FieldsAreTheSameWhenReadOneByOne) {
    const std::string plain = GetParam().cloud.lasFile();
    const std::string compressed = fileOf(GetParam().name);
    for (unsigned field = 1; field < Las::ALL_FIELDS; field *= 2) {
        SCOPED_TRACE("field " + std::to_string(field));
        expectSame(read(compressed, field).points, read(plain, field).points);
    }
}

INSTANTIATE_TEST_SUITE_P(Clouds, LasRoundTrip, testing::ValuesIn(Support::encodedClouds()),
                         [](const auto& cloud) {
                             std::string name = cloud.param.name;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

/// Where the place of the chunk table stands.
std::uint32_t pointOffset(const std::string& file) {
    std::uint32_t offset = 0;
    std::memcpy(&offset, file.data() + 96, sizeof offset);
    return offset;
}

std::uint64_t tableOffset(const std::string& file) {
    std::uint64_t offset = 0;
    std::memcpy(&offset, file.data() + pointOffset(file), sizeof offset);
    return offset;
}

void setTableOffset(std::string& file, std::uint64_t offset) {
    std::memcpy(file.data() + pointOffset(file), &offset, sizeof offset);
}

const Support::EncodedCloud& cloudNamed(const std::string& name) {
    for (const Support::EncodedCloud& cloud : Support::encodedClouds()) {
        if (cloud.name == name) {
            return cloud;
        }
    }
    throw std::invalid_argument(name);
}

TEST(LasChunkTable, MayBePlacedBehindItself) {
    for (const char* name : {"format2-chunk2", "format8-variable"}) {
        std::string file = fileOf(name);
        const std::uint64_t offset = tableOffset(file);
        setTableOffset(file, ~std::uint64_t{0});
        file.append(reinterpret_cast<const char*>(&offset), sizeof offset);
        expectSame(read(file).points, read(cloudNamed(name).cloud.lasFile()).points);
    }
}

TEST(LasChunkTable, IsNotNeededWhereChunksTellTheirPoints) {
    for (const char* name : {"format0-chunk50", "format1-extra3-chunk1", "format2-chunk2", "format7-chunk200",
                             "format8-variable", "format7-extra2-chunk1", "format2-one-point"}) {
        SCOPED_TRACE(name);
        std::string file = fileOf(name);
        file.resize(tableOffset(file));
        for (const std::uint64_t unset : {std::uint64_t{0}, std::uint64_t{pointOffset(file)}}) {
            setTableOffset(file, unset);
            expectSame(read(file).points, read(cloudNamed(name).cloud.lasFile()).points);
        }
    }
    std::string file = fileOf("format3-variable");
    setTableOffset(file, 0);
    Las::Tile tile;
    EXPECT_THROW(Las::readTile("cloud.laz", file, Las::ALL_FIELDS, {}, tile), Octree::StoreError);
}

TEST(LasLayers, ThatAreNotWantedAreNotDecoded) {
    std::string file = fileOf("format7-chunk200");
    // Behind the first record and the number of points: the sizes of x and y, z, classification, flags,
    // intensity; the layers follow in that order.
    const std::size_t sizes = pointOffset(file) + 8 + 36 + 4;
    std::size_t intensities = sizes + 10 * 4;
    for (std::size_t layer = 0; layer < 4; ++layer) {
        std::uint32_t size = 0;
        std::memcpy(&size, file.data() + sizes + 4 * layer, sizeof size);
        intensities += size;
    }
    std::memset(file.data() + intensities, 0xff, 8);
    const auto all = static_cast<unsigned>(Las::ALL_FIELDS & ~static_cast<unsigned>(Field::Intensity));
    expectSame(read(file, all).points, read(cloudNamed("format7-chunk200").cloud.lasFile(), all).points);
    try {
        read(file);
        FAIL() << "the damage went unnoticed";
    } catch (const Octree::StoreError& error) {
        EXPECT_STREQ(error.what(), "cloud.laz: chunk 0: intensities: the compressed bytes are damaged");
    }
}

}  // namespace
