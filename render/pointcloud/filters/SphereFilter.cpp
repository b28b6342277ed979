#include <render/pointcloud/filters/SphereFilter.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace Render {

using Octree::BoxTestResult;

SphereFilter::SphereFilter(const Math::Point<double, 3>& center, double radius)
    : mCenter(center), mSquaredRadius(radius * radius) {
    if (!std::isfinite(center.squaredLength()) || !std::isfinite(mSquaredRadius) || radius < 0.0) {
        throw std::invalid_argument(
            "A sphere needs a finite centre and a finite radius that is not negative");
    }
}

bool SphereFilter::contains(const Math::Point<double, 3>& position) const {
    return Math::squaredDistance(position, mCenter) <= mSquaredRadius;
}

// Rounding keeps the order of distances that are computed in the same way, so contains() agrees exactly.
BoxTestResult SphereFilter::classify(const Math::NBoundingBox<double, 3>& box) const {
    Math::Point<double, 3> nearest;
    Math::Point<double, 3> farthest;
    for (int axis = 0; axis < 3; ++axis) {
        const double below = box.min[axis] - mCenter[axis];
        const double above = box.max[axis] - mCenter[axis];
        nearest[axis] = std::max({0.0, below, -above});
        farthest[axis] = std::max(std::abs(below), std::abs(above));
    }
    if (nearest.squaredLength() > mSquaredRadius) {
        return BoxTestResult::Outside;
    }
    return farthest.squaredLength() <= mSquaredRadius ? BoxTestResult::Inside : BoxTestResult::Intersecting;
}

}  // namespace Render
