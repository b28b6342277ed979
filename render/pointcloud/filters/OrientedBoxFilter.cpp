#include <render/pointcloud/filters/OrientedBoxFilter.h>

#include <Eigen/Geometry>
#include <cmath>
#include <stdexcept>

namespace Render {

namespace {

using Octree::BoxTestResult;
using Place = Math::Point<double, 3>;

/// More than the rounding of a few products and sums, as a share of their magnitudes.
constexpr double ROUNDING = 1e-14;

double absoluteDot(const Place& a, const Place& b) {
    return std::abs(a[0]) * std::abs(b[0]) + std::abs(a[1]) * std::abs(b[1]) +
           std::abs(a[2]) * std::abs(b[2]);
}

}  // namespace

OrientedBoxFilter::OrientedBoxFilter(const Place& center, const Eigen::Matrix3d& axes, const Place& halfSizes)
    : mCenter(center), mHalfSizes(halfSizes) {
    constexpr double TOLERANCE = 1e-6;
    const Eigen::Matrix3d difference = axes.transpose() * axes - Eigen::Matrix3d::Identity();
    if (!(difference.cwiseAbs().maxCoeff() <= TOLERANCE) || !difference.allFinite()) {
        throw std::invalid_argument("An oriented box needs perpendicular axes of unit length");
    }
    if (!std::isfinite(center.squaredLength()) || !std::isfinite(halfSizes.squaredLength())) {
        throw std::invalid_argument("An oriented box needs a finite centre and finite sizes");
    }
    for (int i = 0; i < 3; ++i) {
        if (halfSizes[i] < 0.0) {
            throw std::invalid_argument("An oriented box needs sizes that are not negative");
        }
    }
    // Made perpendicular to the last bit, which classify() relies on.
    const Eigen::Vector3d x = axes.col(0).normalized();
    const Eigen::Vector3d y = (axes.col(1) - x * x.dot(axes.col(1))).normalized();
    mAxes = {Place(x), Place(y), Place(Eigen::Vector3d(x.cross(y)))};
}

bool OrientedBoxFilter::contains(const Place& position) const {
    const Place offset = position - mCenter;
    return std::abs(mAxes[0].dot(offset)) <= mHalfSizes[0] &&
           std::abs(mAxes[1].dot(offset)) <= mHalfSizes[1] && std::abs(mAxes[2].dot(offset)) <= mHalfSizes[2];
}

// Whether the shadows of both boxes on a direction, of any length, do not touch.
bool OrientedBoxFilter::isApartAlong(const Place& direction, const Place& offset, const Place& half) const {
    double reach = absoluteDot(direction, half);
    for (std::size_t i = 0; i < 3; ++i) {
        reach += mHalfSizes[static_cast<int>(i)] * std::abs(direction.dot(mAxes[i]));
    }
    const double slack = ROUNDING * (absoluteDot(direction, offset) + reach + mHalfSizes.length());
    return std::abs(direction.dot(offset)) > reach + slack;
}

BoxTestResult OrientedBoxFilter::classify(const Math::NBoundingBox<double, 3>& box) const {
    // A middle that is rounded is made good by extents to the farther corner.
    const Place middle = box.center();
    Place half;
    for (int axis = 0; axis < 3; ++axis) {
        half[axis] = std::fmax(middle[axis] - box.min[axis], box.max[axis] - middle[axis]);
    }
    const Place offset = middle - mCenter;
    bool isInside = true;
    for (std::size_t i = 0; i < 3; ++i) {
        const double farthest = std::abs(mAxes[i].dot(offset)) + absoluteDot(mAxes[i], half);
        const double slack = ROUNDING * (absoluteDot(mAxes[i], offset) + farthest);
        isInside &= farthest + slack <= mHalfSizes[static_cast<int>(i)];
    }
    if (isInside) {
        return BoxTestResult::Inside;
    }
    for (int axis = 0; axis < 3; ++axis) {
        Place unit;
        unit[axis] = 1.0;
        bool isApart = isApartAlong(unit, offset, half) ||
                       isApartAlong(mAxes[static_cast<std::size_t>(axis)], offset, half);
        for (std::size_t i = 0; i < 3 && !isApart; ++i) {
            isApart = isApartAlong(unit.cross(mAxes[i]), offset, half);
        }
        if (isApart) {
            return BoxTestResult::Outside;
        }
    }
    return BoxTestResult::Intersecting;
}

}  // namespace Render
