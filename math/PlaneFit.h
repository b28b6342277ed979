#pragma once

#include <core/Export.h>
#include <math/NPlane.h>
#include <math/Point.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace Math {

/// Planes through measured points. Both functions may be called from any thread and give the same plane for
/// the same points in the same order.
class LUMARO_API PlaneFit {
public:
    struct Robust {
        NPlane<float, 3> plane;            ///< Through three of the points, of unit normal.
        std::vector<std::size_t> inliers;  ///< Indices of the points that lie on it, increasing.
    };

    /// The plane through three random points that has the most points closer than maxDistance, of 100 tries
    /// (random sample consensus). Nothing with fewer than three points, or when no try finds a point that
    /// close: all points on one line or in one place, a maxDistance of 0.
    static std::optional<Robust> robust(const std::vector<Point<float, 3>>& points, double maxDistance);

    /// The plane of least squared distances: through the centroid, perpendicular to the direction of least
    /// spread, of unit normal; which of its two sides the normal points to is left open. Nothing with fewer
    /// than three points. Points on one line get one of the planes through it.
    static std::optional<NPlane<float, 3>> leastSquares(const std::vector<Point<float, 3>>& points);
};

}  // namespace Math
