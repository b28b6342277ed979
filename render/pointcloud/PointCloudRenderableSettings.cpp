#include <render/pointcloud/PointCloudRenderable.h>
#include <render/pointcloud/PointCloudStreamer.h>

#include <Eigen/LU>
#include <stdexcept>
#include <string>

namespace Render {

template <class T>
bool PointCloudRenderable::setConstant(T& constant, const std::type_identity_t<T>& value) {
    if (constant == value) {
        return false;
    }
    constant = value;
    mConstantsDirty = true;
    return true;
}

void PointCloudRenderable::setRange(float& least, float& greatest, float newLeast, float newGreatest) {
    const bool leastChanged = setConstant(least, newLeast);
    if (setConstant(greatest, newGreatest) || leastChanged) {
        setNeedsRedraw(true);
    }
}

void PointCloudRenderable::setNotNegative(float& constant, float value, const char* name) {
    if (!(value >= 0.0f)) {
        throw std::invalid_argument(std::string(name) + " must be 0 or more");
    }
    if (setConstant(constant, value)) {
        setNeedsRedraw(true);
    }
}

void PointCloudRenderable::setUnitScale(double unitScale) {
    mStreamer->setUnitScale(unitScale);
    followUnitScale();
}

void PointCloudRenderable::followUnitScale() {
    const double unitScale = mOctree->unitScale();
    if (unitScale == mUnitScale) {
        return;
    }
    mUnitScale = unitScale;
    mStreamer->onOctreeChanged();
    setConstant(mConstants.pointSize, defaultPointSize());
    setConstant(mConstants.rootNodeSize, boundingCube().size().x());
    setNeedsRedraw(true);
}

void PointCloudRenderable::setMatrix(const Eigen::Matrix4f& matrix) {
    Renderable::setMatrix(matrix);  // Invalidates the world matrix, if it changes.
}

void PointCloudRenderable::invalidateWorldMatrix() {
    Renderable::invalidateWorldMatrix();
    updateWorldMatrix();
}

void PointCloudRenderable::updateWorldMatrix() {
    const Eigen::Matrix4f world = worldMatrix();
    mStreamer->setWorldMatrix(world);
    if (setConstant(mConstants.model, world)) {
        mConstants.invModel = world.inverse();
        mConstants.modelScale = world.col(0).head<3>().norm();
        updateClippingConstants();
        updateCameraConstants();
    }
}

void PointCloudRenderable::setClippingVolume(const std::vector<Math::HalfSpace<float, 3>>& halfSpaces) {
    if (halfSpaces.size() > maxClippingPlanes) {
        throw std::runtime_error("Error: volume contains too many clipping planes, plane count = " +
                                 std::to_string(halfSpaces.size()));
    }
    if (mStreamer->setClippingVolume(halfSpaces)) {
        updateClippingConstants();
        setNeedsRedraw(true);
    }
}

void PointCloudRenderable::updateClippingConstants() {
    std::array<std::array<float, 4>, maxClippingPlanes> planes{};
    const Math::ConvexPolytope<float, 3> volume = mStreamer->parameters().clippingVolume;
    for (std::size_t i = 0; i < volume.size(); ++i) {
        const Math::NPlane<float, 3>& plane = volume.halfSpaces()[i].plane;
        planes[i] = {plane.normal.x(), plane.normal.y(), plane.normal.z(), plane.offset};
    }
    setConstant(mConstants.clippingPlanes, planes);
}

Math::Frustum<float> PointCloudRenderable::frustumModelCs() const {
    return mStreamer->parameters().frustum;
}

void PointCloudRenderable::updateCameraConstants() {
    if (!mCamera) {
        return;
    }
    const Viewport& viewport = mCamera->viewport();
    setConstant(mConstants.view, mCamera->viewMatrix());
    setConstant(mConstants.proj, mCamera->projectionMatrix());
    setConstant(mConstants.nearDepth, mCamera->zNear());
    setConstant(mConstants.farDepth, mCamera->zFar());
    setConstant(mConstants.width, static_cast<float>(viewport.width()));
    setConstant(mConstants.height, static_cast<float>(viewport.height()));
    setConstant(mConstants.aspect, static_cast<float>(viewport.aspectRatio()));
    if (setConstant(mConstants.modelViewProj,
                    Eigen::Matrix4f(mCamera->viewProjectionMatrix() * mConstants.model))) {
        mConstants.invModelViewProj = mConstants.modelViewProj.inverse();
        mConstants.invViewProj = mCamera->invViewProjectionMatrix();
    }
}

float PointCloudRenderable::pointSize() const {
    return mConstants.pointSize;
}

void PointCloudRenderable::setPointSize(float size) {
    setNotNegative(mConstants.pointSize, size, "pointSize");
}

float PointCloudRenderable::maxPointSize() const {
    return mConstants.maxPointSize;
}

void PointCloudRenderable::setMaxPointSize(float size) {
    setNotNegative(mConstants.maxPointSize, size, "maxPointSize");
}

float PointCloudRenderable::tomographicContrast() const {
    return mConstants.tomoContrast;
}

void PointCloudRenderable::setTomographicContrast(float contrast) {
    setNotNegative(mConstants.tomoContrast, contrast, "tomographicContrast");
}

Math::Color PointCloudRenderable::uniformColor() const {
    return mUniformColor;
}

void PointCloudRenderable::setUniformColor(const Math::Color& color) {
    mUniformColor = color;
    if (setConstant(mConstants.uniformColor, color.toFloats())) {
        setNeedsRedraw(true);
    }
}

bool PointCloudRenderable::showBoundingBoxes() const {
    return mShowBoundingBoxes;
}

void PointCloudRenderable::setShowBoundingBoxes(bool show) {
    if (mShowBoundingBoxes != show) {
        mShowBoundingBoxes = show;
        setNeedsRedraw(true);
    }
}

void PointCloudRenderable::setSelected(bool selected) {
    Renderable::setSelected(selected);
    setConstant(mConstants.selected, std::int32_t{selected ? 1 : 0});
}

void PointCloudRenderable::setVisible(bool visible) {
    Renderable::setVisible(visible);
    mStreamer->setVisible(visible);
}

bool PointCloudRenderable::isTransparent() const {
    const auto mode = static_cast<RenderMode>(mConstants.pointRenderMode);
    return mode == RenderMode::TomographicDark || mode == RenderMode::TomographicBright;
}

std::optional<Math::Color> PointCloudRenderable::backgroundColor() {
    return isTransparent() ? std::optional(Math::Color::black(0)) : std::nullopt;
}

void PointCloudRenderable::onUpdateProjectionMatrix(const std::shared_ptr<Camera>&) {
    updateCameraConstants();
    mStreamer->onProjectionChanged();
}

void PointCloudRenderable::onUpdateViewMatrix(const std::shared_ptr<Camera>&) {
    updateCameraConstants();
    mStreamer->onViewChanged();
}

void PointCloudRenderable::onUpdateZRange(const std::shared_ptr<Camera>&) {
    updateCameraConstants();
    mStreamer->onZRangeChanged();
}

void PointCloudRenderable::onUpdateViewport(const std::shared_ptr<Camera>&) {
    updateCameraConstants();
    mStreamer->onProjectionChanged();
}

void PointCloudRenderable::onUpdateRenderMode(RenderMode renderMode) {
    setConstant(mConstants.pointRenderMode, static_cast<std::int32_t>(renderMode));
    mStreamer->setRenderMode(renderMode);
}

void PointCloudRenderable::onUpdateMeshForDistanceColorization(
    const std::shared_ptr<Math::TriangleMesh<float>>& mesh) {
    mStreamer->setMesh(mesh);
}

void PointCloudRenderable::onUpdatePlaneForDistanceColorization(const Math::NPlane<float, 3>& plane) {
    setConstant(mConstants.distancePlane,
                {plane.normal.x(), plane.normal.y(), plane.normal.z(), plane.offset});
    mStreamer->setPlane(plane);
}

void PointCloudRenderable::onUpdateColorMap(ColorMap colorMap) {
    if (setConstant(mConstants.colorMap, static_cast<std::int32_t>(colorMap))) {
        mStreamer->restart();
    }
}

void PointCloudRenderable::onUpdateUseSignedDistance(bool useSignedDistance) {
    setConstant(mConstants.useSignedDistance, std::int32_t{useSignedDistance ? 1 : 0});
    mStreamer->setUseSignedDistance(useSignedDistance);
}

void PointCloudRenderable::onUpdateColorMapRange(float minDistance, float maxDistance) {
    setConstant(mConstants.minDistance, minDistance);
    setConstant(mConstants.maxDistance, maxDistance);
    mStreamer->setColorMapRange(minDistance, maxDistance);
}

void PointCloudRenderable::onUpdatePassFailDistanceRange(float minDistance, float maxDistance) {
    setRange(mConstants.minDistancePassFail, mConstants.maxDistancePassFail, minDistance, maxDistance);
}

void PointCloudRenderable::onUpdateWarnDistanceRange(float minDistance, float maxDistance) {
    setRange(mConstants.minDistanceWarn, mConstants.maxDistanceWarn, minDistance, maxDistance);
}

void PointCloudRenderable::onUpdateTomographicColor(const Math::Color& color) {
    if (setConstant(mConstants.tomographicColor, color.toFloats())) {
        setNeedsRedraw(true);
    }
}

void PointCloudRenderable::onUpdateUseCloudColorsInTomographicRenderModes(bool useCloudColors) {
    if (setConstant(mConstants.useCloudColorsInTomographicRenderModes,
                    std::int32_t{useCloudColors ? 1 : 0})) {
        setNeedsRedraw(true);
    }
}

}  // namespace Render
