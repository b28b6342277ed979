#include <render/core/Camera.h>

#include <Eigen/Geometry>
#include <Eigen/LU>

// What a camera answers from its matrices.

namespace Render {

namespace {

constexpr float kPi = 3.1415927f;

Math::NPlane<double, 3> unitPlane(const Eigen::RowVector4d& row) {
    const double length = row.head<3>().norm();
    const Eigen::Vector3d normal = row.head<3>().transpose() / length;
    return {Math::Point<double, 3>(normal), row(3) / length};
}

Math::NPlane<float, 3> narrowed(const Math::NPlane<double, 3>& plane) {
    return {plane.normal.cast<float>(), static_cast<float>(plane.offset)};
}

}  // namespace

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
    return frustum(Eigen::Matrix4f::Identity());
}

Math::Frustum<float> Camera::frustum(const Eigen::Matrix4f& modelMatrix) const {
    return frustumOf(Eigen::Matrix4d::Identity(), modelMatrix.cast<double>());
}

Math::Frustum<float> Camera::scaledFrustum(float sx, float sy, float sz,
                                           const Eigen::Matrix4f& modelMatrix) const {
    Eigen::Matrix4d scaling = Eigen::Matrix4d::Identity();
    scaling(0, 0) = 1.0 / double{sx};
    scaling(1, 1) = 1.0 / double{sy};
    scaling(2, 2) = 1.0 / double{sz};
    scaling(2, 3) = 0.5 - 0.5 / double{sz};
    return frustumOf(scaling, modelMatrix.cast<double>());
}

// Without a reversed depth buffer, the projection's float elements place the far plane only to within
// percents of a far distance. Where the projection was built from it, the exact one takes its place.
Math::Frustum<float> Camera::frustumOf(const Eigen::Matrix4d& clipScaling,
                                       const Eigen::Matrix4d& model) const {
    const Eigen::Matrix4d modelView = mViewMatrix.cast<double>() * model;
    const Eigen::Matrix4d clip = clipScaling * mProjectionMatrix.cast<double>() * modelView;
    const auto exact = Math::Frustum<double>::fromMatrix(clip).planes();
    Math::Frustum<float>::Planes planes;
    for (size_t i = 0; i < planes.size(); ++i) {
        planes[i] = narrowed(exact[i]);
    }
    const bool isDepthScaled = clipScaling(2, 2) != 1.0;
    if (mHasDepthRange && !mZBufferReversed && !isDepthScaled) {
        const Eigen::RowVector4d beforeFar = modelView.row(2) + double{mZFar} * modelView.row(3);
        planes[5] = narrowed(unitPlane(beforeFar));
    }
    return Math::Frustum<float>(planes);
}

bool Camera::operator==(const Camera& other) const {
    return mViewMatrix == other.mViewMatrix && mProjectionMatrix == other.mProjectionMatrix &&
           mViewport == other.mViewport && mZBufferReversed == other.mZBufferReversed;
}

}  // namespace Render
