#include <render/pointcloud/filters/ConvexPolytopeFilter.h>

#include <cmath>
#include <stdexcept>
#include <utility>

namespace Render {

using Octree::BoxTestResult;

ConvexPolytopeFilter::ConvexPolytopeFilter(Math::ConvexPolytope<double, 3> polytope)
    : mPolytope(std::move(polytope)) {
    for (const auto& [plane] : mPolytope.halfSpaces()) {
        if (!std::isfinite(plane.normal.squaredLength()) || !std::isfinite(plane.offset)) {
            throw std::invalid_argument("A half-space needs a finite plane");
        }
    }
}

// Rounding keeps the order of distances that are computed in the same way, so contains() agrees exactly.
BoxTestResult ConvexPolytopeFilter::classify(const Math::NBoundingBox<double, 3>& box) const {
    if (mPolytope.isOutside(box)) {
        return BoxTestResult::Outside;
    }
    for (const auto& [plane] : mPolytope.halfSpaces()) {
        Math::Point<double, 3> lowest;
        for (int axis = 0; axis < 3; ++axis) {
            lowest[axis] = plane.normal[axis] > 0.0 ? box.min[axis] : box.max[axis];
        }
        if (!(plane.signedDistance(lowest) >= 0.0)) {
            return BoxTestResult::Intersecting;
        }
    }
    return BoxTestResult::Inside;
}

}  // namespace Render
