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

    /// As one look at every triangle finds, to the last bit.
    template <class T>
    void expectTheSameAtManyPoints(const std::vector<Math::Point<T, 3>>& vertices,
                                   const Triangles& triangles);

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
}

namespace Plain {

// What the index computes for a triangle, step by step as it does.
using D = Math::Point<double, 3>;

D clamped(const D& v, std::initializer_list<D> corners) {
    Math::NBoundingBox<double, 3> box;
    for (const D& corner : corners) {
        box.extend(corner);
    }
    return {std::clamp(v[0], box.min[0], box.max[0]), std::clamp(v[1], box.min[1], box.max[1]),
            std::clamp(v[2], box.min[2], box.max[2])};
}

D onEdge(const D& a, const D& b) {
    const double along = -(b - a).dot(a);
    const double whole = (b - a).squaredLength();
    return !(along > 0) ? a : !(along < whole) ? b : clamped(a + (b - a) * (along / whole), {a, b});
}

D onTriangle(const D& a, const D& b, const D& c) {
    const D ab = b - a;
    const D ac = c - a;
    const D normal = ab.cross(ac);
    const double whole = normal.squaredLength();
    const double s = normal.dot(ac.cross(a));
    const double t = normal.dot(a.cross(ab));
    D nearest = a;
    if (s > 0 && t > 0 && s + t < whole) {
        nearest = clamped(a + ab * (s / whole) + ac * (t / whole), {a, b, c});
        if (whole > 1e-12 * ab.squaredLength() * ac.squaredLength()) {
            return nearest;
        }
    }
    for (const D& candidate : {onEdge(a, b), onEdge(b, c), onEdge(a, c)}) {
        nearest = candidate.squaredLength() < nearest.squaredLength() ? candidate : nearest;
    }
    return nearest;
}

template <class T>
typename Math::TriangleIndex<T>::Nearest nearest(const std::vector<Math::Point<T, 3>>& vertices,
                                                 const Triangles& triangles, const Math::Point<T, 3>& p) {
    using Corner = Math::Point<T, 3>;
    typename Math::TriangleIndex<T>::Nearest result;
    for (uint32_t i = 0; i < triangles.size(); ++i) {
        std::array<Corner, 3> corners;
        bool finite = true;
        for (size_t k = 0; k < 3; ++k) {
            corners[k] = vertices[triangles[i][k]];
            for (const T value : corners[k].values) {
                finite = finite && std::isfinite(value);
            }
        }
        if (finite) {
            std::sort(corners.begin(), corners.end(), [](const Corner& a, const Corner& b) {
                return std::lexicographical_compare(a.values, a.values + 3, b.values, b.values + 3);
            });
            const auto from = [&](const Corner& corner) {
                return corner.template cast<double>() - p.template cast<double>();
            };
            const D offset = onTriangle(from(corners[0]), from(corners[1]), from(corners[2]));
            if (offset.squaredLength() < result.squaredDistance) {
                result = {offset, offset.squaredLength(), i};
            }
        }
    }
    return result;
}

}  // namespace Plain

