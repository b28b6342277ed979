#include <math/TriangleMesh.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <numbers>
#include <random>
#include <thread>

namespace {

using Math::TriangleMesh;
using P = Math::Point<float, 3>;
using Triangles = std::vector<TriangleMesh<float>::Triangle>;
using L = long double;
using Exact = Math::Point<L, 3>;

constexpr float NOTHING = std::numeric_limits<float>::quiet_NaN();
constexpr float ENDLESS = std::numeric_limits<float>::infinity();

class TriangleIndexTest : public testing::Test {
protected:
    float any(float low, float high) { return std::uniform_real_distribution<float>(low, high)(random); }
    P anyPoint(float reach) { return P(any(-reach, reach), any(-reach, reach), any(-reach, reach)); }

    /// Unconnected triangles of up to `size` along each axis around points of a cube of 20.
    TriangleMesh<float> soup(size_t count, float size) {
        std::vector<P> vertices;
        for (size_t i = 0; i < count; ++i) {
            const P center = anyPoint(10);
            for (int corner = 0; corner < 3; ++corner) {
                vertices.push_back(center + anyPoint(size / 2));
            }
        }
        return {vertices, threeByThree(vertices.size())};
    }

    /// The corners of triangle i are the vertices 3i, 3i + 1, 3i + 2.
    static Triangles threeByThree(size_t vertices) {
        Triangles triangles;
        for (uint32_t i = 0; i + 2 < vertices; i += 3) {
            triangles.push_back({i, i + 1, i + 2});
        }
        return triangles;
    }

    /// Closed, its normals outwards.
    static TriangleMesh<float> sphere(const P& center, float radius) {
        constexpr uint32_t COLUMNS = 12;
        constexpr uint32_t ROWS = 8;
        std::vector<P> vertices;
        Triangles triangles;
        for (uint32_t row = 0; row <= ROWS; ++row) {
            for (uint32_t column = 0; column < COLUMNS; ++column) {
                const float theta = std::numbers::pi_v<float> * float(row) / float(ROWS);
                const float phi = 2 * std::numbers::pi_v<float> * float(column) / float(COLUMNS);
                const P direction(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi),
                                  std::cos(theta));
                vertices.push_back(center + direction * radius);
                const uint32_t next = row * COLUMNS + (column + 1) % COLUMNS;
                if (row < ROWS) {
                    const uint32_t here = row * COLUMNS + column;
                    triangles.push_back({here, here + COLUMNS, next + COLUMNS});
                    triangles.push_back({here, next + COLUMNS, next});
                }
            }
        }
        return {vertices, triangles};
    }

    std::mt19937 random{11};
};

L exactOnEdge(const Exact& a, const Exact& b) {
    const L whole = (b - a).squaredLength();
    const L along = whole > 0 ? std::clamp(-(b - a).dot(a) / whole, L(0), L(1)) : L(0);
    return (a + (b - a) * along).squaredLength();
}

/// Squared distance from the origin, and the side of the triangle it lies on: 0 where that is a matter of
/// rounding.
std::pair<L, int> exactly(const Exact& a, const Exact& b, const Exact& c) {
    const Exact normal = (b - a).cross(c - a);
    const L height = -normal.dot(a);
    const L noise = 1e-12L * (b - a).length() * (c - a).length() * a.length();
    const int side = std::abs(height) <= noise ? 0 : height < 0 ? -1 : 1;
    const auto within = [&](const Exact& from, const Exact& to) {
        return normal.dot((to - from).cross(-from)) >= 0;
    };
    if (normal.squaredLength() > 0 && within(a, b) && within(b, c) && within(c, a)) {
        return {height * height / normal.squaredLength(), side};
    }
    return {std::min({exactOnEdge(a, b), exactOnEdge(b, c), exactOnEdge(c, a)}), side};
}

/// Compares with the exact distance to every triangle. Returns whether the side was beyond doubt as well.
template <class T>
bool agreesWithEveryTriangle(const TriangleMesh<T>& mesh, const Math::Point<T, 3>& p) {
    std::vector<std::pair<L, int>> all;
    for (const auto& triangle : mesh.triangles()) {
        const auto corner = [&](size_t i) {
            return mesh.vertices()[triangle[i]].template cast<L>() - p.template cast<L>();
        };
        all.push_back(exactly(corner(0), corner(1), corner(2)));
    }
    const L distance = std::sqrt(std::min_element(all.begin(), all.end())->first);
    const auto nearest = mesh.nearestPoint(p);
    const L measured = mesh.signedDistance(p);
    EXPECT_NEAR(double(std::abs(measured) / distance), 1.0, 1e-6) << double(distance);
    EXPECT_EQ(mesh.distance(p), T(std::abs(measured)));
    EXPECT_NEAR(double(std::sqrt(L(nearest.squaredDistance)) / distance), 1.0, 1e-6);
    EXPECT_NEAR(double(std::sqrt(all[nearest.triangle].first) / distance), 1.0, 1e-6);
    const L rounding = 4 * std::numeric_limits<T>::epsilon() * (p.template cast<L>().length() + distance);
    EXPECT_NEAR(double(Math::distance(nearest.point, p)), double(distance), double(rounding));

    bool in = false;
    bool out = false;
    bool doubtful = false;
    for (const auto& [squared, side] : all) {
        if (std::sqrt(squared) <= distance * (1 + 1e-9L)) {
            in = in || side < 0;
            out = out || side > 0;
            doubtful = doubtful || side == 0;
        }
    }
    if (doubtful || in == out) {
        return false;
    }
    EXPECT_EQ(std::signbit(measured), in) << double(distance);
    return true;
}

