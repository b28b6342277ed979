#include <octree/Octree.h>

#include <gtest/gtest.h>
#include <tests/octree/TruthSummary.h>
#include <tests/support/RealData.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <tuple>

using Octree::Attribute;
using Octree::NodePointData;
using Octree::OctreeNodeId;
using Support::TruthSummary;
using TestSupport::realData;

namespace {

using Json = nlohmann::json;

bool areInside(const NodePointData& data, const Math::NBoundingBox<float, 3>& bounds) {
    const auto isInside = [&](const auto& position) {
        return bounds.contains(position.template cast<float>());
    };
    return std::all_of(data.positions().begin(), data.positions().end(), isInside);
}

std::string nameOf(const testing::TestParamInfo<const char*>& store) {
    std::string name = store.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

class StoreTruth : public testing::TestWithParam<const char*> {};

TEST_P(StoreTruth, EveryNodeIsAsAnIndependentReaderFoundIt) {
    const std::string name = GetParam();
    std::ifstream file(realData() / "truth" / ("potree-" + name + ".json"));
    if (!file) {
        GTEST_SKIP() << "the real stores are not here: " << realData();
    }
    const Json truth = Json::parse(file);
    // A fraction of what stores may take otherwise.
    const Octree::Octree octree(Octree::Location::fromPath(realData() / "potree" / name), 1.0, {},
                                {.memory = std::uint64_t{64} << 20});
    EXPECT_EQ(octree.encoding(), truth["encoding"]);
    std::map<std::string, const Json*> listed;
    for (const Json& node : truth["nodes"]) {
        listed[node["name"]] = &node;
    }

    Math::Point<double, 3> tolerance;
    for (int axis = 0; axis < 3; ++axis) {
        tolerance[axis] = truth["scale"][static_cast<std::size_t>(axis)].get<double>() * 1e-3;
    }
    const Json& maximum = truth["totals"].value("maxColourValue", Json());
    const double colorUnit = maximum.is_number() && maximum > 255 ? 256.0 : 1.0;
    TruthSummary total(octree.referencePosition());
    std::size_t nodeCount = 0, checked = 0;
    std::vector<OctreeNodeId> pending{OctreeNodeId()};
    NodePointData data;
    while (!pending.empty()) {
        const OctreeNodeId id = pending.back();
        pending.pop_back();
        const Octree::NodeChildren children = octree.children(id);
        pending.insert(pending.end(), children.begin(), children.end());
        ++nodeCount;
        ASSERT_TRUE(octree.getNodePointData(id, data));
        EXPECT_EQ(octree.pointCount(id), data.size());
        total.add(data);
        EXPECT_TRUE(areInside(data, octree.pointBounds(id))) << id.name();
        if (const auto found = listed.find(id.name()); found != listed.end()) {
            SCOPED_TRACE(id.name());
            TruthSummary summary(octree.referencePosition());
            summary.add(data);
            summary.expectSame(*found->second, colorUnit, tolerance);
            ++checked;
        }
    }
    EXPECT_EQ(checked, listed.size());
    EXPECT_EQ(nodeCount, truth["nodeCount"]);
    EXPECT_EQ(total.count, octree.totalPointCount());
    total.expectSame(truth["totals"], colorUnit, tolerance);
    const Math::NBoundingBox<float, 3> tight = octree.boundingBox();
    const Math::Point<double, 3> reference = octree.referencePosition();
    EXPECT_TRUE(tight.contains((total.box.min - reference).cast<float>()));
    EXPECT_TRUE(tight.contains((total.box.max - reference).cast<float>()));
}

INSTANTIATE_TEST_SUITE_P(Brotli, StoreTruth,
                         testing::Values("autzen-10m-brotli", "autzen-stadium-brotli", "autzen-trim-brotli",
                                         "autzen-trim-pf7-brotli", "colour-1k-brotli",
                                         "colour-1k-rgbonly-brotli", "dbh-extra-brotli", "lion-brotli",
                                         "lone-star-brotli", "megaplot-brotli"),
                         nameOf);

INSTANTIATE_TEST_SUITE_P(Records, StoreTruth,
                         testing::Values("autzen-trim-default", "autzen-trim-pf7-uncompressed",
                                         "autzen-trim-uncompressed", "colour-1k-uncompressed",
                                         "dbh-extra-uncompressed", "lion-uncompressed",
                                         "lone-star-uncompressed"),
                         nameOf);

using PointTuple = std::tuple<std::int32_t, std::int32_t, std::int32_t, unsigned, unsigned, unsigned>;

/// In steps of the store's grid from the minimum of its cube, sorted.
std::vector<PointTuple> pointsOf(const std::filesystem::path& folder, std::int32_t stepsTooHigh) {
    std::ifstream file(folder / "metadata.json");
    const Json metadata = Json::parse(file);
    const Octree::Octree octree(Octree::Location::fromPath(folder));
    std::vector<PointTuple> points;
    std::vector<OctreeNodeId> pending{OctreeNodeId()};
    while (!pending.empty()) {
        const OctreeNodeId id = pending.back();
        pending.pop_back();
        const Octree::NodeChildren children = octree.children(id);
        pending.insert(pending.end(), children.begin(), children.end());
        NodePointData data;
        octree.getNodePointData(id, data);
        for (std::size_t i = 0; i < data.size(); ++i) {
            std::array<std::int32_t, 3> steps{};
            for (std::size_t axis = 0; axis < 3; ++axis) {
                const double fromMinimum = data.position(i)[static_cast<int>(axis)] +
                                           octree.referencePosition()[static_cast<int>(axis)] -
                                           metadata["offset"][axis].get<double>();
                steps[axis] = static_cast<std::int32_t>(
                                  std::lround(fromMinimum / metadata["scale"][axis].get<double>())) -
                              stepsTooHigh;
            }
            points.emplace_back(steps[0], steps[1], steps[2],
                                data.has(Attribute::Color) ? data.color(i).packed() : 0u, data.intensity(i),
                                data.classification(i));
        }
    }
    std::sort(points.begin(), points.end());
    return points;
}

class StoreEncodings : public testing::TestWithParam<const char*> {};

TEST_P(StoreEncodings, HoldTheSamePoints) {
    const auto folder = realData() / "potree";
    const std::string name = GetParam();
    if (!std::filesystem::exists(folder)) {
        GTEST_SKIP() << "the real stores are not here: " << realData();
    }
    const std::vector<PointTuple> plain = pointsOf(folder / (name + "-uncompressed"), 0);
    // Converters write Brotli stores one step too high on each axis.
    const std::vector<PointTuple> brotli = pointsOf(folder / (name + "-brotli"), 1);
    EXPECT_FALSE(plain.empty());
    EXPECT_TRUE(plain == brotli);
}

INSTANTIATE_TEST_SUITE_P(All, StoreEncodings,
                         testing::Values("autzen-trim", "autzen-trim-pf7", "colour-1k", "dbh-extra", "lion",
                                         "lone-star"),
                         nameOf);

TEST(StoreTruth, AnInfinityThatIsNotJsonIsAClearError) {
    const auto folder = realData() / "potree" / "nan-gps-invalid-json-brotli";
    if (!std::filesystem::exists(folder)) {
        GTEST_SKIP() << "the real stores are not here: " << realData();
    }
    try {
        Octree::Octree octree{PoTree::FileSystemLocation(folder)};
        FAIL() << "opened";
    } catch (const std::runtime_error& error) {
        const std::string text = error.what();
        EXPECT_NE(text.find("metadata.json: is not JSON"), std::string::npos) << text;
        EXPECT_NE(text.find("line 117"), std::string::npos) << text;
    }
}

}  // namespace
