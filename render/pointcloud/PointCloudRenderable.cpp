#include <render/pointcloud/PointCloudRenderable.h>

#include <render/pointcloud/BrightnessAndContrast.h>
#include <render/pointcloud/LocationPalette.h>
#include <render/pointcloud/PointCloudGpu.h>
#include <render/pointcloud/PointCloudStreamer.h>

#include <stdexcept>

namespace Render {

namespace {

constexpr float pointSizeFactor = 5.1f;

}  // namespace

std::shared_ptr<PointCloudRenderable> PointCloudRenderable::create(const Octree::Location& location,
                                                                   const std::string& name,
                                                                   std::size_t budget, double unitScale) {
    return std::make_shared<PointCloudRenderable>(Private(), location, name, budget, unitScale);
}

std::shared_ptr<PointCloudRenderable> PointCloudRenderable::create(std::shared_ptr<Octree::Octree> octree,
                                                                   const std::string& name,
                                                                   std::size_t budget) {
    return std::make_shared<PointCloudRenderable>(Private(), std::move(octree), name, budget);
}

PointCloudRenderable::PointCloudRenderable(Private, const Octree::Location& location, const std::string& name,
                                           std::size_t budget, double unitScale)
    : PointCloudRenderable(Private(), std::make_shared<Octree::Octree>(location, unitScale), name, budget) {}

PointCloudRenderable::PointCloudRenderable(Private, std::shared_ptr<Octree::Octree> octree,
                                           const std::string& name, std::size_t budget)
    : Renderable(name),
      mOctree(std::move(octree)),
      mUniformColor(LocationPalette::instance().color(mOctree->location())),
      mUnitScale(mOctree->unitScale()),
      mStreamer(std::make_shared<PointCloudStreamer>(mOctree, budget)) {
    const WalkParameters parameters = mStreamer->parameters();
    mConstants.uniformColor = mUniformColor.toFloats();
    mConstants.tomographicColor = Math::Color::black(255).toFloats();
    mConstants.distancePlane = {parameters.plane.normal.x(), parameters.plane.normal.y(),
                                parameters.plane.normal.z(), parameters.plane.offset};
    mConstants.pointSize = defaultPointSize();
    mConstants.maxPointSize = 5.0f;
    mConstants.rootNodeSize = boundingCube().size().x();
    mConstants.tomoContrast = 0.01f;
    mConstants.modelScale = 1.0f;
    mConstants.maxDistance = 1.0f;
    mConstants.minDistancePassFail = -0.5f;
    mConstants.maxDistancePassFail = 0.5f;
    mConstants.minDistanceWarn = -0.25f;
    mConstants.maxDistanceWarn = 0.25f;
    mConstants.useSignedDistance = 1;
}

PointCloudRenderable::~PointCloudRenderable() {
    mStreamer->detach();
}

void PointCloudRenderable::addExternalAttributeLocation(const Octree::Location& location) const {
    mOctree->addExternalAttributeLocation(location);
    mStreamer->onOctreeChanged();
}

std::shared_ptr<VertexContainerCache> PointCloudRenderable::createOrGetSharedVertexContainerCache(
    const Octree::Location& location, double unitScale, std::size_t capacity, std::size_t expectedEntries) {
    return Render::createOrGetSharedVertexContainerCache(location, unitScale, capacity, expectedEntries);
}

std::shared_ptr<MeshDistanceCache> PointCloudRenderable::createOrGetSharedMeshDistanceCache(
    const Octree::Location& location, double unitScale, std::size_t capacity) {
    return Render::createOrGetSharedMeshDistanceCache(location, unitScale, capacity);
}

void PointCloudRenderable::init(std::size_t rendererId, std::shared_ptr<Camera> camera,
                                ATL::CComPtr<ID3D11Device> device,
                                ATL::CComPtr<ID3D11DeviceContext> deviceContext) {
    if (mGpu) {
        throw std::runtime_error("Error init was called on an already initialized PointCloudRenderable");
    }
    mGpu = std::make_unique<PointCloudGpu>(std::move(device), std::move(deviceContext));
    mCamera = std::move(camera);
    mPublicationPending = false;
    mStreamer->attach(rendererId, id(), mCamera, [this] { setNeedsRedraw(true); });
    updateWorldMatrix();
    updateCameraConstants();
    mConstantsDirty = true;
}

void PointCloudRenderable::deinit() {
    mStreamer->detach();
    mGpu.reset();
    mCamera.reset();
}

void PointCloudRenderable::render() {
    Renderable::render();
    followUnitScale();
    if (!mGpu || !visible()) {
        return;
    }
    try {
        drawFrame();
    } catch (...) {
        setNeedsRedraw(true);
        throw;
    }
}

void PointCloudRenderable::skipRender() {
    followUnitScale();
    Renderable::skipRender();
    if (mGpu && !visible() && mStreamer->acquirePublication()) {
        mGpu->takeOver(mStreamer->publication());  // It is empty, which gives the points' memory back.
    }
}

bool PointCloudRenderable::needsRedraw() const {
    return Renderable::needsRedraw() || mUnitScale != mOctree->unitScale();
}

void PointCloudRenderable::drawFrame() {
    mPublicationPending = mStreamer->acquirePublication() || mPublicationPending;
    if (mPublicationPending) {
        mGpu->takeOver(mStreamer->publication());
        mPublicationPending = false;
    }
    if (mConstantsDirty) {
        mGpu->setConstants(mConstants);
        mConstantsDirty = false;
    }
    mGpu->draw();
    if (mShowBoundingBoxes) {
        mGpu->drawBoundingBoxes(mUniformColor);
    }
}

void PointCloudRenderable::reloadPoints(std::function<void()> onProgress, std::size_t maxLevel,
                                        std::stop_token stop) {
    mStreamer->reloadPoints(std::move(onProgress), maxLevel, std::move(stop));
}

void PointCloudRenderable::reloadPoints(void (*onProgress)(), std::size_t maxLevel, std::stop_token stop) {
    reloadPoints(std::function<void()>(onProgress), maxLevel, std::move(stop));
}

void PointCloudRenderable::startAsyncReload(std::function<void()> onProgress, std::size_t maxLevel) {
    mStreamer->startAsyncReload(std::move(onProgress), maxLevel);
}

void PointCloudRenderable::startAsyncReload(void (*onProgress)(), std::size_t maxLevel) {
    startAsyncReload(std::function<void()>(onProgress), maxLevel);
}

void PointCloudRenderable::startAsyncReload(std::function<void()> onProgress, std::size_t maxLevel,
                                            std::function<void(std::exception_ptr)> onEnded) {
    mStreamer->startAsyncReload(std::move(onProgress), maxLevel, std::move(onEnded));
}

void PointCloudRenderable::stopAsyncReload() {
    mStreamer->stopAsyncReload();
}

bool PointCloudRenderable::isAsyncReloadActive() const {
    return mStreamer->isAsyncReloadActive();
}

bool PointCloudRenderable::isAsyncReloadHealthy(bool rethrow) const {
    return mStreamer->isAsyncReloadHealthy(rethrow);
}

bool PointCloudRenderable::isLoading() const {
    return mStreamer->isLoading();
}

LoadingProgress PointCloudRenderable::loadingProgress() const {
    return mStreamer->loadingProgress();
}

void PointCloudRenderable::waitUntilLoaded() {
    mStreamer->waitUntilIdle();
}

std::size_t PointCloudRenderable::budget() const {
    return mStreamer->budget();
}

void PointCloudRenderable::setBudget(std::size_t budget) {
    mStreamer->setBudget(budget);
}

PointCloudRenderable::UpdateInterval PointCloudRenderable::updateInterval() const {
    return mStreamer->updateInterval();
}

void PointCloudRenderable::setUpdateInterval(UpdateInterval interval) {
    mStreamer->setUpdateInterval(interval);
}

bool PointCloudRenderable::restartLoadingAfterCameraChange() const {
    return mStreamer->restartLoadingAfterCameraChange();
}

void PointCloudRenderable::setRestartLoadingAfterCameraChange(bool restart) {
    mStreamer->setRestartLoadingAfterCameraChange(restart);
}

float PointCloudRenderable::octreeNodePriorityThreshold() const {
    return mStreamer->priorityThreshold();
}

void PointCloudRenderable::setOctreeNodePriorityThreshold(float threshold) {
    mStreamer->setPriorityThreshold(threshold);
}

std::size_t PointCloudRenderable::minLevelToKeep() const {
    return mStreamer->minLevelToKeep();
}

void PointCloudRenderable::setMinLevelToKeep(std::size_t level) {
    mStreamer->setMinLevelToKeep(level);
}

std::size_t PointCloudRenderable::maxLevelToKeep() const {
    return mStreamer->maxLevelToKeep();
}

void PointCloudRenderable::setMaxLevelToKeep(std::size_t level) {
    mStreamer->setMaxLevelToKeep(level);
}

NodePriority PointCloudRenderable::boundingBoxPriority(std::size_t level,
                                                       const Math::NBoundingBox<float, 3>& box) const {
    return mStreamer->boundingBoxPriority(level, box);
}

void PointCloudRenderable::clearVisibleOctreeNodes() {
    mStreamer->clearVisibleOctreeNodes();
    setNeedsRedraw(true);
}

std::size_t PointCloudRenderable::numVisibleOctreeNodes() const {
    return mStreamer->publishedNodeCount();
}

std::size_t PointCloudRenderable::numVisiblePoints() const {
    return mStreamer->publishedPointCount();
}

std::size_t PointCloudRenderable::uploadedPointBytes() const {
    return mGpu ? mGpu->uploadedPointBytes() : 0;
}

Math::NBoundingBox<float, 3> PointCloudRenderable::boundingBox() {
    return mOctree->boundingBox();
}

Math::NBoundingBox<float, 3> PointCloudRenderable::boundingCube() const {
    return mOctree->boundingCube();
}

Math::NBoundingBox<float, 3> PointCloudRenderable::boundingCube(Octree::OctreeNodeId id) const {
    return mOctree->boundingCube(id);
}

Math::Point<double, 3> PointCloudRenderable::referencePosition() const {
    return mOctree->referencePosition();
}

float PointCloudRenderable::spacing(std::size_t level) const {
    return mOctree->spacing(level);
}

double PointCloudRenderable::unitScale() const {
    return mOctree->unitScale();
}

float PointCloudRenderable::defaultPointSize() const {
    return mOctree->spacing(0) * pointSizeFactor;
}

void PointCloudRenderable::brightnessAndContrast(float lower, float upper, float& brightness,
                                                 float& contrast) {
    BrightnessAndContrast result;
    if (const auto& prioritizer = mStreamer->prioritizer()) {
        result = stretchColors(prioritizer->residentVertices(id()), lower, upper);
    }
    brightness = result.brightness;
    contrast = result.contrast;
}

std::shared_ptr<PointCloudQuery> PointCloudRenderable::createPointCloudQuery(
    IFilter* filter, std::size_t maxLevel, float minSpacing, std::chrono::nanoseconds timeLimit) {
    const PointCloudStreamer::QueryAccess access = mStreamer->queryAccess();
    return std::make_shared<PointCloudQuery>(access.octree, access.cache, worldMatrix(), filter, maxLevel,
                                             minSpacing, timeLimit);
}

}  // namespace Render
