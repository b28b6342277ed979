#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>

#include <Eigen/LU>

namespace Math {

/// The points p with normal·p + offset = 0. The normal need not have unit length; distances are in its
/// length.
template <class T, int N>
struct NPlane {
    Point<T, N> normal;  ///< The second axis by default.
    T offset = T(0);

    constexpr NPlane() { normal[1] = T(1); }
    constexpr NPlane(const Point<T, N>& planeNormal, T planeOffset)
        : normal(planeNormal), offset(planeOffset) {}

    constexpr bool operator==(const NPlane&) const = default;

    /// normal·p + offset: positive on the side the normal points to.
    constexpr T signedDistance(const Point<T, N>& p) const { return normal.dot(p) + offset; }

    /// True when the whole box lies on the negative side: its corner farthest along the normal does.
    constexpr bool isBelow(const NBoundingBox<T, N>& box) const {
        Point<T, N> farthest;
        for (int i = 0; i < N; ++i) {
            farthest[i] = normal[i] > T(0) ? box.max[i] : box.min[i];
        }
        return signedDistance(farthest) < T(0);
    }

    /// The plane of the moved points, for an invertible matrix. The signed distance of a point moved along by
    /// an affine matrix stays the same, so the normal's length changes when the matrix scales.
    NPlane transformed(const Eigen::Matrix<T, 4, 4>& m) const requires(N == 3) {
        const Eigen::Matrix<T, 4, 1> plane(normal[0], normal[1], normal[2], offset);
        const Eigen::Matrix<T, 4, 1> moved = m.inverse().transpose() * plane;
        return NPlane(Point<T, 3>(moved[0], moved[1], moved[2]), moved[3]);
    }
};

}  // namespace Math
