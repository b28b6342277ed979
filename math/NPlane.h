#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>

#include <Eigen/LU>
#include <type_traits>

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
        return timesTransposed(m.template cast<Wide>().inverse());
    }

    /// The plane that `m` takes to this one: transformed() by the inverse of m, which is not needed for it
    /// and may not exist.
    NPlane transformedBack(const Eigen::Matrix<T, 4, 4>& m) const requires(N == 3) {
        return timesTransposed(m.template cast<Wide>());
    }

private:
    // Far from the origin, offset and translation are large and nearly cancel out.
    using Wide = std::conditional_t<(sizeof(T) < sizeof(double)), double, T>;

    NPlane timesTransposed(const Eigen::Matrix<Wide, 4, 4>& m) const {
        const Eigen::Matrix<Wide, 4, 1> plane(normal[0], normal[1], normal[2], offset);
        const Eigen::Matrix<T, 4, 1> moved = (m.transpose() * plane).template cast<T>();
        return NPlane(Point<T, 3>(moved[0], moved[1], moved[2]), moved[3]);
    }
};

}  // namespace Math
