#include <render/pointcloud/filters/BoxFilter.h>
#include <render/pointcloud/filters/ComplementFilter.h>
#include <render/pointcloud/filters/ConvexPolytopeFilter.h>
#include <render/pointcloud/filters/IntersectionFilter.h>
#include <render/pointcloud/filters/OrientedBoxFilter.h>
#include <render/pointcloud/filters/PolygonPrismFilter.h>
#include <render/pointcloud/filters/SphereFilter.h>
#include <render/pointcloud/filters/UnionFilter.h>

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

namespace {

using Octree::BoxTestResult;
using Place = Math::Point<double, 3>;
using Position = Math::Point<float, 3>;
using Box = Math::NBoundingBox<float, 3>;
using Ring = Render::PolygonPrismFilter::Ring;

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

/// A comb, a diamond in it as a hole and a far triangle.
const std::vector<Ring> COMB{{{-3, -3}, {3, -3}, {3, 3}, {2, 3}, {1.5, -1}, {1, 3}, {0, 3}, {-3, 2.5}},
                             {{-1, -1}, {0, 0}, {-1, 1}, {-2, 0}, {-1, -1}},
                             {{4, 4}, {4.5, 4}, {4, 4.5}}};

Eigen::Matrix3d turned() {
    return Eigen::AngleAxisd(0.7, Eigen::Vector3d(1, 2, 3).normalized()).toRotationMatrix();
}

std::shared_ptr<Render::IFilter> sphere(double x, double radius) {
    return std::make_shared<Render::SphereFilter>(Place(x, 0, 0), radius);
}

std::shared_ptr<Render::IFilter> tetrahedron() {
    Math::ConvexPolytope<double, 3> polytope;
    for (const Place& normal : {Place(1, 1, 1), Place(-1, -1, 1), Place(-1, 1, -1), Place(1, -1, -1)}) {
        polytope.add(Math::HalfSpace<double, 3>({normal, 1.7}));
    }
    return std::make_shared<Render::ConvexPolytopeFilter>(polytope);
}

/// How box tests compare with samples of the boxes.
struct Count {
    size_t mixed = 0, uniform = 0, loose = 0;
};

/// Boxes of all sizes around the origin, many with faces where borders of the filters are.
Box randomBox(std::mt19937& random) {
    std::uniform_real_distribution<float> place(-5.0f, 5.0f);
    const float size = std::ldexp(1.0f, -static_cast<int>(random() % 7)) * 4.0f;
    Box box;
    for (int axis = 0; axis < 3; ++axis) {
        const float low = random() % 2 == 0 ? place(random) : std::round(place(random) * 2.0f) / 2.0f;
        box.min[axis] = low;
        box.max[axis] = low + (random() % 8 == 0 ? 0.0f : size);
    }
    return box;
}

Position sample(const Box& box, std::mt19937& random) {
    std::uniform_real_distribution<float> share(0.0f, 1.0f);
    Position p;
    for (int axis = 0; axis < 3; ++axis) {
        const auto where = random() % 6;
        const float inner = box.min[axis] + share(random) * (box.max[axis] - box.min[axis]);
        p[axis] = where == 0 ? box.min[axis] : where == 1 ? box.max[axis] : std::min(inner, box.max[axis]);
    }
    return p;
}

Count compare(Render::IFilter& filter, const std::string& name) {
    std::mt19937 random(7);
    Count count;
    for (int i = 0; i < 4000; ++i) {
        const Box box = randomBox(random);
        const BoxTestResult result = filter.testBox(box);
        size_t accepted = 0;
        constexpr size_t SAMPLES = 300;
        for (size_t n = 0; n < SAMPLES; ++n) {
            accepted += filter.testPosition(sample(box, random)) ? 1U : 0U;
        }
        if (accepted > 0 && accepted < SAMPLES) {
            ++count.mixed;
            EXPECT_EQ(result, BoxTestResult::Intersecting) << name << " box " << i;
            continue;
        }
        ++count.uniform;
        count.loose += result == BoxTestResult::Intersecting ? 1U : 0U;
        EXPECT_NE(result, accepted > 0 ? BoxTestResult::Outside : BoxTestResult::Inside) << name << ' ' << i;
    }
    EXPECT_GT(count.mixed, 100U) << name;
    return count;
}

}  // namespace