TEST_F(TriangleIndexTest, DistanceAndSideAreThoseOfTheNearestOfAllTriangles) {
    std::vector<P> needles;
    std::vector<P> lines;
    std::vector<P> points;
    for (int i = 0; i < 100; ++i) {
        const P from = anyPoint(10);
        const P along = anyPoint(10);
        needles.insert(needles.end(), {from, from + along, from + along * any(0, 1) + anyPoint(1e-5f)});
        lines.insert(lines.end(), {from, from + along, i % 2 == 0 ? from : from + along * any(-1, 2)});
        points.insert(points.end(), 3, from);
    }
    Eigen::Matrix4f toTheField = Eigen::Matrix4f::Identity();
    toTheField.col(3) << 5e5f, -4e5f, 120.0f, 1.0f;
    const std::vector<TriangleMesh<float>> meshes = {soup(100, 20),
                                                     soup(100, 0.5f),
                                                     soup(1, 5),
                                                     sphere(P(), 8),
                                                     sphere(P(1, 2, 3), 1e-3f),
                                                     {needles, threeByThree(300)},
                                                     {lines, threeByThree(300)},
                                                     {points, threeByThree(300)},
                                                     soup(100, 5).transformed(toTheField)};
    for (size_t i = 0; i < meshes.size(); ++i) {
        SCOPED_TRACE(i);
        const auto box = meshes[i].boundingBox();
        int sides = 0;
        for (int query = 0; query < 300; ++query) {
            const P center =
                query % 2 == 0 ? box.center() : meshes[i].vertices()[random() % meshes[i].vertices().size()];
            const P p = center + anyPoint(query % 2 == 0 ? box.size().length() : 0.01f * box.size().length());
            sides += agreesWithEveryTriangle(meshes[i], p) ? 1 : 0;
        }
        const bool flat = i == 6 || i == 7;
        EXPECT_GE(sides, flat ? 0 : 190);
    }
}

TEST_F(TriangleIndexTest, DoublesKeepTheirDigits) {
    using D = Math::Point<double, 3>;
    std::vector<D> vertices;
    const TriangleMesh<float> coarse = soup(100, 2);
    for (const P& vertex : coarse.vertices()) {
        vertices.push_back(vertex.cast<double>() / 3.0 + D(5e5, 4e6, 100));
    }
    const TriangleMesh<double> mesh(vertices, threeByThree(vertices.size()));
    for (int query = 0; query < 300; ++query) {
        agreesWithEveryTriangle(mesh, vertices[random() % vertices.size()] + anyPoint(0.1f).cast<double>());
    }

    // Corners on a line but for rounding, seen from the line.
    for (int round = 0; round < 500; ++round) {
        const D from = anyPoint(10).cast<double>() / 3.0;
        const D along = anyPoint(10).cast<double>() / 3.0;
        const TriangleMesh<double> line({from, from + along, from + along * (any(0, 3) / 3.0)}, {{0, 1, 2}});
        EXPECT_NEAR(line.distance(from + along * 1.3), 0.3 * along.length(), 1e-9);
    }
}

