#include <render/pointcloud/PointCloudStreamer.h>

#include <render/pointcloud/MeshDistances.h>
#include <render/pointcloud/NodeVertexPacking.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Render {

namespace {

constexpr std::size_t vertexCacheCapacity = 30000000;
constexpr std::size_t meshDistanceCacheCapacity = 1000;
constexpr std::size_t pointDataCacheCapacity = 2000000;
constexpr std::size_t expectedCacheEntries = 4000;

constexpr int hidden = 2;

constexpr auto lessImportant = [](const auto& a, const auto& b) { return a.priority < b.priority; };

}  // namespace

PointCloudStreamer::PointCloudStreamer(std::shared_ptr<Octree::Octree> octree, std::size_t budget)
    : mOctree(std::move(octree)),
      mBudget(budget),
      mCaches(takeCaches()),
      mBuffers(std::make_unique<Core::TripleBuffer<PublishedNodes>>()) {}

PointCloudStreamer::~PointCloudStreamer() {
    detach();
}

PointCloudStreamer::Walk::Walk(PointCloudStreamer& streamer, const std::stop_token& stop)
    : mStreamer(streamer) {
    std::unique_lock lock(mStreamer.mWalkMutex);
    mHasBegun = mStreamer.mWalkEnded.wait(lock, stop, [this] { return !mStreamer.mIsWalking; });
    mStreamer.mIsWalking = true;
}

