#include <render/pointcloud/PointCloudStreamer.h>

#include <core/StoppableWait.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Render {

namespace {

constexpr std::size_t vertexCacheCapacity = 30000000;
constexpr std::size_t meshDistanceCacheCapacity = 1000;
constexpr std::size_t pointDataCacheCapacity = 2000000;
constexpr std::size_t expectedCacheEntries = 4000;

}  // namespace

PointCloudStreamer::PointCloudStreamer(std::shared_ptr<Octree::Octree> octree, std::size_t budget)
    : mOctree(std::move(octree)),
      mBudget(budget),
      mCaches(takeCaches()),
      mBuffers(std::make_unique<Core::TripleBuffer<PublishedNodes>>()) {}

PointCloudStreamer::~PointCloudStreamer() {
    detach();
}

PointCloudStreamer::WalkTurn::WalkTurn(PointCloudStreamer& streamer, std::stop_token stop)
    : mStreamer(streamer), mStop(std::move(stop)) {
    std::unique_lock lock(mStreamer.mWalkMutex);
    mHasCome =
        Core::waitUnlessStopped(mStreamer.mWalkEnded, lock, mStop, [this] { return !mStreamer.mIsWalking; });
    mStreamer.mIsWalking = true;
}

PointCloudStreamer::WalkTurn::~WalkTurn() {
    if (!mHasCome) {
        return;
    }
    if (mStop.stop_requested()) {
        mStreamer.mWalk.pause();
    } else {
        mStreamer.mWalk.end();
    }
    {
        const std::lock_guard lock(mStreamer.mWalkMutex);
        mStreamer.mIsWalking = false;
    }
    mStreamer.mWalkEnded.notify_all();
}

void PointCloudStreamer::attach(std::size_t rendererId, std::size_t instanceId,
                                std::shared_ptr<const Camera> camera, std::function<void()> onPublished) {
    mCamera = std::move(camera);
    mInstanceId = instanceId;
    mOnPublished = std::move(onPublished);
    mBuffers = std::make_unique<Core::TripleBuffer<PublishedNodes>>();
    change([this](WalkParameters& parameters) { updateCamera(parameters); });
    mPrioritizer = NodePrioritizer::shared(rendererId, mBudget);
    // What others evict, and room that others leave, is for a walk to see to.
    mPrioritizer->addUser(mInstanceId, mBudget, [this](const BudgetNews&) { restartFromAnyThread(); });
}

void PointCloudStreamer::detach() {
    stopAsyncReload();
    if (mPrioritizer) {
        mPrioritizer->removeUser(mInstanceId);  // No news comes after this.
        mPrioritizer.reset();
    }
    mCamera.reset();
    mOnPublished = nullptr;
    mBuffers = std::make_unique<Core::TripleBuffer<PublishedNodes>>();
    mPublishedNodeCount = 0;
    mPublishedPointCount = 0;
    mProgress.setResident({});
}

void PointCloudStreamer::reloadPoints(std::function<void()> onProgress, std::size_t maxLevel,
                                      std::stop_token stop) {
    const struct AtRest {
        ~AtRest() { progress.clearWanted(); }
        LoadingProgressMeter& progress;
    } atRest{mProgress};
    walk(onProgress, maxLevel, stop);
}

void PointCloudStreamer::walk(const std::function<void()>& onProgress, std::size_t maxLevel,
                              const std::stop_token& stop) {
    if (!isAttached()) {
        throw std::runtime_error("reloadingPoints is not allowed if PointCloudRenderable is not initialized");
    }
    const WalkTurn turn(*this, stop);
    if (!turn.hasCome()) {
        return;
    }
    if (updateCaches()) {
        mPrioritizer->clear(mInstanceId);
    }
    beginWalk(maxLevel, stop);
    // Nodes may have come, gone or changed sides of the threshold since the last publication: in a walk that
    // was stopped, through another point cloud, or just now.
    bool changed = mPrioritizer->hasUnpublishedChanges(mInstanceId);
    while (!mWalk.isDone()) {
        if (stop.stop_requested()) {
            return;
        }
        if (changed && isPublicationDue()) {
            publish();
            if (onProgress) {
                onProgress();
            }
            changed = false;
            if (stop.stop_requested()) {
                return;  // The callback may have detached this.
            }
        }
        changed = mWalk.visitNext(stop) || changed;
    }
    if (stop.stop_requested()) {
        return;
    }
    mWalk.reportProgress(NodePriority::keep());
    if (changed) {
        publish();
        if (onProgress) {
            onProgress();
        }
    }
    if (std::exception_ptr error = mWalk.takeError()) {
        std::rethrow_exception(std::move(error));
    }
}

void PointCloudStreamer::beginWalk(std::size_t maxLevel, const std::stop_token& stop) {
    // Before the rest is copied: a change that also clears then makes every offer of this walk stale.
    const std::uint64_t generation = mPrioritizer->generation(mInstanceId);
    NodeWalk::Basis basis;
    {
        const std::lock_guard lock(mParametersMutex);
        basis = {{mCaches.octree, mCaches.vertices, mCaches.meshDistances, mParameters.mesh,
                  mParameters.meshGroup, mParameters.modelScale},
                 mParameters,
                 maxLevel};
    }
    if (basis.parameters.mesh) {
        basis.parameters.mesh->get();  // Here it may take its time: the rating below runs under a lock.
    }
    mPrioritizer->rerate(mInstanceId, stop, [&basis](Octree::OctreeNodeId id, const auto& cube) {
        return basis.rate(id, cube);
    });
    mWalk.begin(mPrioritizer, mInstanceId, generation, std::move(basis), stop);
}

