#include <render/core/Renderer.h>

#include <cmath>
#include <initializer_list>
#include <stdexcept>
#include <utility>

// The setters of Renderer: camera, display settings and colorization.

namespace Render {

namespace {

void refuseNotANumber(std::initializer_list<float> values) {
    for (const float value : values) {
        if (std::isnan(value)) {
            throw std::invalid_argument("Renderer: a setting that is not a number");
        }
    }
}

}  // namespace

template <class Change>
void Renderer::changeView(Change change) {
    const Eigen::Matrix4f before = mCamera->viewMatrix();
    change(*mCamera);
    if (mCamera->viewMatrix() == before) {
        return;
    }
    updateZRangeIfNeeded();
    tellView();
    mCamera->setNeedsRedraw(true);
}

// Compared after the automatic planes were fitted again: the same projection set again is none.
template <class Change>
void Renderer::changeProjection(Change change, bool followedByZRange) {
    const Eigen::Matrix4f before = mCamera->projectionMatrix();
    change(*mCamera);
    if (mCamera->projectionMatrix() == before) {
        return;
    }
    const bool isFitted = followedByZRange && fitZRangeIfNeeded();
    if (mCamera->projectionMatrix() == before) {
        return;
    }
    if (isFitted) {
        tellZRange();
    }
    tellProjection();
    mCamera->setNeedsRedraw(true);
}

void Renderer::tellView() {
    mToldView = mCamera->viewMatrix();
    if (mScene) {
        mScene->onUpdateViewMatrix(mCamera);
    }
}

void Renderer::tellProjection() {
    mToldProjection = mCamera->projectionMatrix();
    if (mScene) {
        mScene->onUpdateProjectionMatrix(mCamera);
    }
}

void Renderer::tellZRange() {
    mToldProjection = mCamera->projectionMatrix();
    if (mScene) {
        mScene->onUpdateZRange(mCamera);
    }
}

bool Renderer::isCameraTold() const {
    return mCamera->viewMatrix() == mToldView && mCamera->projectionMatrix() == mToldProjection &&
           hasTargetsOf(viewport().width(), viewport().height());
}

// Makes up for what a host has changed on the camera itself.
void Renderer::tellCamera() {
    if (isCameraTold()) {
        return;
    }
    const bool isViewNew = mCamera->viewMatrix() != mToldView;
    const bool isProjectionNew = mCamera->projectionMatrix() != mToldProjection;
    if (!hasTargetsOf(viewport().width(), viewport().height())) {
        resize(viewport().width(), viewport().height());
    }
    updateZRangeIfNeeded();
    if (isViewNew) {
        tellView();
    }
    if (isProjectionNew) {
        tellProjection();
    }
}

void Renderer::setCameraPose(const Math::Point<float, 3>& eye, const Eigen::Vector3f& viewDirection,
                             const Eigen::Vector3f& up) {
    changeView([&](Camera& camera) { camera.setPose(eye, viewDirection, up); });
}

void Renderer::setCameraPose(const Math::Point<float, 3>& eye, const Math::Point<float, 3>& target,
                             const Eigen::Vector3f& up) {
    changeView([&](Camera& camera) { camera.setPose(eye, target, up); });
}

void Renderer::setViewMatrix(const Eigen::Matrix4f& viewMatrix) {
    changeView([&](Camera& camera) { camera.setViewMatrix(viewMatrix); });
}

void Renderer::setPerspective(float fovYDeg, float zNear, float zFar, float offCenterX, float offCenterY) {
    changeProjection(
        [&](Camera& camera) { camera.setPerspective(fovYDeg, zNear, zFar, offCenterX, offCenterY); });
}

void Renderer::setPerspectiveOffCenter(float left, float right, float bottom, float top, float zNear,
                                       float zFar, bool fixed) {
    changeProjection([&](Camera& camera) {
        camera.setPerspectiveOffCenter(left, right, bottom, top, zNear, zFar, fixed);
    });
}

void Renderer::setOrthographic(float horizontalExtent, float verticalExtent, float zNear, float zFar) {
    changeProjection(
        [&](Camera& camera) { camera.setOrthographic(horizontalExtent, verticalExtent, zNear, zFar); });
}

void Renderer::setOrthographic(float verticalExtent, float zNear, float zFar) {
    const float width = static_cast<float>(viewport().width());
    const float height = static_cast<float>(viewport().height());
    setOrthographic(verticalExtent * width / height, verticalExtent, zNear, zFar);
}

void Renderer::setProjection(const Eigen::Matrix4f& projection, float zNear, float zFar, bool fixed) {
    changeProjection([&](Camera& camera) { camera.setProjection(projection, zNear, zFar, fixed); });
}

void Renderer::setZNearAndFarViaBoundingBox(const Math::NBoundingBox<float, 3>& box) {
    changeProjection([&](Camera& camera) { camera.setZNearAndFarViaBoundingBox(box); }, false);
}

Eigen::Matrix4f Renderer::modelViewProjectionMatrix() {
    return mCamera->viewProjectionMatrix() * Eigen::Matrix4f(mModelMatrix);
}

void Renderer::getZRange(float& zNear, float& zFar) const {
    zNear = mCamera->zNear();
    zFar = mCamera->zFar();
}

void Renderer::setModelMatrix(const Eigen::Matrix4f& modelMatrix) {
    if (modelMatrix == mModelMatrix) {
        return;
    }
    if (!modelMatrix.allFinite()) {
        throw std::invalid_argument("Renderer: a model matrix that is not finite");
    }
    mModelMatrix = modelMatrix;
    if (mScene) {
        mScene->setMatrix(modelMatrix);
    }
    mCamera->setNeedsRedraw(true);
}

void Renderer::setAutoAdjustZRange(bool autoAdjustZRange) {
    if (autoAdjustZRange == mAutoAdjustZRange) {
        return;
    }
    mAutoAdjustZRange = autoAdjustZRange;
    tellProjection();
    mCamera->setNeedsRedraw(true);
}

bool Renderer::fitZRangeIfNeeded() {
    if (!mAutoAdjustZRange) {
        return false;
    }
    ZRangeNeeds needs;
    if (mScene && mScene->visible()) {
        mScene->addZRangeNeeds(*mCamera, needs);
    }
    mCamera->fitZRange(boundingBox(), needs);
    return true;
}

void Renderer::updateZRangeIfNeeded() {
    if (fitZRangeIfNeeded()) {
        tellZRange();
    }
}

template <class Notify>
void Renderer::settingChanged(Notify notify) {
    if (mScene) {
        notify(*mScene);
    }
    mCamera->setNeedsRedraw(true);
}

void Renderer::setRenderMode(RenderMode renderMode) {
    if (renderMode == mRenderMode) {
        return;
    }
    mRenderMode = renderMode;
    mPostProcess.setRenderMode(renderMode);
    settingChanged([&](Renderable& scene) { scene.onUpdateRenderMode(renderMode); });
}

void Renderer::setColorMap(ColorMap colorMap) {
    if (colorMap == mColorMap) {
        return;
    }
    mColorMap = colorMap;
    settingChanged([&](Renderable& scene) { scene.onUpdateColorMap(colorMap); });
}

void Renderer::setColorMapRange(float minDistance, float maxDistance) {
    refuseNotANumber({minDistance, maxDistance});
    if (minDistance == mMinDistance && maxDistance == mMaxDistance) {
        return;
    }
    mMinDistance = minDistance;
    mMaxDistance = maxDistance;
    settingChanged([&](Renderable& scene) { scene.onUpdateColorMapRange(minDistance, maxDistance); });
}

void Renderer::setPassFailDistanceRange(float minDistance, float maxDistance) {
    refuseNotANumber({minDistance, maxDistance});
    if (minDistance == mMinDistancePassFail && maxDistance == mMaxDistancePassFail) {
        return;
    }
    mMinDistancePassFail = minDistance;
    mMaxDistancePassFail = maxDistance;
    settingChanged([&](Renderable& scene) { scene.onUpdatePassFailDistanceRange(minDistance, maxDistance); });
}

void Renderer::setWarnDistanceRange(float minDistance, float maxDistance) {
    refuseNotANumber({minDistance, maxDistance});
    if (minDistance == mMinDistanceWarn && maxDistance == mMaxDistanceWarn) {
        return;
    }
    mMinDistanceWarn = minDistance;
    mMaxDistanceWarn = maxDistance;
    settingChanged([&](Renderable& scene) { scene.onUpdateWarnDistanceRange(minDistance, maxDistance); });
}

void Renderer::setUseSignedDistance(bool useSignedDistance) {
    if (useSignedDistance == mUseSignedDistance) {
        return;
    }
    mUseSignedDistance = useSignedDistance;
    settingChanged([&](Renderable& scene) { scene.onUpdateUseSignedDistance(useSignedDistance); });
}

void Renderer::setPlaneForDistanceColorization(const Math::NPlane<float, 3>& plane) {
    refuseNotANumber({plane.normal.x(), plane.normal.y(), plane.normal.z(), plane.offset});
    if (plane == mPlaneForDistanceColorization) {
        return;
    }
    mPlaneForDistanceColorization = plane;
    settingChanged([&](Renderable& scene) { scene.onUpdatePlaneForDistanceColorization(plane); });
}

void Renderer::setMeshForDistanceColorization(std::shared_ptr<Math::TriangleMesh<float>> mesh) {
    if (mesh == mMeshForDistanceColorization) {
        return;
    }
    mMeshForDistanceColorization = std::move(mesh);
    settingChanged(
        [&](Renderable& scene) { scene.onUpdateMeshForDistanceColorization(mMeshForDistanceColorization); });
}

void Renderer::setTomographicColor(Math::Color color) {
    if (color == mTomographicColor) {
        return;
    }
    mTomographicColor = color;
    settingChanged([&](Renderable& scene) { scene.onUpdateTomographicColor(color); });
}

void Renderer::setUseCloudColorsInTomographicRenderModes(bool useCloudColors) {
    if (useCloudColors == mUseCloudColorsInTomographicRenderModes) {
        return;
    }
    mUseCloudColorsInTomographicRenderModes = useCloudColors;
    settingChanged(
        [&](Renderable& scene) { scene.onUpdateUseCloudColorsInTomographicRenderModes(useCloudColors); });
}

void Renderer::setBrightness(float brightness) {
    refuseNotANumber({brightness});
    if (brightness != mPostProcess.brightness()) {
        mPostProcess.setBrightness(brightness);
        mCamera->setNeedsRedraw(true);
    }
}

void Renderer::setContrast(float contrast) {
    refuseNotANumber({contrast});
    if (contrast != mPostProcess.contrast()) {
        mPostProcess.setContrast(contrast);
        mCamera->setNeedsRedraw(true);
    }
}

void Renderer::setOpacity(float opacity) {
    refuseNotANumber({opacity});
    if (opacity != mPostProcess.opacity()) {
        mPostProcess.setOpacity(opacity);
        mCamera->setNeedsRedraw(true);
    }
}

void Renderer::setColorizationRange(const Math::Point<float, 3>& from, const Math::Point<float, 3>& to,
                                    ColorMap) {
    const Eigen::Vector3f direction = (to - from).vector();
    const float length = direction.norm();
    const Eigen::Vector3f normal =
        length != 0.0f ? Eigen::Vector3f(direction / length) : Eigen::Vector3f::Zero();
    Math::NPlane<float, 3> plane;
    plane.normal = Math::Point<float, 3>(normal);
    plane.offset = -normal.dot(from.vector());
    setPlaneForDistanceColorization(plane);
    setColorMapRange(0.0f, length);
    mCamera->setNeedsRedraw(true);
}

void Renderer::autoAdjustBrightnessAndContrast(float lower, float upper) {
    if (!mScene) {
        return;
    }
    float brightness = 0.0f;
    float contrast = 1.0f;
    mScene->brightnessAndContrast(lower, upper, brightness, contrast);
    mPostProcess.setBrightness(brightness);
    mPostProcess.setContrast(contrast);
    mCamera->setNeedsRedraw(true);
}

}  // namespace Render