PointCloudStreamer::Walk::~Walk() {
    if (!mHasBegun) {
        return;
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
}

void PointCloudStreamer::reloadPoints(std::function<void()> onProgress, std::size_t maxLevel,
                                      std::stop_token stop) {
    if (!isAttached()) {
        throw std::runtime_error("reloadingPoints is not allowed if PointCloudRenderable is not initialized");
    }
    const Walk walk(*this, stop);
    if (!walk.hasBegun()) {
        return;
    }
    if (updateCaches()) {
        mPrioritizer->clear(mInstanceId);
    }
    // Before the rest is copied: a change that also clears then makes every offer of this walk stale.
    const std::uint64_t generation = mPrioritizer->generation(mInstanceId);
    const std::shared_ptr<const Octree::Octree> octree = cachedOctree();
    const WalkParameters parameters = this->parameters();
    if (parameters.mesh) {
        parameters.mesh->get();  // Here it may take its time: the rating below runs under a lock.
    }
    mPrioritizer->rerate(mInstanceId, stop, [&](Octree::OctreeNodeId id, const auto& cube) {
        return rate(parameters, id, cube);
    });
    // Nodes may have come, gone or changed sides of the threshold since the last publication: in a walk that
    // was stopped, through another point cloud, or just now.
    bool changed = mPrioritizer->hasUnpublishedChanges(mInstanceId);

    // A node that cannot be read costs that node and those below it; the rest is loaded and shown.
    std::exception_ptr firstError;
    mHeap.clear();
    pushPending({{}, NodePriority::keep(), octree->boundingCube()});
    while (!mHeap.empty()) {
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
        const PendingNode node = popPending();
        try {
            const NodePrioritizer::OfferResult offered =
                mPrioritizer->offer({mInstanceId, node.id}, node.cube, node.priority, *this, stop, generation,
                                    knownPointCount(*octree, node.id, stop));
            changed = changed || offered.changed;
            if (offered.resident && node.id.level() < maxLevel && !stop.stop_requested()) {
                pushChildren(*octree, parameters, node.id, stop);
            }
        } catch (...) {
            firstError = firstError ? firstError : std::current_exception();
        }
    }
    if (stop.stop_requested()) {
        return;
    }
    if (changed) {
        publish();
        if (onProgress) {
            onProgress();
        }
    }
    if (firstError) {
        std::rethrow_exception(firstError);
    }
}

// The clock is the cloud's, not the walk's: a view that keeps changing restarts walks faster than any of them
// could publish by a clock of its own. What shows nothing has nothing to wait for.
bool PointCloudStreamer::isPublicationDue() const {
    const std::lock_guard lock(mPublishMutex);
    return mPublishedNodeCount == 0 || std::chrono::steady_clock::now() - mLastPublication > updateInterval();
}

// The root is offered unrated, so that a point cloud never vanishes altogether; it must not do so later
// either.
NodePriority PointCloudStreamer::rate(const WalkParameters& parameters, Octree::OctreeNodeId id,
                                      const Math::NBoundingBox<float, 3>& cube) const {
    return id.isRoot() ? NodePriority::keep() : parameters.boundingBoxPriority(id.level(), cube);
}

void PointCloudStreamer::pushChildren(const Octree::Octree& octree, const WalkParameters& parameters,
                                      Octree::OctreeNodeId id, const std::stop_token& stop) {
    try {
        for (const Octree::OctreeNodeId child : octree.children(id, stop)) {
            if (octree.nodeVisibility(child, stop) == hidden) {
                continue;
            }
            const Math::NBoundingBox<float, 3> cube = octree.boundingCube(child);
            const NodePriority priority = rate(parameters, child, cube);
            if (priority > NodePriority::discard()) {
                pushPending({child, priority, cube});
            }
        }
    } catch (...) {
        if (!stop.stop_requested()) {
            std::throw_with_nested(std::runtime_error("Error loading point data"));
        }
    }
}

// Hidden points make it an upper bound. A host's source need not say it.
std::optional<std::size_t> PointCloudStreamer::knownPointCount(const Octree::Octree& octree,
                                                               Octree::OctreeNodeId id,
                                                               const std::stop_token& stop) {
    Octree::NodeFacts facts;
    try {
        if (octree.nodeFacts(id, facts, stop) && facts.pointCount > 0) {
            return static_cast<std::size_t>(facts.pointCount);
        }
    } catch (...) {
        if (!stop.stop_requested()) {
            std::throw_with_nested(std::runtime_error("Error loading point data"));
        }
    }
    return std::nullopt;
}

void PointCloudStreamer::pushPending(const PendingNode& node) {
    mHeap.push_back(node);
    std::push_heap(mHeap.begin(), mHeap.end(), lessImportant);
}

PointCloudStreamer::PendingNode PointCloudStreamer::popPending() {
    std::pop_heap(mHeap.begin(), mHeap.end(), lessImportant);
    const PendingNode node = mHeap.back();
    mHeap.pop_back();
    return node;
}

void PointCloudStreamer::publish(bool keepsPicture) {
    {
        const std::lock_guard lock(mPublishMutex);
        const NodePrioritizer::Counts counts = mPrioritizer->updateBuffers(mInstanceId, false, *mBuffers);
        mPublishedNodeCount = counts.nodes;
        mPublishedPointCount = counts.points;
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

bool PointCloudStreamer::fetchNodeVertices(Octree::OctreeNodeId id, VertexContainer& out,
                                           std::stop_token stop) {
    std::shared_ptr<Octree::Octree> octree;
    std::shared_ptr<VertexContainerCache> vertexCache;
    std::shared_ptr<MeshDistanceCache> distanceCache;
    std::shared_ptr<const ModelMesh> mesh;
    int group = 0;
    float scale = 1.0f;
    {
        const std::lock_guard lock(mParametersMutex);
        octree = mCaches.octree;
        vertexCache = mCaches.vertices;
        distanceCache = mCaches.meshDistances;
        mesh = mParameters.mesh;
        group = mParameters.meshGroup;
        scale = mParameters.modelScale;
    }
    const auto load = [&](VertexContainer& loaded) { return loadNodeVertices(*octree, id, loaded, stop); };
    if (!vertexCache->getOrLoad(id, out, load)) {
        return false;
    }
    return !mesh || updateMeshDistances(id, out, mesh->get(), scale, group, *distanceCache, stop);
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

std::shared_ptr<const Octree::Octree> PointCloudStreamer::cachedOctree() const {
    const std::lock_guard lock(mParametersMutex);
    return mCaches.octree;
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

void PointCloudStreamer::startAsyncReload(std::function<void()> onProgress, std::size_t maxLevel) {
    if (mLoader) {
        return;
    }
    {
        const std::lock_guard lock(mErrorMutex);
        mError = nullptr;
    }
    mOnProgress = std::move(onProgress);
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
    mOnProgress = nullptr;  // It may hold the owner of this.
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
    std::exception_ptr error;
    try {
        if (mVisible) {
            reloadPoints(mOnProgress, mMaxLevel, stop);
        } else if (mOnProgress) {
            mOnProgress();
        }
    } catch (...) {
        error = std::current_exception();
    }
    if (!stop.stop_requested()) {
        const std::lock_guard lock(mErrorMutex);
        mError = error;
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
