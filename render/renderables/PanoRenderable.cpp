#include <render/renderables/PanoGpu.h>
#include <render/renderables/PanoLoading.h>
#include <render/renderables/PanoRenderable.h>
#include <render/renderables/PanoTiles.h>

#include <Eigen/LU>
#include <chrono>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <thread>
#include <utility>

namespace Render {

static_assert(PanoRenderable::MAX_TILES_PER_LEVEL == maxPanoTilesPerLevel);

namespace {

constexpr std::chrono::milliseconds completionPollInterval(100);

// In double: far planes are some millions of near distances away.
Eigen::Matrix4f inverseOfProduct(const Eigen::Matrix4f& a, const Eigen::Matrix4f& b) {
    return (a.cast<double>() * b.cast<double>()).inverse().cast<float>();
}

}  // namespace

std::shared_ptr<PanoRenderable> PanoRenderable::create(
    const std::shared_ptr<Graphics::PanoramaLoader>& loader, std::string name) {
    return std::make_shared<PanoRenderable>(Private(), loader, std::move(name));
}

PanoRenderable::PanoRenderable(Private, std::shared_ptr<Graphics::PanoramaLoader> loader, std::string name)
    : Renderable(name),
      mTiles(
          std::make_shared<PanoTiles>(std::move(loader), std::move(name), [this] { setNeedsRedraw(true); })),
      mLoading(std::make_unique<PanoLoading>(mTiles)) {}

PanoRenderable::~PanoRenderable() {
    mLoading->stop();  // While everything that a callback may use is still there.
}

void PanoRenderable::init(std::size_t, std::shared_ptr<Camera> camera, ATL::CComPtr<ID3D11Device> device,
                          ATL::CComPtr<ID3D11DeviceContext> deviceContext) {
    const Graphics::PanoramaLoader* const loader = mTiles->loader().get();
    if (loader != nullptr) {
        PanoTiles::check(*loader);
    }
    const bool newDevice = !mGpu || !mGpu->belongsTo(device, deviceContext);
    if (newDevice) {
        mGpu.reset();  // Whatever happens, nothing is drawn on the old device again.
        mGpu = std::make_unique<PanoGpu>(std::move(device), std::move(deviceContext), loader);
        updateLoaderConstants();
    }
    updateModelConstants();
    onUpdateViewMatrix(camera);
    if (newDevice && std::exchange(mTilesOnDevice, false) && !mTiles->beginAnew() && isLoadingComplete()) {
        mLoading->start({});
    }
}

void PanoRenderable::updateLoaderConstants() {
    mConstants.maxColorLevelPerTile = {};
    mConstants.maxDepthLevelPerTile = {};
    mConstantsDirty = true;
    const Graphics::PanoramaLoader* const loader = mTiles->loader().get();
    if (loader == nullptr) {
        return;
    }
    mConstants.projectionType = loader->projectionKind();
    mConstants.colorLevels = static_cast<uint32_t>(loader->numColorLevels());
    mConstants.depthLevels = static_cast<uint32_t>(loader->numDepthLevels());
    mConstants.tileColumns = static_cast<uint32_t>(loader->tileColumns());
    mConstants.tileRows = static_cast<uint32_t>(loader->tileRows());
}

void PanoRenderable::deinit() {}

void PanoRenderable::render() {
    // First: a tile that arrives from here on asks for another frame.
    Renderable::render();
    if (!mTiles->loader() || !mGpu) {
        return;
    }
    try {
        updatePanoramaTextures();
        if (std::exchange(mConstantsDirty, false)) {
            mGpu->setConstants(mConstants);
        }
        mGpu->draw();
    } catch (...) {
        setNeedsRedraw(true);
        throw;
    }
    // A tile came between the choice of the planes and its upload, and may lie outside them.
    if (std::exchange(mPlanesAreAutomatic, false) && mTiles->haveDistancesChanged()) {
        setNeedsRedraw(true);
    }
}

void PanoRenderable::updatePanoramaTextures() {
    PanoTiles::Arrived arrived = mTiles->takeArrived();
    const auto upload = [this](const auto& tile, PanoConstants::Levels& finest) {
        const Graphics::PanoramaLoader& loader = *mTiles->loader();
        const std::size_t level = loader.level(tile.id);
        const std::size_t slice = loader.tileIndexWithinLevel(tile.id);
        mGpu->upload(level, slice, tile.image);
        mTilesOnDevice = true;
        if (finest[slice].value < level) {
            finest[slice].value = static_cast<uint32_t>(level);
            mConstantsDirty = true;
        }
    };
    try {
        for (const auto& tile : arrived.colors) {
            upload(tile, mConstants.maxColorLevelPerTile);
        }
        for (const auto& tile : arrived.depths) {
            upload(tile, mConstants.maxDepthLevelPerTile);
        }
    } catch (...) {
        mTiles->putBack(std::move(arrived));
        throw;
    }
}

Math::NBoundingBox<float, 3> PanoRenderable::boundingBox() {
    return std::as_const(*this).boundingBox();
}

Math::NBoundingBox<float, 3> PanoRenderable::boundingBox() const {
    return {};
}

void PanoRenderable::addZRangeNeeds(const Camera& camera, ZRangeNeeds& needs) {
    if (!mTiles->loader()) {
        return;
    }
    mPlanesAreAutomatic = true;
    mTiles->takeDistances().addZRangeNeeds(camera, mConstants.model, needs);
}

void PanoRenderable::setMatrix(const Eigen::Matrix4f& matrix) {
    Renderable::setMatrix(matrix);
    updateModelConstants();
    updateViewDirection();
}

void PanoRenderable::invalidateWorldMatrix() {
    Renderable::invalidateWorldMatrix();
    updateModelConstants();
}

void PanoRenderable::updateModelConstants() {
    mConstants.model = worldMatrix();
    mConstants.scale = mConstants.model.col(0).head<3>().norm();
    mConstants.inverseModelViewProjection = inverseOfProduct(mConstants.viewProjection, mConstants.model);
    mConstantsDirty = true;
}

void PanoRenderable::updateViewDirection() {
    const Eigen::Vector3f direction = invWorldMatrix().topLeftCorner<3, 3>() * mViewDirection;
    mTiles->setViewDirection(direction.squaredNorm() > 0.0f ? direction.normalized() : direction);
}

void PanoRenderable::updateCameraConstants(const Camera& camera) {
    mConstants.viewProjection = camera.viewProjectionMatrix();
    mConstants.inverseModelViewProjection = inverseOfProduct(mConstants.viewProjection, mConstants.model);
    mConstants.inverseModelView = inverseOfProduct(camera.viewMatrix(), mConstants.model);
    mConstants.zNear = camera.zNear();
    mConstants.zFar = camera.zFar();
    mConstantsDirty = true;
}

void PanoRenderable::onUpdateViewMatrix(const std::shared_ptr<Camera>& camera) {
    updateCameraConstants(*camera);
    mViewDirection = camera->viewDirection();
    updateViewDirection();
}

void PanoRenderable::onUpdateProjectionMatrix(const std::shared_ptr<Camera>& camera) {
    updateCameraConstants(*camera);
}

void PanoRenderable::onUpdateZRange(const std::shared_ptr<Camera>& camera) {
    updateCameraConstants(*camera);
}

void PanoRenderable::onUpdateViewport(const std::shared_ptr<Camera>& camera) {
    updateCameraConstants(*camera);
}

void PanoRenderable::onUpdateRenderMode(RenderMode) {}

Core::JobState PanoRenderable::loadPanoramaTiles() {
    return mLoading->load();
}

void PanoRenderable::startAsyncPanoramaTilesLoading(std::function<void()> onTileLoaded) {
    mLoading->start(std::move(onTileLoaded));
}

void PanoRenderable::startAsyncPanoramaTilesLoading(void (*onTileLoaded)()) {
    startAsyncPanoramaTilesLoading(std::function<void()>(onTileLoaded));
}

void PanoRenderable::stopAsyncPanoramaTilesLoading() {
    mLoading->stop();
}

Core::JobState PanoRenderable::loadingState() const {
    return mTiles->state();
}

bool PanoRenderable::isLoadingComplete() const {
    return mTiles->state() == Core::JobState::Completed;
}

bool PanoRenderable::isLoadingHealthy(bool rethrow) const {
    const std::exception_ptr error = mTiles->error();
    if (error && rethrow) {
        std::rethrow_exception(error);
    }
    return !error;
}

Core::JobState PanoRenderable::waitForLoadingEnd() const {
    if (mTiles->isCalledByRun()) {
        throw std::logic_error("A panorama's loading cannot be waited for by its own callback");
    }
    return mTiles->waitForEnd();
}

void PanoRenderable::waitForLoadingComplete() const {
    while (!isLoadingComplete()) {
        std::this_thread::sleep_for(completionPollInterval);
    }
}

}  // namespace Render
