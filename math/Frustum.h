#pragma once

#include <math/NPlane.h>

#include <array>

namespace Math {

/// What a camera sees: six planes whose normals point inwards. By default nothing is outside.
template <class T>
class Frustum {
public:
    using Planes = std::array<NPlane<T, 3>, 6>;

    Frustum() { mPlanes.fill(NPlane<T, 3>(Point<T, 3>(), T(0))); }
    /// Planes in the order of planes().
    explicit Frustum(const Planes& planes) : mPlanes(planes) {}

    /// From a matrix that takes points to clip space (−w ≤ x, y ≤ w and 0 ≤ z ≤ w, reversed depth or not).
    /// The planes are those of the space the matrix takes from, with unit normals.
    static Frustum fromMatrix(const Eigen::Matrix<T, 4, 4>& m) {
        using Row = Eigen::Matrix<T, 1, 4>;
        const Row x = m.row(0);
        const Row y = m.row(1);
        const Row z = m.row(2);
        const Row w = m.row(3);
        Frustum result;
        result.mPlanes = {plane(w + x), plane(w - x), plane(w + y), plane(w - y), plane(z), plane(w - z)};
        return result;
    }

    /// Left, right, bottom, top, z = 0, z = w.
    const Planes& planes() const { return mPlanes; }

    bool contains(const Point<T, 3>& p) const {
        for (const NPlane<T, 3>& plane : mPlanes) {
            if (!(plane.signedDistance(p) >= T(0))) {
                return false;
            }
        }
        return true;
    }

    /// True when the box lies wholly outside one of the planes; see ConvexPolytope::isOutside.
    bool isOutside(const NBoundingBox<T, 3>& box) const {
        for (const NPlane<T, 3>& plane : mPlanes) {
            if (plane.isBelow(box)) {
                return true;
            }
        }
        return false;
    }

    bool operator==(const Frustum&) const = default;

private:
    static NPlane<T, 3> plane(const Eigen::Matrix<T, 1, 4>& row) {
        const Point<T, 3> normal(row[0], row[1], row[2]);
        const T length = normal.length();
        // A plane at infinity has no normal; its offset alone tells that nothing lies outside.
        return length > T(0) ? NPlane<T, 3>(normal / length, row[3] / length) : NPlane<T, 3>(normal, row[3]);
    }

    Planes mPlanes;
};

}  // namespace Math