TEST(Filters, BoxTestsAreNeverWrongAndSeldomUndecided) {
    const Math::NBoundingBox<double, 3> box({-1.5, -2.0, -INF}, {2.0, 2.5, 1.0});
    const struct {
        std::string name;
        std::shared_ptr<Render::IFilter> filter;
        size_t undecided;  ///< Boxes out of 4000 whose samples all agree; some do have both kinds of points.
    } cases[] = {
        {"box", std::make_shared<Render::BoxFilter>(box), 40},
        {"oriented box",
         std::make_shared<Render::OrientedBoxFilter>(Place(0.3, 0, 0), turned(), Place(2, 1, 0.7)), 60},
        {"sphere", sphere(0.5, 2.5), 60},
        {"polytope", tetrahedron(), 280},
        {"prism", std::make_shared<Render::PolygonPrismFilter>(COMB, -2.0, 2.5), 160},
        {"complement", std::make_shared<Render::ComplementFilter>(sphere(0.5, 2.5)), 60},
        {"intersection",
         std::make_shared<Render::IntersectionFilter>(std::vector{sphere(0, 2.5), sphere(2, 2)}), 100},
        {"union", std::make_shared<Render::UnionFilter>(std::vector{sphere(-2, 2), tetrahedron()}), 280}};
    for (const auto& [name, filter, undecided] : cases) {
        const Count count = compare(*filter, name);
        EXPECT_LE(count.loose, undecided) << name;
        RecordProperty(name, std::to_string(count.loose) + " of " + std::to_string(count.uniform));
    }
}

TEST(Filters, BordersBelongToConvexRegions) {
    Render::BoxFilter box({{-1, -2, -3}, {1, 2, 3}});
    EXPECT_TRUE(box.testPosition({1, -2, 3}));
    EXPECT_FALSE(box.testPosition({std::nextafter(1.0f, 2.0f), -2, 3}));
    Render::SphereFilter ball({1, 0, 0}, 5);
    EXPECT_TRUE(ball.testPosition({4, 4, 0}));
    EXPECT_FALSE(ball.testPosition({4, std::nextafter(4.0f, 5.0f), 0}));
    Render::OrientedBoxFilter slab({0, 0, 0}, Eigen::Matrix3d::Identity(), {1, 2, 0});
    EXPECT_TRUE(slab.testPosition({-1, 2, 0}));
    EXPECT_FALSE(slab.testPosition({-1, 2, 1e-30f}));
    const float nan = std::numeric_limits<float>::quiet_NaN();
    Render::PolygonPrismFilter prism(COMB);
    for (Render::IFilter* filter : std::initializer_list<Render::IFilter*>{&box, &ball, &slab, &prism}) {
        EXPECT_FALSE(filter->testPosition({nan, -2.5f, 0}));
        EXPECT_FALSE(filter->testPosition({-2.5f, nan, 0}));
    }
}

TEST(Filters, PolygonsThatTileAnAreaShareItWithoutGapOrOverlap) {
    // Triangles around an odd centre, of alternating direction.
    std::mt19937 random(3);
    std::vector<Math::Point<double, 2>> rim;
    for (int i = 0; i < 13; ++i) {
        rim.emplace_back(3.0 * std::cos(i * 0.5), 3.0 * std::sin(i * 0.5));
    }
    const Math::Point<double, 2> middle(0.1, 1.0 / 3.0);
    std::vector<std::unique_ptr<Render::PolygonPrismFilter>> tiles;
    for (size_t i = 0; i < rim.size(); ++i) {
        Ring ring{middle, rim[i], rim[(i + 1) % rim.size()]};
        if (i % 2 == 0) {
            std::reverse(ring.begin(), ring.end());
        }
        tiles.push_back(std::make_unique<Render::PolygonPrismFilter>(std::vector<Ring>{ring}));
    }
    const auto owners = [&](double x, double y) {
        return std::count_if(tiles.begin(), tiles.end(), [&](const auto& tile) {
            return tile->contains({x, y, 0.0});
        });
    };
    std::uniform_real_distribution<double> share(0.0, 0.9);
    for (int i = 0; i < 20000; ++i) {
        const Math::Point<double, 2> p = middle + (rim[random() % rim.size()] - middle) * share(random);
        EXPECT_EQ(owners(p.x(), p.y()), 1);
    }
    EXPECT_EQ(owners(middle.x(), middle.y()), 1);
    EXPECT_EQ(owners(3.1, 0.0), 0);
}

TEST(Filters, PolygonsThatShareAnEdgeShareItToTheLastBit) {
    std::mt19937 random(9);
    std::uniform_real_distribution<double> place(-1.0, 1.0);
    for (int i = 0; i < 20000; ++i) {
        const double scale = std::ldexp(1.0, -static_cast<int>(random() % 30));
        const Math::Point<double, 2> low(place(random) * scale, place(random) - 1.0);
        const Math::Point<double, 2> high(place(random) * scale, place(random) + 1.0);
        // Across an edge that is the outmost of both, strips to the left and right.
        const Render::PolygonPrismFilter left({{low, high, {-3, high.y()}, {-3, low.y()}}});
        const Render::PolygonPrismFilter right({{high, low, {3, low.y()}, {3, high.y()}}});
        const bool isHigh = random() % 2 == 0;
        Place p(isHigh ? high.x() : low.x(), isHigh ? high.y() : low.y(), 0.0);
        for (auto steps = random() % 3 + 1; isHigh && steps > 0; --steps) {
            p.y() = std::nextafter(p.y(), -INF);
        }
        for (auto steps = random() % 5, side = random() % 2; steps > 0; --steps) {
            p.x() = std::nextafter(p.x(), side == 0 ? INF : -INF);
        }
        ASSERT_NE(left.contains(p), right.contains(p)) << i;
        for (const auto* const strip : {&left, &right}) {
            ASSERT_NE(strip->classify({p, p}),
                      strip->contains(p) ? BoxTestResult::Outside : BoxTestResult::Inside)
                << i;
        }
    }
}

