#include <core/File.h>
#include <octree/StoreError.h>
#include <octree/las/Tile.h>

#include <gtest/gtest.h>
#include <tests/support/RealData.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;
using TestSupport::realData;

double meanOf(const std::vector<std::uint16_t>& column) {
    double sum = 0.0;
    for (const std::uint16_t value : column) {
        sum += value;
    }
    return sum / static_cast<double>(column.size());
}

void expectRange(const std::vector<std::int32_t>& column, const Las::Header& header, int axis,
                 const Json& truth) {
    const auto [low, high] = std::minmax_element(column.begin(), column.end());
    const double tolerance = header.scale[axis] * 1e-3;
    const auto index = static_cast<std::size_t>(axis);
    EXPECT_NEAR(*low * header.scale[axis] + header.offset[axis], truth["min"][index].get<double>(),
                tolerance);
    EXPECT_NEAR(*high * header.scale[axis] + header.offset[axis], truth["max"][index].get<double>(),
                tolerance);
}

void expectSame(const Las::Tile& tile, const Json& truth) {
    EXPECT_EQ(tile.header.pointFormat, truth["lasPointFormat"]);
    EXPECT_EQ(tile.header.recordLength, truth["lasRecordLength"]);
    ASSERT_EQ(tile.points.size, truth["numPoints"]);
    expectRange(tile.points.x, tile.header, 0, truth);
    expectRange(tile.points.y, tile.header, 1, truth);
    expectRange(tile.points.z, tile.header, 2, truth);
    if (!truth["meanRGB"].is_null()) {
        EXPECT_NEAR(meanOf(tile.points.red), truth["meanRGB"][0].get<double>(), 1e-6);
        EXPECT_NEAR(meanOf(tile.points.green), truth["meanRGB"][1].get<double>(), 1e-6);
        EXPECT_NEAR(meanOf(tile.points.blue), truth["meanRGB"][2].get<double>(), 1e-6);
    }
    if (!truth["meanIntensity"].is_null()) {
        EXPECT_NEAR(meanOf(tile.points.intensity), truth["meanIntensity"].get<double>(), 1e-6);
    }
    std::map<std::string, std::size_t> classes;
    for (const std::uint8_t value : tile.points.classification) {
        ++classes[std::to_string(value)];
    }
    if (!truth["classification"].is_null()) {
        EXPECT_EQ(classes, truth["classification"].get<decltype(classes)>());
    }
}

class LasTruth : public testing::TestWithParam<const char*> {};

TEST_P(LasTruth, EveryTileIsAsAnIndependentReaderFoundIt) {
    const std::string store = GetParam();
    std::ifstream file(realData() / "truth" / ("ept-" + store + ".json"));
    if (!file) {
        GTEST_SKIP() << "the real stores are not here: " << realData();
    }
    const Json truth = Json::parse(file);
    std::size_t unreadable = 0;
    for (const Json& node : truth["nodes"]) {
        const std::string name = node["name"].get<std::string>() + ".laz";
        SCOPED_TRACE(name);
        const std::string bytes = Core::readLocalFile(realData() / "ept" / store / "ept-data" / name);
        Las::Tile tile;
        if (node.contains("lasPointFormat")) {
            ASSERT_TRUE(Las::readTile(name, bytes, Las::ALL_FIELDS, {}, tile));
            expectSame(tile, node);
        } else {
            EXPECT_THROW(Las::readTile(name, bytes, Las::ALL_FIELDS, {}, tile), Octree::StoreError);
            ++unreadable;
        }
    }
    EXPECT_EQ(unreadable, store == "lone-star-invalid-tile" ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Laszip, LasTruth,
                         testing::Values("lion-laszip", "lion-laszip14", "lone-star-laszip",
                                         "lone-star-invalid-tile", "bad-pointcount-laszip"),
                         [](const auto& store) {
                             std::string name = store.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

}  // namespace
