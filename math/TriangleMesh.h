#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Math {

/// Where a mesh comes nearest to a given point.
template <class T>
struct NearestPoint {
    Point<T, 3> point;
    size_t triangle = 0;  ///< Index of the triangle the point lies on.
    T squaredDistance = std::numeric_limits<T>::infinity();
};

/// An immutable triangle mesh to measure distances to.
template <class T>
class TriangleMesh {
public:
    using Triangle = std::array<uint32_t, 3>;  ///< Vertex indices, counter-clockwise seen from outside.

    TriangleMesh() = default;

    /// Throws std::invalid_argument when a triangle refers to a vertex that is not there.
    TriangleMesh(std::vector<Point<T, 3>> vertices, std::vector<Triangle> triangles)
        : mVertices(std::move(vertices)), mTriangles(std::move(triangles)) {
        for (const Triangle& triangle : mTriangles) {
            for (const uint32_t index : triangle) {
                if (index >= mVertices.size()) {
                    throw std::invalid_argument("A triangle of the mesh refers to a missing vertex");
                }
            }
        }
        for (const Point<T, 3>& vertex : mVertices) {
            mBoundingBox.extend(vertex);
        }
    }

    const std::vector<Point<T, 3>>& vertices() const { return mVertices; }
    const std::vector<Triangle>& triangles() const { return mTriangles; }

    /// Of all vertices, whether a triangle uses them or not.
    const NBoundingBox<T, 3>& boundingBox() const { return mBoundingBox; }

    /// True without triangles.
    bool empty() const { return mTriangles.empty(); }

    /// This mesh moved by an affine matrix.
    TriangleMesh transformed(const Eigen::Matrix<T, 4, 4>& m) const {
        TriangleMesh result;
        result.mTriangles = mTriangles;
        result.mVertices.reserve(mVertices.size());
        for (const Point<T, 3>& vertex : mVertices) {
            result.mVertices.push_back(transformPoint(m, vertex));
            result.mBoundingBox.extend(result.mVertices.back());
        }
        return result;
    }

    /// Looks at every triangle; of several equally near ones the first counts. Throws std::logic_error on an
    /// empty mesh.
    NearestPoint<T> nearestPoint(const Point<T, 3>& p) const {
        if (empty()) {
            throw std::logic_error("An empty mesh has no nearest point");
        }
        NearestPoint<T> nearest;
        for (size_t i = 0; i < mTriangles.size(); ++i) {
            const Point<T, 3> candidate = nearestOnTriangle(p, corner(i, 0), corner(i, 1), corner(i, 2));
            const T squared = squaredDistance(p, candidate);
            if (squared < nearest.squaredDistance) {
                nearest = {candidate, i, squared};
            }
        }
        return nearest;
    }

    /// Distance to the nearest point. Throws as nearestPoint does.
    T distance(const Point<T, 3>& p) const { return std::sqrt(nearestPoint(p).squaredDistance); }

    /// The distance, negative behind the triangle of the nearest point, that is on the side its
    /// counter-clockwise normal points away from. Throws as nearestPoint does.
    T signedDistance(const Point<T, 3>& p) const {
        const NearestPoint<T> nearest = nearestPoint(p);
        const Point<T, 3>& a = corner(nearest.triangle, 0);
        const Point<T, 3> normal = (corner(nearest.triangle, 1) - a).cross(corner(nearest.triangle, 2) - a);
        const T distance = std::sqrt(nearest.squaredDistance);
        return normal.dot(p - nearest.point) < T(0) ? -distance : distance;
    }

private:
    const Point<T, 3>& corner(size_t triangle, size_t i) const { return mVertices[mTriangles[triangle][i]]; }

    static Point<T, 3> nearestOnTriangle(const Point<T, 3>& p, const Point<T, 3>& a, const Point<T, 3>& b,
                                         const Point<T, 3>& c);
    static Point<T, 3> nearestOnEdge(const Point<T, 3>& p, const Point<T, 3>& a, const Point<T, 3>& b);

    std::vector<Point<T, 3>> mVertices;
    std::vector<Triangle> mTriangles;
    NBoundingBox<T, 3> mBoundingBox;
};

// Above the inside, the foot of the perpendicular; everywhere else, and for triangles without area, the
// nearest point lies on an edge.
template <class T>
Point<T, 3> TriangleMesh<T>::nearestOnTriangle(const Point<T, 3>& p, const Point<T, 3>& a,
                                               const Point<T, 3>& b, const Point<T, 3>& c) {
    const Point<T, 3> ab = b - a;
    const Point<T, 3> ac = c - a;
    const Point<T, 3> ap = p - a;
    const Point<T, 3> normal = ab.cross(ac);
    const T whole = normal.squaredLength();
    const T beyondAc = normal.dot(ap.cross(ac));
    const T beyondAb = normal.dot(ab.cross(ap));
    if (whole > T(0) && beyondAc >= T(0) && beyondAb >= T(0) && beyondAc + beyondAb <= whole) {
        return a + ab * (beyondAc / whole) + ac * (beyondAb / whole);
    }
    Point<T, 3> nearest = nearestOnEdge(p, a, b);
    for (const Point<T, 3>& candidate : {nearestOnEdge(p, b, c), nearestOnEdge(p, c, a)}) {
        if (squaredDistance(p, candidate) < squaredDistance(p, nearest)) {
            nearest = candidate;
        }
    }
    return nearest;
}

template <class T>
Point<T, 3> TriangleMesh<T>::nearestOnEdge(const Point<T, 3>& p, const Point<T, 3>& a, const Point<T, 3>& b) {
    const Point<T, 3> ab = b - a;
    const T along = ab.dot(p - a);
    const T whole = ab.squaredLength();
    if (!(along > T(0))) {
        return a;
    }
    return along < whole ? a + ab * (along / whole) : b;
}

}  // namespace Math
