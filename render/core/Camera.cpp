#include <render/core/Camera.h>

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <algorithm>
#include <cmath>

namespace Render {

namespace {

constexpr float kPi = 3.1415927f;
constexpr double kSmallestNear = 0.01;
constexpr double kSmallestDepthRange = 0.0001;

double aspectOf(const Viewport& viewport) {
    if (viewport.width() == 0 || viewport.height() == 0) {
        return 0.0;
    }
    return static_cast<double>(viewport.width()) / static_cast<double>(viewport.height());
}

Eigen::Vector3d upFor(const Eigen::Vector3d& direction, const Eigen::Vector3d& up) {
    // The sine below which float input no longer tells a direction.
    constexpr double smallestSine = 1e-5;
    if (direction.cross(up).norm() > smallestSine * up.norm()) {
        return up;
    }
    const Eigen::Vector3d y = Eigen::Vector3d::UnitY();
    return direction.cross(y).norm() > smallestSine ? y : Eigen::Vector3d(Eigen::Vector3d::UnitZ());
}

// What a projection does to z: row 2 of its matrix in columns 2 and 3, for a last row scaled by `scale`.
struct DepthTerms {
    float z;
    float offset;
};

DepthTerms perspectiveDepth(float nearDepth, float farDepth, float scale) {
    const float range = nearDepth - farDepth;
    return {scale * (farDepth / range), scale * (nearDepth * farDepth / range)};
}

DepthTerms orthographicDepth(float nearDepth, float farDepth, float scale) {
    const float range = nearDepth - farDepth;
    return {scale / range, scale * (nearDepth / range)};
}

}  // namespace

Camera::Camera(bool isZBufferReversed) : mZBufferReversed(isZBufferReversed) {
    setPerspective(60.0f, 0.01f, 20000.0f, 0.0f, 0.0f);
}

void Camera::setViewport(size_t width, size_t height) {
    const Viewport old = mViewport;
    mViewport.set(width, height);
    if (old.height() == 0 || height == 0) {
        return;
    }
    const double newAspect = static_cast<double>(width) / static_cast<double>(height);
    const double oldAspect = static_cast<double>(old.width()) / static_cast<double>(old.height());
    if (newAspect == oldAspect || width == 0) {
        return;
    }
    switch (mKind) {
        case ProjectionKind::Perspective:
            buildPerspective();
            break;
        case ProjectionKind::Orthographic:
            mHorizontalExtent = mVerticalExtent * aspect();
            buildOrthographic();
            break;
        case ProjectionKind::Custom:
            followAspect(oldAspect, newAspect);
            break;
    }
}

void Camera::followAspect(double oldAspect, double newAspect) {
    if (mCustomFixed) {
        return;
    }
    if (mCustomAspect == 0.0) {
        mCustomAspect = oldAspect != 0.0 ? oldAspect : newAspect;
    }
    const float scale = static_cast<float>(mCustomAspect / newAspect);
    Eigen::Matrix4f projection = mProjectionMatrix;
    projection(0, 0) = mCustomXRow.x() * scale;
    projection(0, 1) = mCustomXRow.y() * scale;
    mHorizontalExtent = mCustomHorizontalExtent / scale;
    storeProjection(projection);
}

void Camera::setViewMatrix(const Eigen::Matrix4f& viewMatrix) {
    if (viewMatrix == mViewMatrix) {
        return;
    }
    mViewMatrix = viewMatrix;
    updateProducts();
}

void Camera::setPose(const Math::Point<float, 3>& eye, const Eigen::Vector3f& viewDirection,
                     const Eigen::Vector3f& up) {
    if (viewDirection.isZero(0.0f)) {
        return;
    }
    const Eigen::Vector3d forward = viewDirection.cast<double>().normalized();
    const Eigen::Vector3d right = forward.cross(upFor(forward, up.cast<double>())).normalized();
    Eigen::Matrix3d rotation;
    rotation.row(0) = right;
    rotation.row(1) = right.cross(forward);
    rotation.row(2) = -forward;
    Eigen::Matrix4d view = Eigen::Matrix4d::Identity();
    view.topLeftCorner<3, 3>() = rotation;
    view.topRightCorner<3, 1>() = -rotation * eye.vector().cast<double>();
    setViewMatrix(view.cast<float>());
}

void Camera::setPose(const Math::Point<float, 3>& eye, const Math::Point<float, 3>& target,
                     const Eigen::Vector3f& up) {
    setPose(eye, Eigen::Vector3f((target - eye).vector()), up);
}

void Camera::setPerspective(float fovYDeg, float zNear, float zFar, float offCenterX, float offCenterY) {
    mFovY = fovYDeg * kPi / 180.0f;
    mZNear = zNear;
    mZFar = zFar;
    mOffCenterX = offCenterX;
    mOffCenterY = offCenterY;
    mKind = ProjectionKind::Perspective;
    buildPerspective();
}

void Camera::setPerspectiveOffCenter(float left, float right, float bottom, float top, float zNear,
                                     float zFar, bool fixed) {
    Eigen::Matrix4f projection = Eigen::Matrix4f::Zero();
    projection(0, 0) = 2.0f * zNear / (right - left);
    projection(1, 1) = 2.0f * zNear / (top - bottom);
    projection(0, 2) = (right + left) / (right - left);
    projection(1, 2) = (top + bottom) / (top - bottom);
    projection(3, 2) = -1.0f;
    const DepthTerms depth =
        mZBufferReversed ? perspectiveDepth(zFar, zNear, 1.0f) : perspectiveDepth(zNear, zFar, 1.0f);
    projection(2, 2) = depth.z;
    projection(2, 3) = depth.offset;
    setProjection(projection, zNear, zFar, fixed);
}

void Camera::setOrthographic(float horizontalExtent, float verticalExtent, float zNear, float zFar) {
    mHorizontalExtent = horizontalExtent;
    mVerticalExtent = verticalExtent;
    mZNear = zNear;
    mZFar = zFar;
    mKind = ProjectionKind::Orthographic;
    buildOrthographic();
}

void Camera::setOrthographic(float verticalExtent, float zNear, float zFar) {
    setOrthographic(verticalExtent * aspect(), verticalExtent, zNear, zFar);
}

void Camera::setProjection(const Eigen::Matrix4f& projection, float zNear, float zFar, bool fixed) {
    mZNear = zNear;
    mZFar = zFar;
    mKind = ProjectionKind::Custom;
    mCustomFixed = fixed;
    mCustomAspect = aspectOf(mViewport);
    mCustomXRow = {projection(0, 0), projection(0, 1)};
    if (projection(3, 3) != 0.0f) {
        mHorizontalExtent = std::abs(2.0f * projection(3, 3) / projection(0, 0));
        mVerticalExtent = std::abs(2.0f * projection(3, 3) / projection(1, 1));
    } else {
        mFovY = 2.0f * std::atan(std::abs(projection(3, 2) / projection(1, 1)));
        mOffCenterX = projection(0, 2);
        mOffCenterY = projection(1, 2);
    }
    mCustomHorizontalExtent = mHorizontalExtent;
    storeProjection(projection);
}

void Camera::setZNearAndFarViaBoundingBox(const Math::NBoundingBox<float, 3>& box) {
    if (box.isEmpty()) {
        return;
    }
    const Eigen::Vector3d low = box.min.vector().cast<double>();
    const Eigen::Vector3d high = box.max.vector().cast<double>();
    const Eigen::Vector3d direction = viewDirection().cast<double>();
    const double radius = (0.5 * (high - low)).cwiseProduct(direction).cwiseAbs().sum();
    const double distance = direction.dot(0.5 * (low + high) - eyePosition());
    double zNear = distance - radius;
    double zFar = distance + radius;
    if (isPerspective()) {
        zNear = std::max(zNear, kSmallestNear);
        zFar = std::max(zFar, zNear + kSmallestDepthRange);
    }
    if (!std::isfinite(zNear) || !std::isfinite(zFar)) {
        return;
    }
    if (!(static_cast<float>(zFar) > static_cast<float>(zNear))) {
        // A flat box that faces the camera: equal planes would make the projection infinite.
        const double half = std::max(0.5 * kSmallestDepthRange, 1e-6 * std::abs(zNear));
        zNear -= half;
        zFar = zNear + 2.0 * half;
    }
    setDepthRange(static_cast<float>(zNear), static_cast<float>(zFar));
}

void Camera::setDepthRange(float zNear, float zFar) {
    if (mKind != ProjectionKind::Custom) {
        mZNear = zNear;
        mZFar = zFar;
        if (mKind == ProjectionKind::Perspective) {
            buildPerspective();
        } else {
            buildOrthographic();
        }
        return;
    }
    Eigen::Matrix4f projection = mProjectionMatrix;
    const Eigen::RowVector4f last = projection.row(3);
    const bool orthographic = last(3) != 0.0f;
    if (last(0) != 0.0f || last(1) != 0.0f || (orthographic && last(2) != 0.0f)) {
        return;
    }
    mZNear = zNear;
    mZFar = zFar;
    const float nearDepth = mZBufferReversed ? zFar : zNear;
    const float farDepth = mZBufferReversed ? zNear : zFar;
    const DepthTerms depth = orthographic ? orthographicDepth(nearDepth, farDepth, last(3))
                                          : perspectiveDepth(nearDepth, farDepth, -last(2));
    projection.row(2) << 0.0f, 0.0f, depth.z, depth.offset;
    storeProjection(projection);
}

float Camera::fovYDeg() const {
    return mFovY * 180.0f / kPi;
}

float Camera::clearDepthValue() const {
    return mZBufferReversed ? mViewport.minDepth() : mViewport.maxDepth();
}

Eigen::Vector3d Camera::eyePosition() const {
    const Eigen::Matrix4d inverse = mViewMatrix.cast<double>().inverse();
    return inverse.topRightCorner<3, 1>();
}

Math::Point<float, 3> Camera::eye() const {
    return Math::Point<float, 3>(Eigen::Vector3f(eyePosition().cast<float>()));
}

Eigen::Vector3f Camera::rightDirection() const {
    return mViewMatrix.block<1, 3>(0, 0).transpose();
}

Eigen::Vector3f Camera::upDirection() const {
    return mViewMatrix.block<1, 3>(1, 0).transpose();
}

Eigen::Vector3f Camera::viewDirection() const {
    return -mViewMatrix.block<1, 3>(2, 0).transpose();
}

Math::Point<float, 3> Camera::unProject(size_t x, size_t y, float depth) const {
    const double width = static_cast<double>(mViewport.width());
    const double height = static_cast<double>(mViewport.height());
    const Eigen::Vector4d clip(2.0 * static_cast<double>(x) / width - 1.0,
                               2.0 * (height - static_cast<double>(y)) / height - 1.0,
                               static_cast<double>(depth), 1.0);
    const Eigen::Vector4d world = mInvViewProjectionMatrix.cast<double>() * clip;
    return Math::Point<float, 3>(Eigen::Vector3f((world.head<3>() / world.w()).cast<float>()));
}

Math::Point<float, 3> Camera::project(const Math::Point<float, 3>& point) const {
    const float width = static_cast<float>(mViewport.width());
    const float height = static_cast<float>(mViewport.height());
    const Eigen::Vector4f clip = mViewProjectionMatrix * point.vector().homogeneous();
    return Math::Point<float, 3>((clip.x() / clip.w() + 1.0f) * width * 0.5f,
                                 height - (clip.y() / clip.w() + 1.0f) * height * 0.5f, point.vector().z());
}

Math::Frustum<float> Camera::frustum() const {
    return Math::Frustum<float>::fromMatrix(mViewProjectionMatrix);
}

Math::Frustum<float> Camera::frustum(const Eigen::Matrix4f& modelMatrix) const {
    return Math::Frustum<float>::fromMatrix(mViewProjectionMatrix * modelMatrix);
}

Math::Frustum<float> Camera::scaledFrustum(float sx, float sy, float sz,
                                           const Eigen::Matrix4f& modelMatrix) const {
    Eigen::Matrix4f scaling = Eigen::Matrix4f::Identity();
    scaling(0, 0) = 1.0f / sx;
    scaling(1, 1) = 1.0f / sy;
    scaling(2, 2) = 1.0f / sz;
    scaling(2, 3) = 0.5f - 0.5f / sz;
    return Math::Frustum<float>::fromMatrix(scaling * mViewProjectionMatrix * modelMatrix);
}

bool Camera::operator==(const Camera& other) const {
    return mViewMatrix == other.mViewMatrix && mProjectionMatrix == other.mProjectionMatrix &&
           mViewport == other.mViewport && mZBufferReversed == other.mZBufferReversed;
}

void Camera::buildPerspective() {
    const float yScale = std::cos(mFovY / 2.0f) / std::sin(mFovY / 2.0f);
    const DepthTerms depth =
        mZBufferReversed ? perspectiveDepth(mZFar, mZNear, 1.0f) : perspectiveDepth(mZNear, mZFar, 1.0f);
    Eigen::Matrix4f projection = Eigen::Matrix4f::Zero();
    projection(0, 0) = yScale / aspect();
    projection(1, 1) = yScale;
    projection(0, 2) = mOffCenterX;
    projection(1, 2) = mOffCenterY;
    projection(2, 2) = depth.z;
    projection(2, 3) = depth.offset;
    projection(3, 2) = -1.0f;
    storeProjection(projection);
}

void Camera::buildOrthographic() {
    const DepthTerms depth =
        mZBufferReversed ? orthographicDepth(mZFar, mZNear, 1.0f) : orthographicDepth(mZNear, mZFar, 1.0f);
    Eigen::Matrix4f projection = Eigen::Matrix4f::Zero();
    projection(0, 0) = 2.0f / mHorizontalExtent;
    projection(1, 1) = 2.0f / mVerticalExtent;
    projection(2, 2) = depth.z;
    projection(2, 3) = depth.offset;
    projection(3, 3) = 1.0f;
    storeProjection(projection);
}

void Camera::storeProjection(const Eigen::Matrix4f& projection) {
    if (projection == mProjectionMatrix) {
        return;
    }
    mProjectionMatrix = projection;
    updateProducts();
}

void Camera::updateProducts() {
    // In double: near and far lie up to seven decades apart, which costs a float inverse all its digits.
    const Eigen::Matrix4d product = mProjectionMatrix.cast<double>() * mViewMatrix.cast<double>();
    mViewProjectionMatrix = product.cast<float>();
    mInvViewProjectionMatrix = product.inverse().cast<float>();
}

// A viewport without area has no aspect; 1 keeps the projection finite until there is one.
float Camera::aspect() const {
    const double value = aspectOf(mViewport);
    return value == 0.0 ? 1.0f : static_cast<float>(value);
}

}  // namespace Render
