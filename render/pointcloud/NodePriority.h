#pragma once

#include <core/Export.h>
#include <math/ConvexPolytope.h>
#include <math/Frustum.h>
#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <render/gpu/Viewport.h>

#include <Eigen/Core>
#include <cmath>
#include <limits>

namespace Render {

/// How much an octree node matters for a view: its size on screen in pixels first, then its distance to the
/// eye.
///
///   perspective:  priority = (height / 2) / (tan(fieldOfView / 2) · distance) · radius · scale
///   orthographic: priority = pixels between the projections of the centre and of centre + (radius · scale,
///   0, 0)
///
/// radius is half the box diagonal, distance runs from the eye to the box centre in model coordinates, height
/// is the viewport's. A priority is never infinite or NaN.
///
/// Priorities that differ by less than 0.1 count as equally large: the nearer node then matters more. That
/// makes the order not transitive, which the heaps it is used in put up with.
class LUMARO_API NodePriority {
public:
    /// Above everything else.
    static NodePriority keep() { return NodePriority(largest, 0.0f); }
    /// Below everything that is worth loading.
    static NodePriority discard() { return NodePriority(0.0f, largest); }

    /// discard() for a box outside frustum or clipping volume (both in the box's coordinates) or smaller than
    /// threshold. `fieldOfView` is vertical, in radians; `scale` takes lengths of the model to those of the
    /// world.
    static NodePriority perspective(const Math::NBoundingBox<float, 3>& box,
                                    const Math::Frustum<float>& frustum,
                                    const Math::ConvexPolytope<float, 3>& clippingVolume,
                                    const Math::Point<float, 3>& eye, float scale, const Viewport& viewport,
                                    float fieldOfView, float threshold);
    static NodePriority orthographic(const Math::NBoundingBox<float, 3>& box,
                                     const Math::Frustum<float>& frustum,
                                     const Math::ConvexPolytope<float, 3>& clippingVolume,
                                     const Math::Point<float, 3>& eye, float scale,
                                     const Eigen::Matrix4f& projection, const Viewport& viewport,
                                     float threshold);

    float priority() const { return mPriority; }
    float distanceToEye() const { return mDistanceToEye; }

    /// Within the tolerance of discard().
    bool isDiscarded() const { return *this == discard(); }

    bool operator==(const NodePriority& other) const {
        return std::abs(double{mPriority} - double{other.mPriority}) < tolerance &&
               mDistanceToEye == other.mDistanceToEye;
    }
    bool operator<(const NodePriority& other) const {
        const double a = mPriority;
        const double b = other.mPriority;
        if (a < b - tolerance) {
            return true;
        }
        if (a > b + tolerance) {
            return false;
        }
        return mDistanceToEye > other.mDistanceToEye;
    }
    bool operator>(const NodePriority& other) const { return other < *this; }
    bool operator<=(const NodePriority& other) const { return !(*this > other); }
    bool operator>=(const NodePriority& other) const { return !(*this < other); }

    /// Sum of the priorities at the smaller distance.
    NodePriority& operator+=(const NodePriority& other);
    friend NodePriority operator+(NodePriority a, const NodePriority& b) { return a += b; }

private:
    // In double, so that no rounding can make each of two priorities less than the other.
    static constexpr double tolerance = 0.1;
    static constexpr float largest = (std::numeric_limits<float>::max)();

    NodePriority(float priority, float distanceToEye) : mPriority(priority), mDistanceToEye(distanceToEye) {}
    static NodePriority rated(float priority, float distanceToEye, float threshold);

    float mPriority;
    float mDistanceToEye;
};

}  // namespace Render