template <class T>
void TriangleIndexTest::expectTheSameAtManyPoints(const std::vector<Math::Point<T, 3>>& vertices,
                                                  const Triangles& triangles) {
    using Corner = Math::Point<T, 3>;
    const Math::TriangleIndex<T> index(vertices, triangles);
    std::vector<Corner> points;
    for (int query = 0; query < 600; ++query) {
        // On a corner, an edge, a face, or anywhere up to very far away.
        const auto& triangle = triangles[random() % triangles.size()];
        const Corner& a = vertices[triangle[0]];
        const Corner onEdge = query % 4 < 1 ? a : (a + vertices[triangle[1]]) / 2;
        const Corner onFace =
            query % 4 < 2 ? onEdge : onEdge + (vertices[triangle[2]] - onEdge) * T(any(0, 1));
        const float away = query % 4 < 3 ? 0 : std::pow(10.0f, any(-6, query % 8 < 4 ? 3 : 37));
        const Corner p = onFace + anyPoint(away).cast<T>();
        for (int neighbour = 0; neighbour < (query % 4 < 3 ? 0 : 20); ++neighbour) {
            points.push_back(p + anyPoint(away / float(1 + query % 7)).cast<T>());
        }
        points.push_back(p);
        if (!std::isfinite(p.x() + p.y() + p.z())) {
            continue;
        }
        const auto expected = Plain::nearest(vertices, triangles, p);
        const auto found = index.nearest(p);
        ASSERT_EQ(found.triangle, expected.triangle) << p.x() << ' ' << p.y() << ' ' << p.z();
        ASSERT_EQ(found.squaredDistance, expected.squaredDistance);
        ASSERT_EQ(found.offset, expected.offset);
    }

    std::vector<typename Math::TriangleIndex<T>::Nearest> all(points.size());
    index.nearest(points, all);
    for (size_t i = 0; i < points.size(); ++i) {
        const auto alone = index.nearest(points[i]);
        ASSERT_EQ(all[i].triangle, alone.triangle) << i;
        ASSERT_EQ(all[i].squaredDistance, alone.squaredDistance) << i;
        ASSERT_EQ(all[i].offset, alone.offset) << i;
    }
}

TEST_F(TriangleIndexTest, FindsToTheLastBitWhatALookAtEveryTriangleFinds) {
    std::vector<P> grid;
    for (int i = 0; i < 64; ++i) {
        grid.emplace_back(float(i % 4), float(i / 4 % 4), float(i / 16));
    }
    Triangles ties;  // With degenerate ones, and many more than once, in one order or another.
    for (int i = 0; i < 900; ++i) {
        ties.push_back({uint32_t(random() % 64), uint32_t(random() % 64), uint32_t(random() % 64)});
        if (i % 3 == 2) {
            ties.back() = ties[random() % ties.size()];
            std::shuffle(ties.back().begin(), ties.back().end(), random);
        }
    }
    std::vector<P> needles;
    for (int i = 0; i < 200; ++i) {
        const P from = anyPoint(10);
        const P along = anyPoint(10);
        needles.insert(needles.end(), {from, from + along, from + along * any(0, 1) + anyPoint(1e-6f)});
    }
    std::vector<P> broken = soup(600, 2).vertices();
    for (size_t i = 0; i < broken.size(); i += 1 + random() % 12) {
        const float values[] = {NOTHING, ENDLESS, 3e38f, 1e-40f, -3e18f};
        broken[i][int(random() % 3)] = values[random() % 5];
    }
    std::vector<P> poles = soup(12, 1).vertices();
    for (size_t i = 0; i < poles.size(); ++i) {
        poles[i][0] = i < 15 ? -1.6e38f : 1.6e38f;
    }
    const auto changed = [](std::vector<P> points, float factor, const P& by) {
        for (P& p : points) {
            p = p * factor + by;
        }
        return points;
    };
    const TriangleMesh<float> ball = sphere(P(), 8);
    const std::vector<std::pair<std::vector<P>, Triangles>> meshes = {
        {grid, ties},
        {needles, threeByThree(600)},
        {broken, threeByThree(broken.size())},
        {poles, threeByThree(poles.size())},
        {ball.vertices(), ball.triangles()},
        {changed(ball.vertices(), 0.1f, P(1e6f, -1e6f, 1e6f)), ball.triangles()},
        {changed(soup(600, 1).vertices(), 1, P(1e6f, 2e6f, 0)), threeByThree(1800)},
        {changed(ball.vertices(), 1e-30f, P()), ball.triangles()},
        {changed(ball.vertices(), 4e37f, P()), ball.triangles()}};
    for (size_t m = 0; m < meshes.size(); ++m) {
        SCOPED_TRACE(m);
        const auto& [vertices, triangles] = meshes[m];
        expectTheSameAtManyPoints(vertices, triangles);
        std::vector<Math::Point<double, 3>> thirds;
        for (const P& vertex : vertices) {
            thirds.push_back(vertex.cast<double>() / 3.0);
        }
        expectTheSameAtManyPoints(thirds, triangles);
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