// The clock is the cloud's, not the walk's: a view that keeps changing restarts walks faster than any of them
// could publish by a clock of its own. What shows nothing has nothing to wait for.
bool PointCloudStreamer::isPublicationDue() const {
    const std::lock_guard lock(mPublishMutex);
    return mPublishedNodeCount == 0 || std::chrono::steady_clock::now() - mLastPublication > updateInterval();
}

void PointCloudStreamer::publish(bool keepsPicture) {
    {
        const std::lock_guard lock(mPublishMutex);
        const NodePrioritizer::Counts counts = mPrioritizer->updateBuffers(mInstanceId, false, *mBuffers);
        mPublishedNodeCount = counts.nodes;
        mPublishedPointCount = counts.points;
        mProgress.setResident(counts);
        mLastPublication = std::chrono::steady_clock::now();
        mKeepsPicture = keepsPicture;
    }
    if (mOnPublished) {
        mOnPublished();
    }
}

bool PointCloudStreamer::acquirePublication() {
    if (mKeepsPicture || !mBuffers->hasNewer()) {
        return false;
    }
    mBuffers->readSlot().dropVertices();
    return mBuffers->swapRead();
}

PointCloudStreamer::Caches PointCloudStreamer::takeCaches() const {
    std::shared_ptr<Octree::Octree> octree = mOctree->snapshot();
    const Octree::CacheIdentifier identifier = octree->cacheIdentifier();
    return {identifier, std::move(octree),
            createOrGetSharedVertexContainerCache(identifier, vertexCacheCapacity, expectedCacheEntries),
            createOrGetSharedMeshDistanceCache(identifier, meshDistanceCacheCapacity),
            createOrGetSharedPointDataCache(identifier, pointDataCacheCapacity, expectedCacheEntries)};
}

bool PointCloudStreamer::updateCaches() {
    const std::lock_guard lock(mParametersMutex);
    if (mCaches.identifier == mOctree->cacheIdentifier()) {
        return false;
    }
    mCaches = takeCaches();
    return true;
}

std::shared_ptr<VertexContainerCache> PointCloudStreamer::vertexCache() const {
    const std::lock_guard lock(mParametersMutex);
    return mCaches.vertices;
}

PointCloudStreamer::QueryAccess PointCloudStreamer::queryAccess() const {
    const std::lock_guard lock(mParametersMutex);
    const Caches caches = mCaches.identifier == mOctree->cacheIdentifier() ? mCaches : takeCaches();
    return {caches.octree, caches.pointData};
}

void PointCloudStreamer::startAsyncReload(std::function<void()> onProgress, std::size_t maxLevel,
                                          EndedCallback onEnded) {
    if (mLoader) {
        return;
    }
    {
        const std::lock_guard lock(mErrorMutex);
        mError = nullptr;
    }
    mCallbacks = {std::move(onProgress), std::move(onEnded)};
    mMaxLevel = maxLevel;
    createLoader();
}

// Under the lock from before the thread starts: a callback of its first walk may already destroy the loader.
void PointCloudStreamer::createLoader() {
    const std::lock_guard lock(mLoaderMutex);
    mLoader = std::make_unique<Core::BackgroundThread>(
        [this, weak = weak_from_this(), isShared = !weak_from_this().expired()](const std::stop_token& stop) {
            const std::shared_ptr<PointCloudStreamer> alive = weak.lock();
            if (alive || !isShared) {
                runLoader(stop);
            }
        });
}

void PointCloudStreamer::stopAsyncReload() {
    destroyLoader();
    mCallbacks = {};  // They may hold the owner of this.
    mProgress.clearWanted();
    const std::lock_guard lock(mWalkMutex);
    if (!mIsWalking) {
        mWalk.end();
    }
}

void PointCloudStreamer::destroyLoader() {
    std::unique_ptr<Core::BackgroundThread> loader;
    {
        const std::lock_guard lock(mLoaderMutex);
        loader.swap(mLoader);
    }
}

void PointCloudStreamer::restartFromAnyThread() {
    const std::lock_guard lock(mLoaderMutex);
    if (mLoader && mVisible) {
        mLoader->restart();
    }
}

void PointCloudStreamer::runLoader(const std::stop_token& stop) {
    const Callbacks callbacks = mCallbacks;  // One of them may end the loader, which forgets its own.
    const bool walks = mVisible;
    std::exception_ptr error;
    try {
        if (walks) {
            walk(callbacks.onProgress, mMaxLevel, stop);
        } else {
            const WalkTurn turn(*this, stop);  // Ends what the last walk left.
            if (callbacks.onProgress) {
                callbacks.onProgress();
            }
        }
    } catch (...) {
        error = std::current_exception();
    }
    if (stop.stop_requested()) {
        return;
    }
    mProgress.clearWanted();
    {
        const std::lock_guard lock(mErrorMutex);
        mError = error;
    }
    if (callbacks.onEnded && (walks || error)) {
        callbacks.onEnded(error);
    }
}

bool PointCloudStreamer::isAsyncReloadHealthy(bool rethrow) const {
    if (!mLoader) {
        return true;
    }
    std::exception_ptr error;
    {
        const std::lock_guard lock(mErrorMutex);
        error = mError;
    }
    if (error && rethrow) {
        std::rethrow_exception(error);
    }
    return !error;
}

void PointCloudStreamer::waitUntilIdle() {
    if (mLoader) {
        mLoader->waitUntilIdle();
    }
}

}  // namespace Render
