#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <render/core/Renderer.h>

/// A camera that circles around a target, z up. Angles in radians, mouse ways in pixels.
class OrbitCamera {
public:
    /// Sees all of the box, from the south and above. Within an empty box, a panorama's, it turns on the
    /// spot.
    void fit(const Math::NBoundingBox<float, 3>& box);

    void orbit(float right, float down);
    /// Moves the target with the mouse in the plane of the picture.
    void pan(float right, float down, float pictureHeight);
    /// Moves eye and target towards a place, by a share of the way to it, so that it stays under the cursor.
    void approach(const Math::Point<float, 3>& place, float share);
    void approachTarget(float share) { mDistance *= 1.0f - share; }

    void apply(Render::Renderer& renderer) const;

private:
    Eigen::Vector3f viewDirection() const;
    Eigen::Vector3f eye() const { return mTarget - mDistance * viewDirection(); }

    static constexpr float FOV_DEGREES = 45.0f;

    Eigen::Vector3f mTarget = Eigen::Vector3f::Zero();
    float mDistance = 1.0f;
    float mHeading = 0.0f;  ///< Counter-clockwise from north, +y.
    float mPitch = -0.6f;   ///< Above the horizon.
};
