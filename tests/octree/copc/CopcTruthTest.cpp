#include <octree/Octree.h>
#include <tests/support/RealData.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

using Octree::NodePointData;
using Octree::OctreeNodeId;
using TestSupport::realData;

namespace {

/// Steps of the grid, colour, intensity, class, source.
using Point = std::array<std::int64_t, 9>;

std::vector<Point> pointsOf(const std::filesystem::path& path, double scale) {
    const Octree::Octree octree(Octree::Location::fromPath(path), 1.0, {},
                                {.memory = std::uint64_t{64} << 20});
    std::vector<Point> points;
    std::vector<OctreeNodeId> pending{OctreeNodeId()};
    while (!pending.empty()) {
        const OctreeNodeId id = pending.back();
        pending.pop_back();
        const auto children = octree.children(id);
        pending.insert(pending.end(), children.begin(), children.end());
        NodePointData data;
        octree.getNodePointData(id, data);
        for (std::size_t i = 0; i < data.size(); ++i) {
            const Math::Point<double, 3> place = data.position(i) + octree.referencePosition();
            const Math::Color color = data.has(Octree::Attribute::Color) ? data.color(i) : Math::Color();
            points.push_back({std::llround(place[0] / scale), std::llround(place[1] / scale),
                              std::llround(place[2] / scale), color.r(), color.g(), color.b(),
                              data.intensity(i), data.classification(i), data.scanIndex(i)});
        }
    }
    std::sort(points.begin(), points.end());
    return points;
}

}  // namespace

TEST(CopcTruth, HasThePointsOfTheSameCloudInEntwine) {
    const std::filesystem::path file = realData() / "copc" / "lone-star.copc.laz";
    if (!std::filesystem::exists(file)) {
        GTEST_SKIP() << "the real file is not here: " << file;
    }
    const Octree::Octree octree(Octree::Location::fromPath(file));
    const double scale = octree.positionGrid()->scale(0);
    const std::vector<Point> points = pointsOf(file, scale);
    EXPECT_EQ(points.size(), octree.totalPointCount());
    EXPECT_TRUE(points == pointsOf(realData() / "ept" / "lone-star-laszip", scale));
}
