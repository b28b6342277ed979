#include <render/core/Camera.h>
#include <render/core/DepthTerms.h>

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <stdexcept>
#include <string>

namespace Render {

namespace {

constexpr float kPi = 3.1415927f;

void require(bool condition, const char* fault) {
    if (!condition) {
        throw std::invalid_argument(std::string("Camera: ") + fault);
    }
}

void requireFinite(std::initializer_list<float> values) {
    for (const float value : values) {
        require(std::isfinite(value), "a value that is not a finite number");
    }
}

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
            stretchExtent(oldAspect, newAspect);
            buildOrthographic();
            break;
        case ProjectionKind::Custom:
            followAspect(oldAspect, newAspect);
            break;
    }
}

// The ratio of horizontal to vertical scale stays: with square pixels that makes the extents' ratio the
// viewport's.
void Camera::stretchExtent(double oldAspect, double newAspect) {
    if (mSetAspect == 0.0) {
        mSetAspect = oldAspect != 0.0 ? oldAspect : newAspect;
    }
    const bool hasSquarePixels = mSetHorizontalExtent == mVerticalExtent * static_cast<float>(mSetAspect);
    mHorizontalExtent = hasSquarePixels ? mVerticalExtent * aspect()
                                        : static_cast<float>(mSetHorizontalExtent * (newAspect / mSetAspect));
}

void Camera::followAspect(double oldAspect, double newAspect) {
    if (mCustomFixed) {
        return;
    }
    if (isOrthographic()) {
        stretchExtent(oldAspect, newAspect);
    } else if (mSetAspect == 0.0) {
        mSetAspect = oldAspect != 0.0 ? oldAspect : newAspect;
    }
    const float scale = static_cast<float>(mSetAspect / newAspect);
    Eigen::Matrix4f projection = mProjectionMatrix;
    projection(0, 0) = mCustomXRow.x() * scale;
    projection(0, 1) = mCustomXRow.y() * scale;
    storeProjection(projection);
}

void Camera::setViewMatrix(const Eigen::Matrix4f& viewMatrix) {
    if (viewMatrix == mViewMatrix) {
        return;
    }
    require(viewMatrix.allFinite() && viewMatrix.cast<double>().determinant() != 0.0,
            "a view matrix that is not finite or has no inverse");
    mViewMatrix = viewMatrix;
    updateProducts();
}

void Camera::setPose(const Math::Point<float, 3>& eye, const Eigen::Vector3f& viewDirection,
                     const Eigen::Vector3f& up) {
    require(eye.vector().allFinite() && viewDirection.allFinite() && up.allFinite(),
            "a pose that is not finite");
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
    requireFinite({fovYDeg, zNear, zFar, offCenterX, offCenterY});
    require(fovYDeg > 0.0f && fovYDeg < 180.0f, "a field of view that is not between 0 and 180 degrees");
    require(zNear != zFar && zNear != 0.0f && zFar != 0.0f, "near and far planes that are equal or 0");
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
    requireFinite({left, right, bottom, top, zNear, zFar});
    require(left != right && bottom != top, "a picture without width or height");
    require(zNear != zFar && zNear != 0.0f && zFar != 0.0f, "near and far planes that are equal or 0");
    Eigen::Matrix4f projection = Eigen::Matrix4f::Zero();
    projection(0, 0) = 2.0f * zNear / (right - left);
    projection(1, 1) = 2.0f * zNear / (top - bottom);
    projection(0, 2) = (right + left) / (right - left);
    projection(1, 2) = (top + bottom) / (top - bottom);
    projection(3, 2) = -1.0f;
    const DepthTerms depth = DepthTerms::perspective(zNear, zFar, mZBufferReversed, 1.0f);
    projection(2, 2) = depth.z;
    projection(2, 3) = depth.offset;
    setProjection(projection, zNear, zFar, fixed);
    mHasDepthRange = true;
}

void Camera::setOrthographic(float horizontalExtent, float verticalExtent, float zNear, float zFar) {
    requireFinite({horizontalExtent, verticalExtent, zNear, zFar});
    require(horizontalExtent != 0.0f && verticalExtent != 0.0f, "an extent of 0");
    require(zNear != zFar, "near and far planes that are equal");
    mHorizontalExtent = horizontalExtent;
    mVerticalExtent = verticalExtent;
    mSetHorizontalExtent = horizontalExtent;
    mSetAspect = aspectOf(mViewport);
    mZNear = zNear;
    mZFar = zFar;
    mKind = ProjectionKind::Orthographic;
    buildOrthographic();
}

void Camera::setOrthographic(float verticalExtent, float zNear, float zFar) {
    setOrthographic(verticalExtent * aspect(), verticalExtent, zNear, zFar);
}

void Camera::setProjection(const Eigen::Matrix4f& projection, float zNear, float zFar, bool fixed) {
    requireFinite({zNear, zFar});
    require(projection.allFinite() && projection.cast<double>().determinant() != 0.0,
            "a projection matrix that is not finite or has no inverse");
    mZNear = zNear;
    mZFar = zFar;
    mKind = ProjectionKind::Custom;
    mHasDepthRange = false;
    mCustomFixed = fixed;
    mSetAspect = aspectOf(mViewport);
    mCustomXRow = {projection(0, 0), projection(0, 1)};
    if (projection(3, 3) != 0.0f) {
        mHorizontalExtent = std::abs(2.0f * projection(3, 3) / projection(0, 0));
        mVerticalExtent = std::abs(2.0f * projection(3, 3) / projection(1, 1));
        mSetHorizontalExtent = mHorizontalExtent;
    } else {
        mFovY = 2.0f * std::atan(std::abs(projection(3, 2) / projection(1, 1)));
        mOffCenterX = projection(0, 2);
        mOffCenterY = projection(1, 2);
    }
    storeProjection(projection);
}

void Camera::buildPerspective() {
    mHasDepthRange = true;
    const float yScale = std::cos(mFovY / 2.0f) / std::sin(mFovY / 2.0f);
    const DepthTerms depth = DepthTerms::perspective(mZNear, mZFar, mZBufferReversed, 1.0f);
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
    mHasDepthRange = true;
    const DepthTerms depth = DepthTerms::orthographic(mZNear, mZFar, mZBufferReversed, 1.0f);
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
