#include <render/pointcloud/NodePriority.h>

#include <algorithm>
#include <cmath>

namespace Render {

namespace {

bool isOutside(const Math::NBoundingBox<float, 3>& box, const Math::Frustum<float>& frustum,
               const Math::ConvexPolytope<float, 3>& clippingVolume) {
    return clippingVolume.isOutside(box) || frustum.isOutside(box);
}

float radiusOf(const Math::NBoundingBox<float, 3>& box) {
    return (box.size() * 0.5f).length();
}

Eigen::Vector2f toPixels(const Eigen::Matrix4f& projection, const Math::Point<float, 3>& point,
                         const Viewport& viewport) {
    const Math::Point<float, 3> projected = Math::projectPoint(projection, point);
    return {(projected.x() + 1.0f) * static_cast<float>(viewport.width()) / 2.0f,
            (projected.y() + 1.0f) * static_cast<float>(viewport.height()) / 2.0f};
}

}  // namespace

NodePriority NodePriority::rated(float priority, float distanceToEye, float threshold) {
    if (!(priority <= largest)) {  // Infinite, or NaN from an eye at the centre of a box without extent.
        priority = largest;
    }
    return threshold > priority ? discard() : NodePriority(priority, distanceToEye);
}

NodePriority NodePriority::perspective(const Math::NBoundingBox<float, 3>& box,
                                       const Math::Frustum<float>& frustum,
                                       const Math::ConvexPolytope<float, 3>& clippingVolume,
                                       const Math::Point<float, 3>& eye, float scale,
                                       const Viewport& viewport, float fieldOfView, float threshold) {
    if (isOutside(box, frustum, clippingVolume)) {
        return discard();
    }
    const float distance = Math::distance(eye, box.center());
    const float halfHeight = static_cast<float>(viewport.height()) / 2.0f;
    const float priority =
        distance > 0.0f ? halfHeight / (std::tan(fieldOfView / 2.0f) * distance) * radiusOf(box) * scale
                        : largest;
    return rated(priority, distance, threshold);
}

NodePriority NodePriority::orthographic(const Math::NBoundingBox<float, 3>& box,
                                        const Math::Frustum<float>& frustum,
                                        const Math::ConvexPolytope<float, 3>& clippingVolume,
                                        const Math::Point<float, 3>& eye, float scale,
                                        const Eigen::Matrix4f& projection, const Viewport& viewport,
                                        float threshold) {
    if (isOutside(box, frustum, clippingVolume)) {
        return discard();
    }
    const Math::Point<float, 3> center = box.center();
    const Math::Point<float, 3> edge = center + Math::Point<float, 3>(radiusOf(box) * scale, 0.0f, 0.0f);
    const float priority =
        (toPixels(projection, edge, viewport) - toPixels(projection, center, viewport)).norm();
    return rated(priority, Math::distance(eye, center), threshold);
}

NodePriority& NodePriority::operator+=(const NodePriority& other) {
    mPriority = (std::min)(mPriority + other.mPriority, largest);
    mDistanceToEye = (std::min)(mDistanceToEye, other.mDistanceToEye);
    return *this;
}

}  // namespace Render
