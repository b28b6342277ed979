#pragma once

#include <math/NPlane.h>

namespace Math {

/// The side of a plane its normal points to, with the plane itself.
template <class T, int N>
struct HalfSpace {
    NPlane<T, N> plane;

    constexpr HalfSpace() = default;
    constexpr explicit HalfSpace(const NPlane<T, N>& boundary) : plane(boundary) {}

    constexpr bool operator==(const HalfSpace&) const = default;

    constexpr bool contains(const Point<T, N>& p) const { return plane.signedDistance(p) >= T(0); }

    /// See NPlane::transformed and NPlane::transformedBack.
    HalfSpace transformed(const Eigen::Matrix<T, 4, 4>& m) const requires(N == 3) {
        return HalfSpace(plane.transformed(m));
    }
    HalfSpace transformedBack(const Eigen::Matrix<T, 4, 4>& m) const requires(N == 3) {
        return HalfSpace(plane.transformedBack(m));
    }
};

}  // namespace Math
