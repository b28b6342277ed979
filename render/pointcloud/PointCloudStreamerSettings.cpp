#include <render/pointcloud/MeshDistances.h>
#include <render/pointcloud/PointCloudStreamer.h>

#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace Render {

namespace {

bool isFinite(const Math::HalfSpace<float, 3>& halfSpace) {
    const Math::NPlane<float, 3>& plane = halfSpace.plane;
    return plane.normal.vector().allFinite() && std::isfinite(plane.offset);
}

}  // namespace

template <class T>
bool PointCloudStreamer::changeTo(T WalkParameters::*member, const T& value) {
    if (mParameters.*member == value) {
        return false;
    }
    change([&](WalkParameters& parameters) { parameters.*member = value; });
    return true;
}

void PointCloudStreamer::setBudget(std::size_t budget) {
    const std::size_t before = std::exchange(mBudget, budget);
    if (budget == before || !isAttached()) {
        return;
    }
    mPrioritizer->setUserBudget(mInstanceId, budget);
    if (budget < before && mPrioritizer->hasUnpublishedChanges(mInstanceId)) {
        publish();
    }
}

void PointCloudStreamer::setUpdateInterval(Duration interval) {
    if (interval <= Duration::zero()) {
        throw std::invalid_argument("updateInterval must be larger than 0!");
    }
    mUpdateInterval = interval.count();
}

void PointCloudStreamer::setPriorityThreshold(float threshold) {
    if (std::isnan(threshold)) {
        throw std::invalid_argument("octreeNodePriorityThreshold must be a number");
    }
    if (changeTo(&WalkParameters::threshold, threshold)) {
        clearVisibleOctreeNodes();
    }
}

void PointCloudStreamer::setMinLevelToKeep(std::size_t level) {
    if (changeTo(&WalkParameters::minLevelToKeep, level)) {
        restart();
    }
}

void PointCloudStreamer::setMaxLevelToKeep(std::size_t level) {
    if (changeTo(&WalkParameters::maxLevelToKeep, level)) {
        restart();
    }
}

void PointCloudStreamer::setVisible(bool visible) {
    if (mVisible.exchange(visible) == visible) {
        return;
    }
    if (visible) {
        restart();
    } else {
        clearVisibleOctreeNodes();
        if (mLoader) {
            mLoader->restart();  // Ends what is under way.
        }
    }
}

bool PointCloudStreamer::setClippingVolume(const std::vector<Math::HalfSpace<float, 3>>& halfSpaces) {
    if (mWorldHalfSpaces == halfSpaces) {
        return false;
    }
    if (!std::all_of(halfSpaces.begin(), halfSpaces.end(), isFinite)) {
        throw std::invalid_argument("A clipping plane must be made of finite numbers");
    }
    mWorldHalfSpaces = halfSpaces;
    change([this](WalkParameters& parameters) { updateModelClippingVolume(parameters); });
    restart();
    return true;
}

void PointCloudStreamer::setUnitScale(double unitScale) {
    if (unitScale == mOctree->unitScale()) {
        return;
    }
    if (!(unitScale > 0.0) || !std::isfinite(unitScale)) {
        throw std::invalid_argument("unitScale must be positive and finite");
    }
    const bool wasLoading = mLoader != nullptr;
    destroyLoader();  // Its callback stays for the next one.
    {
        const WalkTurn noWalk(*this, {});
        const std::lock_guard lock(mParametersMutex);
        mCaches.vertices->clear();
        mCaches.meshDistances->clear();
        mOctree->setUnitScale(unitScale);
        mCaches = takeCaches();
    }
    clearVisibleOctreeNodes();  // There is no loader now: what is of another scale is not shown again.
    if (wasLoading) {
        createLoader();
    }
}

void PointCloudStreamer::onOctreeChanged() {
    if (updateCaches()) {
        clearVisibleOctreeNodes();
    }
}

void PointCloudStreamer::onProjectionChanged() {
    change([this](WalkParameters& parameters) { updateCamera(parameters); });
    restart();
}

void PointCloudStreamer::onViewChanged() {
    change([this](WalkParameters& parameters) { updateCamera(parameters); });
    if (mRestartAfterCameraChange) {
        restart();
    }
}

