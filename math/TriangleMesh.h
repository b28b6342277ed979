#pragma once

#include <core/Lazy.h>
#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <math/TriangleIndex.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
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

/// An immutable triangle mesh to measure distances to. Any number of threads may do so at once. Copies share
/// the index that makes it fast; the first question builds it, on the thread that asks, in O(n log n) for n
/// triangles.
template <class T>
class TriangleMesh {
public:
    using Triangle = std::array<uint32_t, 3>;  ///< Vertex indices, counter-clockwise seen from outside.

    TriangleMesh() = default;

    /// Throws std::invalid_argument when a triangle refers to a vertex that is not there, std::length_error
    /// for 2^32 triangles or more.
    TriangleMesh(std::vector<Point<T, 3>> vertices, std::vector<Triangle> triangles)
        : mVertices(std::move(vertices)), mTriangles(std::move(triangles)), mIndex(makeIndex()) {
        if (mTriangles.size() > (std::numeric_limits<uint32_t>::max)()) {
            throw std::length_error("A mesh of too many triangles");
        }
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

    /// This mesh moved by an affine matrix, with an index of its own unless that is the identity.
    template <class U>
    TriangleMesh transformed(const Eigen::Matrix<U, 4, 4>& m) const {
        if (m == Eigen::Matrix<U, 4, 4>::Identity()) {
            return *this;
        }
        const Eigen::Matrix<Real, 4, 4> matrix = m.template cast<Real>();
        TriangleMesh result;
        result.mTriangles = mTriangles;
        result.mVertices.reserve(mVertices.size());
        for (const Point<T, 3>& vertex : mVertices) {
            result.mVertices.push_back(
                transformPoint(matrix, vertex.template cast<Real>()).template cast<T>());
            result.mBoundingBox.extend(result.mVertices.back());
        }
        result.mIndex = result.makeIndex();
        return result;
    }

    /// Of several equally near triangles the first counts. A triangle with a corner that is not finite counts
    /// as infinitely far, as does everything from a point that is not finite; when all are, triangle and
    /// point are 0. Throws std::logic_error on an empty mesh.
    NearestPoint<T> nearestPoint(const Point<T, 3>& p) const {
        const Nearest nearest = find(p);
        const Point<Real, 3> point = p.template cast<Real>() + nearest.offset;
        return {std::isinf(nearest.squaredDistance) ? Point<T, 3>() : point.template cast<T>(),
                nearest.triangle, static_cast<T>(nearest.squaredDistance)};
    }

    /// Distance to the nearest point. Throws as nearestPoint does.
    T distance(const Point<T, 3>& p) const { return static_cast<T>(std::sqrt(find(p).squaredDistance)); }

    /// The distance, negative behind the triangle of the nearest point, that is on the side its
    /// counter-clockwise normal points away from. Throws as nearestPoint does.
    T signedDistance(const Point<T, 3>& p) const { return signedDistance(p, find(p)); }

    /// The same for each of many points, in less time where neighbours in the list lie close together. There
    /// must be as many distances as points.
    void signedDistances(std::span<const Point<T, 3>> points, std::span<T> distances) const {
        std::array<Nearest, 64> nearest;
        while (!points.empty()) {
            const size_t count = (std::min)(nearest.size(), points.size());
            index().nearest(points.first(count), std::span(nearest).first(count));
            for (size_t i = 0; i < count; ++i) {
                distances[i] = signedDistance(points[i], nearest[i]);
            }
            points = points.subspan(count);
            distances = distances.subspan(count);
        }
    }

private:
    using Real = typename TriangleIndex<T>::Real;
    using Nearest = typename TriangleIndex<T>::Nearest;

    using Index = Core::Lazy<TriangleIndex<T>>;

    T signedDistance(const Point<T, 3>& p, const Nearest& nearest) const {
        const Point<Real, 3> a = corner(nearest.triangle, 0);
        const Point<Real, 3> normal =
            (corner(nearest.triangle, 1) - a).cross(corner(nearest.triangle, 2) - a);
        const T distance = static_cast<T>(std::sqrt(nearest.squaredDistance));
        // The nearest point lies in the triangle's plane, as its corner does, which is not rounded.
        return normal.dot(p.template cast<Real>() - a) < Real(0) ? -distance : distance;
    }

    std::shared_ptr<Index> makeIndex() const { return empty() ? nullptr : std::make_shared<Index>(); }

    const TriangleIndex<T>& index() const {
        if (empty()) {
            throw std::logic_error("An empty mesh has no nearest point");
        }
        return mIndex->get([this] { return TriangleIndex<T>(mVertices, mTriangles); });
    }

    Nearest find(const Point<T, 3>& p) const { return index().nearest(p); }

    Point<Real, 3> corner(size_t triangle, size_t i) const {
        return mVertices[mTriangles[triangle][i]].template cast<Real>();
    }

    std::vector<Point<T, 3>> mVertices;
    std::vector<Triangle> mTriangles;
    NBoundingBox<T, 3> mBoundingBox;
    std::shared_ptr<Index> mIndex;  // Null when empty.
};

}  // namespace Math
