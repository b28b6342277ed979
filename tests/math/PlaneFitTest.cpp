#include <gtest/gtest.h>
#include <math/PlaneFit.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using Math::PlaneFit;
using P = Math::Point<float, 3>;
using Plane = Math::NPlane<float, 3>;

/// Points of the plane z = 0.5 x - 0.25 y + 2, some of them moved off it.
std::vector<P> slope(int count, double outlierShare, float noise = 0) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> place(-10, 10);
    std::vector<P> points;
    for (int i = 0; i < count; ++i) {
        const float x = place(random);
        const float y = place(random);
        const float off = i < count * outlierShare ? 3 + std::abs(place(random)) : noise * place(random) / 10;
        points.emplace_back(x, y, 0.5f * x - 0.25f * y + 2 + off);
    }
    return points;
}

/// Angle between the normals, whichever way they point.
double angle(const Plane& a, const Plane& b) {
    return std::acos(std::min(1.0, std::abs(static_cast<double>(a.normal.dot(b.normal))) /
                                       static_cast<double>(a.normal.length() * b.normal.length())));
}

const Plane kSlope(P(-0.5f, 0.25f, 1), -2);

TEST(PlaneFit, FindsThePlaneAmongOutliers) {
    const std::vector<P> points = slope(1000, 0.3, 0.01f);
    const auto robust = PlaneFit::robust(points, 0.05);
    ASSERT_TRUE(robust);
    EXPECT_GT(robust->inliers.size(), 600u);
    EXPECT_LT(angle(robust->plane, kSlope), 0.02);
    std::vector<P> inliers;
    for (const size_t i : robust->inliers) {
        EXPECT_GE(i, 300u);
        inliers.push_back(points[i]);
    }
    const auto fitted = PlaneFit::leastSquares(inliers);
    ASSERT_TRUE(fitted);
    EXPECT_LT(angle(*fitted, kSlope), 0.001);
    EXPECT_NEAR(std::abs(fitted->signedDistance(P(0, 0, 2))), 0, 0.002);

    const auto again = PlaneFit::robust(points, 0.05);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->plane, robust->plane);
    EXPECT_EQ(again->inliers, robust->inliers);
}

TEST(PlaneFit, ExactPlanesFarFromTheOriginKeepTheirPlace) {
    std::vector<P> points;
    for (int i = 0; i < 100; ++i) {
        points.emplace_back(50000.0f + static_cast<float>(i % 10), 80000.0f + static_cast<float>(i / 10),
                            250.0f);
    }
    const auto plane = PlaneFit::leastSquares(points);
    ASSERT_TRUE(plane);
    EXPECT_NEAR(std::abs(plane->normal.z()), 1, 1e-6);
    EXPECT_NEAR(plane->signedDistance(P(50005, 80005, 250)), 0, 0.01);
    ASSERT_TRUE(PlaneFit::robust(points, 1e-3));
    EXPECT_EQ(PlaneFit::robust(points, 1e-3)->inliers.size(), 100u);
}

TEST(PlaneFit, PointsWithoutAPlaneGiveNone) {
    const std::vector<P> two{P(0, 0, 0), P(1, 0, 0)};
    EXPECT_FALSE(PlaneFit::robust(two, 1));
    EXPECT_FALSE(PlaneFit::leastSquares(two));
    EXPECT_FALSE(PlaneFit::robust(std::vector<P>(50, P(3, 4, 5)), 1));
    std::vector<P> line;
    for (int i = 0; i < 50; ++i) {
        line.emplace_back(static_cast<float>(i), 0, 0);
    }
    EXPECT_FALSE(PlaneFit::robust(line, 1));
    EXPECT_FALSE(PlaneFit::robust(slope(100, 0), 0)) << "nothing is closer than 0";
    const auto through = PlaneFit::leastSquares(line);
    ASSERT_TRUE(through);
    EXPECT_NEAR(through->normal.length(), 1, 1e-6);
    EXPECT_NEAR(through->signedDistance(P(17, 0, 0)), 0, 1e-4);
}

}  // namespace
