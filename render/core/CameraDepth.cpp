#include <render/core/Camera.h>
#include <render/core/DepthTerms.h>

#include <algorithm>
#include <cmath>
#include <limits>

// Near and far planes that follow what is drawn.

namespace Render {

namespace {

constexpr double kSmallestNear = 0.01;
constexpr double kSmallestDepthRange = 0.0001;
// Half the distance from 1 to the next float: what rounding loses of a number, relative to it.
constexpr double kRounding = 0x1p-24;

double largestCoordinateOf(const Eigen::Vector3d& point) {
    return point.cwiseAbs().maxCoeff();
}

}  // namespace

Camera::DepthRange Camera::depthRangeOf(const Math::NBoundingBox<float, 3>& box) const {
    const Eigen::Vector3d low = box.min.vector().cast<double>();
    const Eigen::Vector3d high = box.max.vector().cast<double>();
    const Eigen::Vector3d direction = viewDirection().cast<double>();
    const double radius = (0.5 * (high - low)).cwiseProduct(direction).cwiseAbs().sum();
    const double distance = direction.dot(0.5 * (low + high) - eyePosition());
    return {distance - radius, distance + radius};
}

void Camera::setZNearAndFarViaBoundingBox(const Math::NBoundingBox<float, 3>& box) {
    if (!box.isEmpty()) {
        setDepthRange(depthRangeOf(box));
    }
}

void Camera::fitZRange(const Math::NBoundingBox<float, 3>& box, const ZRangeNeeds& needs) {
    DepthRange range{double{mZNear}, double{mZFar}};
    const bool isAsked = needs.farthest != std::numeric_limits<float>::lowest();
    if (box.isEmpty()) {
        if (isAsked) {
            range.zNear = std::min(range.zNear, double{needs.nearest});
            range.zFar = std::max(range.zFar, double{needs.farthest} + double{needs.room});
            setDepthRange(range);
        }
        return;
    }
    range = depthRangeOf(box);
    range.zNear = std::min(range.zNear, double{needs.nearest});
    range.zFar = std::max(range.zFar, double{needs.farthest}) + double{needs.room};
    const double largestCoordinate =
        std::max({largestCoordinateOf(eyePosition()), largestCoordinateOf(box.min.vector().cast<double>()),
                  largestCoordinateOf(box.max.vector().cast<double>())});
    setDepthRange(withRoomForRounding(range, largestCoordinate));
}

// A vertex shader computes z and w in float, each from products as large as the coordinates. A point on the
// far side must still come out before the far plane, and, where the depth buffer is not reversed, with a
// depth that differs from 1, to which the buffer was cleared.
Camera::DepthRange Camera::withRoomForRounding(DepthRange range, double largestCoordinate) const {
    constexpr double farthestFactor = 10.0;
    const double error = 8.0 * kRounding * (std::abs(range.zFar) + largestCoordinate);
    DepthRange roomy{range.zNear - error, range.zFar + error};
    if (isOrthographic()) {
        // Depths are rounded too; those of a flat box differ by what it is widened to.
        const double step = 4.0 * kRounding * (roomy.zFar - roomy.zNear);
        return {roomy.zNear - step, roomy.zFar + step};
    }
    const double zNear = std::max(roomy.zNear, kSmallestNear);
    if (!mZBufferReversed && range.zFar > zNear) {
        // 1 - depth is near * (far' - far) / (far * far'), about. Solved for far'.
        const double lost = (error + 4.0 * kRounding * range.zFar) / zNear;
        roomy.zFar = std::max(roomy.zFar, range.zFar / std::max(1.0 - lost, 1.0 / farthestFactor));
    }
    return roomy;
}

void Camera::setDepthRange(DepthRange range) {
    if (isPerspective()) {
        range.zNear = std::max(range.zNear, kSmallestNear);
        range.zFar = std::max(range.zFar, range.zNear + kSmallestDepthRange);
    }
    if (!std::isfinite(range.zNear) || !std::isfinite(range.zFar)) {
        return;
    }
    if (!(static_cast<float>(range.zFar) > static_cast<float>(range.zNear))) {
        // A flat box that faces the camera: equal planes would make the projection infinite.
        const double half = std::max(0.5 * kSmallestDepthRange, 1e-6 * std::abs(range.zNear));
        range.zNear -= half;
        range.zFar = range.zNear + 2.0 * half;
    }
    const Eigen::RowVector4f last = mProjectionMatrix.row(3);
    if (mKind == ProjectionKind::Custom &&
        (last(0) != 0.0f || last(1) != 0.0f || (last(2) != 0.0f && last(3) != 0.0f))) {
        return;
    }
    mZNear = static_cast<float>(range.zNear);
    mZFar = static_cast<float>(range.zFar);
    switch (mKind) {
        case ProjectionKind::Perspective:
            buildPerspective();
            break;
        case ProjectionKind::Orthographic:
            buildOrthographic();
            break;
        case ProjectionKind::Custom:
            setCustomDepthRange();
            break;
    }
}

void Camera::setCustomDepthRange() {
    mHasDepthRange = true;
    const DepthTerms depth =
        isOrthographic() ? DepthTerms::orthographic(mZNear, mZFar, mZBufferReversed, mProjectionMatrix(3, 3))
                         : DepthTerms::perspective(mZNear, mZFar, mZBufferReversed, -mProjectionMatrix(3, 2));
    Eigen::Matrix4f projection = mProjectionMatrix;
    projection.row(2) << 0.0f, 0.0f, depth.z, depth.offset;
    storeProjection(projection);
}

}  // namespace Render