void PointCloudStreamer::onZRangeChanged() {
    const Math::Frustum<float> before = mParameters.frustum;
    change([this](WalkParameters& parameters) { updateCamera(parameters); });
    if (mParameters.frustum != before) {
        restart();
    }
}

void PointCloudStreamer::setWorldMatrix(const Eigen::Matrix4f& world) {
    if (mParameters.world == world) {
        return;
    }
    change([&](WalkParameters& parameters) {
        parameters.world = world;
        parameters.modelScale = world.col(0).head<3>().norm();
        updateCamera(parameters);
        updateModelClippingVolume(parameters);
        updateModelMesh(parameters);
    });
    clearVisibleOctreeNodes();
}

void PointCloudStreamer::setRenderMode(RenderMode renderMode) {
    if (changeTo(&WalkParameters::renderMode, renderMode)) {
        restart();
    }
}

void PointCloudStreamer::setColorMapRange(float minDistance, float maxDistance) {
    if (mParameters.minDistance == minDistance && mParameters.maxDistance == maxDistance) {
        return;
    }
    change([&](WalkParameters& parameters) {
        parameters.minDistance = minDistance;
        parameters.maxDistance = maxDistance;
    });
    restart();
}

void PointCloudStreamer::setUseSignedDistance(bool useSignedDistance) {
    if (changeTo(&WalkParameters::useSignedDistance, useSignedDistance)) {
        restart();
    }
}

void PointCloudStreamer::setPlane(const Math::NPlane<float, 3>& plane) {
    if (changeTo(&WalkParameters::plane, plane)) {
        restart();
    }
}

void PointCloudStreamer::setMesh(std::shared_ptr<const Math::TriangleMesh<float>> mesh) {
    if (mWorldMesh == mesh) {
        return;
    }
    mWorldMesh = std::move(mesh);
    change([this](WalkParameters& parameters) { updateModelMesh(parameters); });
    clearVisibleOctreeNodes();
}

void PointCloudStreamer::clearVisibleOctreeNodes() {
    if (!isAttached()) {
        return;
    }
    const bool isLoadedAnew = mLoader && mVisible;
    if (isLoadedAnew) {
        mProgress.startOver();
    } else {
        mProgress.clearWanted();
    }
    mPrioritizer->clear(mInstanceId);
    publish(isLoadedAnew);
    restart();
}

void PointCloudStreamer::restart() {
    if (mLoader && mVisible) {
        mLoader->restart();
    }
}

WalkParameters PointCloudStreamer::parameters() const {
    const std::lock_guard lock(mParametersMutex);
    return mParameters;
}

NodePriority PointCloudStreamer::boundingBoxPriority(std::size_t level,
                                                     const Math::NBoundingBox<float, 3>& box) const {
    return parameters().boundingBoxPriority(level, box);
}

void PointCloudStreamer::updateCamera(WalkParameters& parameters) const {
    if (!mCamera) {
        return;
    }
    parameters.frustum = mCamera->frustum(parameters.world);
    // In double: far from the origin, eye and translation nearly cancel out.
    parameters.eye =
        Math::transformPoint<double>(parameters.world.cast<double>().inverse(), mCamera->eye().cast<double>())
            .cast<float>();
    parameters.viewport = mCamera->viewport();
    parameters.fovY = mCamera->fovYRad();
    parameters.isOrthographic = mCamera->isOrthographic();
    parameters.projection = mCamera->projectionMatrix();
}

void PointCloudStreamer::updateModelClippingVolume(WalkParameters& parameters) const {
    parameters.clippingVolume =
        Math::ConvexPolytope<float, 3>(mWorldHalfSpaces).transformedBack(parameters.world);
}

void PointCloudStreamer::updateModelMesh(WalkParameters& parameters) const {
    if (!mWorldMesh && !parameters.mesh) {
        return;
    }
    mCaches.meshDistances->eraseGroup(parameters.meshGroup);
    parameters.meshGroup = nextMeshDistanceGroup();
    parameters.mesh = mWorldMesh ? ModelMesh::shared(mWorldMesh, parameters.world) : nullptr;
}

}  // namespace Render
