#pragma once

#include <math/HalfSpace.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace Math {

/// The intersection of half-spaces: a clipping volume, bounded or not. Without half-spaces it is all of
/// space.
template <class T, int N>
class ConvexPolytope {
public:
    ConvexPolytope() = default;
    explicit ConvexPolytope(std::vector<HalfSpace<T, N>> halfSpaces) : mHalfSpaces(std::move(halfSpaces)) {}

    void add(const HalfSpace<T, N>& halfSpace) { mHalfSpaces.push_back(halfSpace); }

    const std::vector<HalfSpace<T, N>>& halfSpaces() const { return mHalfSpaces; }

    /// True without half-spaces, when nothing is clipped.
    bool empty() const { return mHalfSpaces.empty(); }

    /// Number of half-spaces.
    size_t size() const { return mHalfSpaces.size(); }

    bool contains(const Point<T, N>& p) const {
        for (const HalfSpace<T, N>& halfSpace : mHalfSpaces) {
            if (!halfSpace.contains(p)) {
                return false;
            }
        }
        return true;
    }

    /// True when the box lies wholly outside one of the half-spaces. A box that is outside only through
    /// several together, near an edge of the volume, is not recognised.
    bool isOutside(const NBoundingBox<T, N>& box) const {
        for (const HalfSpace<T, N>& halfSpace : mHalfSpaces) {
            if (halfSpace.plane.isBelow(box)) {
                return true;
            }
        }
        return false;
    }

    /// See NPlane::transformed and NPlane::transformedBack.
    ConvexPolytope transformed(const Eigen::Matrix<T, 4, 4>& m) const requires(N == 3) {
        return each([&](const HalfSpace<T, N>& halfSpace) { return halfSpace.transformed(m); });
    }
    ConvexPolytope transformedBack(const Eigen::Matrix<T, 4, 4>& m) const requires(N == 3) {
        return each([&](const HalfSpace<T, N>& halfSpace) { return halfSpace.transformedBack(m); });
    }

    /// Compares the half-spaces in their order.
    bool operator==(const ConvexPolytope&) const = default;

private:
    template <class Change>
    ConvexPolytope each(const Change& change) const {
        ConvexPolytope result;
        result.mHalfSpaces.reserve(mHalfSpaces.size());
        for (const HalfSpace<T, N>& halfSpace : mHalfSpaces) {
            result.mHalfSpaces.push_back(change(halfSpace));
        }
        return result;
    }

    std::vector<HalfSpace<T, N>> mHalfSpaces;
};

}  // namespace Math
