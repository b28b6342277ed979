#include "OrbitCamera.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr float RADIANS_PER_PIXEL = 0.005f;
constexpr float STEEPEST = 1.57f;

}  // namespace

void OrbitCamera::fit(const Math::NBoundingBox<float, 3>& box) {
    mHeading = 0.0f;
    if (box.isEmpty()) {
        mTarget.setZero();
        mDistance = 0.01f;
        mPitch = 0.0f;
        return;
    }
    mTarget = box.center().vector();
    mDistance = std::max(
        0.5f * box.size().length() / std::sin(FOV_DEGREES * std::numbers::pi_v<float> / 360.0f), 0.01f);
    mPitch = -0.6f;
}

void OrbitCamera::orbit(float right, float down) {
    mHeading -= right * RADIANS_PER_PIXEL;
    mPitch = std::clamp(mPitch - down * RADIANS_PER_PIXEL, -STEEPEST, STEEPEST);
}

void OrbitCamera::pan(float right, float down, float pictureHeight) {
    const float pixel =
        2.0f * mDistance * std::tan(FOV_DEGREES * std::numbers::pi_v<float> / 360.0f) / pictureHeight;
    const Eigen::Vector3f rightward(std::cos(mHeading), std::sin(mHeading), 0.0f);
    const Eigen::Vector3f upward = rightward.cross(viewDirection());
    mTarget += pixel * (down * upward - right * rightward);
}

void OrbitCamera::approach(const Math::Point<float, 3>& place, float share) {
    const Eigen::Vector3f newEye = eye() + share * (place.vector() - eye());
    mDistance *= 1.0f - share;
    mTarget = newEye + mDistance * viewDirection();
}

void OrbitCamera::apply(Render::Renderer& renderer) const {
    const Eigen::Vector3f from = eye();
    renderer.setAutoAdjustZRange(true);
    renderer.setPerspective(FOV_DEGREES, 0.01f, 1000.0f, 0.0f, 0.0f);
    renderer.setCameraPose(Math::Point<float, 3>(from.x(), from.y(), from.z()), viewDirection(),
                           Eigen::Vector3f::UnitZ());
}

Eigen::Vector3f OrbitCamera::viewDirection() const {
    return {-std::sin(mHeading) * std::cos(mPitch), std::cos(mHeading) * std::cos(mPitch), std::sin(mPitch)};
}