TEST_F(TriangleIndexTest, OfEquallyNearTrianglesTheFirstCounts) {
    // The pages of a book, each given in any order, and far from its spine an earlier triangle.
    for (int round = 0; round < 400; ++round) {
        std::vector<P> vertices = {P(any(-1, 0), 0, any(-2, -1)), P(any(-1, 0), 0, any(1, 2)), P(50, 0, 0)};
        Triangles triangles = {{2, 2, 2}};
        for (uint32_t page = 3; page < 9; ++page) {
            vertices.emplace_back(any(1, 9), any(-0.5f, 0.5f), any(-1, 1));
            std::array<uint32_t, 3> triangle = {0, 1, page};
            std::shuffle(triangle.begin(), triangle.end(), random);
            triangles.push_back(triangle);
        }
        const TriangleMesh<float> book(vertices, triangles);
        EXPECT_EQ(book.nearestPoint(P(any(-9, -3), any(-0.2f, 0.2f), any(-0.2f, 0.2f))).triangle, 1u)
            << "spine";
        EXPECT_EQ(book.nearestPoint(P(any(-9, -3), any(-0.2f, 0.2f), any(-9, -5))).triangle, 1u) << "its end";
    }

    // On a grid with many triangles twice, in one order or another: as one after the other, each compared
    // alone.
    using D = Math::Point<double, 3>;
    std::vector<D> vertices;
    for (const double x : {0.0, 1.0, 2.0}) {
        for (const double y : {0.0, 1.0, 2.0}) {
            vertices.insert(vertices.end(), {D(x, y, 0), D(x, y, 1), D(x, y, 2)});
        }
    }
    Triangles triangles;
    std::vector<TriangleMesh<double>> alone;
    for (int i = 0; i < 300; ++i) {
        triangles.push_back({uint32_t(random() % 27), uint32_t(random() % 27), uint32_t(random() % 27)});
        if (i % 3 == 2) {
            triangles.back() = triangles[random() % triangles.size()];
            std::shuffle(triangles.back().begin(), triangles.back().end(), random);
        }
        alone.emplace_back(vertices, Triangles{triangles.back()});
    }
    const TriangleMesh<double> mesh(vertices, triangles);
    for (int query = 0; query < 500; ++query) {
        const D p(any(-1, 3), query % 2 == 0 ? 0.25 * double(random() % 12) : -1.0, any(-1, 3));
        size_t first = 0;
        double nearest = std::numeric_limits<double>::infinity();
        for (size_t i = 0; i < alone.size(); ++i) {
            if (alone[i].nearestPoint(p).squaredDistance < nearest) {
                nearest = alone[i].nearestPoint(p).squaredDistance;
                first = i;
            }
        }
        EXPECT_EQ(mesh.nearestPoint(p).triangle, first);
        EXPECT_EQ(mesh.nearestPoint(p).squaredDistance, nearest);
    }
}

TEST_F(TriangleIndexTest, IdenticalTrianglesAreNoWorseThanOthers) {
    const TriangleMesh<float> mesh({P(0, 0, 0), P(1, 0, 0), P(0, 1, 0)}, Triangles(20000, {0, 1, 2}));
    EXPECT_EQ(mesh.nearestPoint(P(0.2f, 0.2f, 3)).triangle, 0u);
    EXPECT_FLOAT_EQ(mesh.signedDistance(P(0.2f, 0.2f, -3)), -3.0f);
}

TEST_F(TriangleIndexTest, WhatIsNotFiniteIsInfinitelyFar) {
    const TriangleMesh<float> whole = soup(300, 3);
    std::vector<P> vertices = whole.vertices();
    std::vector<size_t> kept;
    Triangles finite;
    for (size_t i = 0; i < 300; ++i) {
        if (i % 3 == 0) {
            vertices[3 * i + random() % 3][int(random() % 3)] = i % 2 == 0 ? NOTHING : ENDLESS;
        } else {
            kept.push_back(i);
            finite.push_back(whole.triangles()[i]);
        }
    }
    const TriangleMesh<float> mesh(vertices, whole.triangles());
    const TriangleMesh<float> rest(whole.vertices(), finite);
    for (int query = 0; query < 200; ++query) {
        const P p = anyPoint(12);
        EXPECT_EQ(mesh.nearestPoint(p).triangle, kept[rest.nearestPoint(p).triangle]);
        EXPECT_EQ(mesh.signedDistance(p), rest.signedDistance(p));
    }

    const auto expectNothingNear = [](const TriangleMesh<float>& of, const P& p) {
        EXPECT_EQ(of.nearestPoint(p).triangle, 0u);
        EXPECT_EQ(of.nearestPoint(p).point, P());
        EXPECT_EQ(of.distance(p), ENDLESS);
    };
    expectNothingNear(whole, P(0, NOTHING, 0));
    expectNothingNear(whole, P(0, 0, -ENDLESS));
    expectNothingNear({std::vector<P>(3, P(1, NOTHING, ENDLESS)), Triangles(100, {0, 1, 2})}, P());

    const float most = std::numeric_limits<float>::max();
    const TriangleMesh<float> vast({P(-most, -most, 1), P(most, -most, 1), P(0, most, 1)},
                                   Triangles(9, {0, 1, 2}));
    EXPECT_FLOAT_EQ(vast.signedDistance(P(0, 0, -1)), -2.0f);
}

TEST_F(TriangleIndexTest, ManyThreadsFindWhatOneFinds) {
    auto mesh = std::make_unique<TriangleMesh<float>>(soup(2000, 1));
    std::vector<P> points(500);
    std::vector<float> expected;
    for (P& p : points) {
        p = anyPoint(12);
        expected.push_back(mesh->signedDistance(p));
    }
    const TriangleMesh<float> copy = *mesh;
    mesh.reset();
    std::vector<std::vector<float>> found(4);
    std::vector<std::thread> threads;
    threads.reserve(found.size());
    for (std::vector<float>& distances : found) {
        threads.emplace_back([&] {
            for (const P& p : points) {
                distances.push_back(copy.signedDistance(p));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::vector<float>& distances : found) {
        EXPECT_EQ(distances, expected);
    }
}

}  // namespace