// Its inner corners lie at this distance from the middle, more or less.
void comparePolygonOfManyCorners(double inner) {
    Ring ring;
    for (int i = 0; i < 5000; ++i) {
        const double angle = i * 6.283185307179586 / 5000;
        const double radius = i % 2 == 0 ? 3.0 : inner + std::sin(angle * 9);
        ring.emplace_back(radius * std::cos(angle), radius * std::sin(angle));
    }
    const Render::PolygonPrismFilter prism(std::vector<Ring>{ring}, -1.0, 1.0);
    std::mt19937 random(11);
    std::uniform_real_distribution<double> place(-3.2, 3.2);
    size_t inside = 0;
    for (int i = 0; i < 2000; ++i) {
        const double x = place(random);
        const double y = place(random);
        bool expected = false;
        for (size_t a = 0; a < ring.size(); ++a) {
            const auto& p = ring[a];
            const auto& q = ring[(a + 1) % ring.size()];
            if ((p.y() <= y) != (q.y() <= y)) {
                expected ^= x < p.x() + (y - p.y()) / (q.y() - p.y()) * (q.x() - p.x());
            }
        }
        EXPECT_EQ(prism.contains({x, y, 1.0}), expected);
        inside += expected ? 1U : 0U;
    }
    EXPECT_GT(inside, 300U);
    EXPECT_FALSE(prism.contains({0.0, 0.0, 1.1}));
}

TEST(Filters, APolygonOfManyCornersIsThatOfItsPlainCount) {
    comparePolygonOfManyCorners(2.0);
    comparePolygonOfManyCorners(1.05);  // edges across much of the height
}

TEST(Filters, RefuseWhatIsNoRegion) {
    using Render::PolygonPrismFilter;
    const Eigen::Matrix3d axes = Eigen::Matrix3d::Identity();
    const Ring triangle{{0, 0}, {1, 0}, {0, 1}};
    EXPECT_THROW(Render::BoxFilter({{0, 0, 1}, {1, 1, 0}}), std::invalid_argument);
    EXPECT_THROW(Render::BoxFilter({{0, NOT_A_NUMBER, 0}, {1, 1, 1}}), std::invalid_argument);
    EXPECT_THROW(Render::SphereFilter({0, 0, 0}, -1), std::invalid_argument);
    EXPECT_THROW(Render::SphereFilter({0, 0, NOT_A_NUMBER}, 1), std::invalid_argument);
    EXPECT_THROW(Render::SphereFilter({0, 0, 0}, NOT_A_NUMBER), std::invalid_argument);
    EXPECT_THROW(Render::OrientedBoxFilter({0, 0, 0}, axes * 1.1, {1, 1, 1}), std::invalid_argument);
    EXPECT_THROW(Render::OrientedBoxFilter({0, 0, 0}, axes * NOT_A_NUMBER, {1, 1, 1}), std::invalid_argument);
    EXPECT_THROW(Render::OrientedBoxFilter({0, 0, 0}, axes, {1, -1, 1}), std::invalid_argument);
    EXPECT_THROW(Render::OrientedBoxFilter({0, INF, 0}, axes, {1, 1, 1}), std::invalid_argument);
    EXPECT_THROW(PolygonPrismFilter({}), std::invalid_argument);
    EXPECT_THROW(PolygonPrismFilter({{{0, 0}, {1, 0}}}), std::invalid_argument);
    EXPECT_THROW(PolygonPrismFilter({{{0, 0}, {1, NOT_A_NUMBER}, {0, 1}}}), std::invalid_argument);
    EXPECT_THROW(PolygonPrismFilter({triangle}, 1.0, 0.0), std::invalid_argument);
    EXPECT_THROW(PolygonPrismFilter({triangle}, NOT_A_NUMBER, 0.0), std::invalid_argument);
    Math::ConvexPolytope<double, 3> polytope;
    polytope.add(Math::HalfSpace<double, 3>({Place(0, 0, 1), NOT_A_NUMBER}));
    EXPECT_THROW(Render::ConvexPolytopeFilter{polytope}, std::invalid_argument);
    EXPECT_THROW(Render::ComplementFilter(nullptr), std::invalid_argument);
    EXPECT_THROW(Render::IntersectionFilter({nullptr}), std::invalid_argument);
    EXPECT_THROW(Render::UnionFilter({sphere(0, 1), nullptr}), std::invalid_argument);
}
