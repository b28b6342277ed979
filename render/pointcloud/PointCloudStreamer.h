#pragma once

#include <core/BackgroundThread.h>
#include <core/Mutex.h>
#include <core/TripleBuffer.h>
#include <math/HalfSpace.h>
#include <math/NPlane.h>
#include <math/TriangleMesh.h>
#include <octree/Octree.h>
#include <render/core/Camera.h>
#include <render/core/RenderMode.h>
#include <render/pointcloud/LoadingProgressMeter.h>
#include <render/pointcloud/NodeCaches.h>
#include <render/pointcloud/NodePrioritizer.h>
#include <render/pointcloud/NodeWalk.h>
#include <render/pointcloud/WalkParameters.h>

#include <Eigen/Core>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <vector>

namespace Render {

/// Decides which nodes of one point cloud are worth drawing and brings them in; everything of a point cloud's
/// life that needs no Direct3D.
///
/// A walk visits the octree from the root, most important node first, and offers each node to the prioritizer
/// that the point clouds of a renderer share; the children of nodes that become resident follow. Each update
/// interval the resident nodes are published through a triple buffer. A walk works on a copy of the
/// parameters taken at its start; whatever changes them ends with a restart of the loader, which never waits
/// for it.
///
/// Threads: one host thread owns the streamer and makes every call except where noted. The loader's thread
/// runs walks. Publications are read by the host's thread. The callbacks run on the thread of the walk, under
/// no lock, and must not start or stop the loader. They may drop the owner's last reference to a streamer
/// that is held by shared_ptr: it then lives until the walk has ended.
class PointCloudStreamer : public std::enable_shared_from_this<PointCloudStreamer> {
public:
    using Duration = std::chrono::duration<std::int64_t, std::ratio<1, 10000000>>;
    using EndedCallback = std::function<void(std::exception_ptr)>;

    /// `budget` counts points.
    PointCloudStreamer(std::shared_ptr<Octree::Octree> octree, std::size_t budget);
    ~PointCloudStreamer();
    PointCloudStreamer(const PointCloudStreamer&) = delete;
    PointCloudStreamer& operator=(const PointCloudStreamer&) = delete;

    /// Joins the point clouds of a renderer. `onPublished` is called after each publication. The camera is
    /// read here and by the setters, on the host's thread.
    void attach(std::size_t rendererId, std::size_t instanceId, std::shared_ptr<const Camera> camera,
                std::function<void()> onPublished);
    /// Stops the loader and leaves the prioritizer with all nodes.
    void detach();
    bool isAttached() const { return mPrioritizer != nullptr; }

    /// One walk on the calling thread, down to maxLevel; waits for a walk of the loader to end first. Returns
    /// quietly when `stop` is signalled. Throws std::runtime_error before attach() and "Error loading point
    /// data", with the cause nested inside, for the first node that cannot be loaded, after all others are
    /// loaded and published.
    void reloadPoints(std::function<void()> onProgress, std::size_t maxLevel, std::stop_token stop);

    /// The loader: walks now and after each restart. Nothing happens when there is one already. `onEnded` is
    /// called after each walk that was not cut short, last of all that the walk does, with null or its error.
    void startAsyncReload(std::function<void()> onProgress, std::size_t maxLevel,
                          EndedCallback onEnded = nullptr);
    /// Waits until the running walk has ended, and what it has loaded ahead.
    void stopAsyncReload();
    bool isAsyncReloadActive() const { return mLoader != nullptr; }
    /// False, or the stored error, while a loader exists whose last completed walk failed. A walk that a
    /// restart cut short leaves the answer as it is.
    bool isAsyncReloadHealthy(bool rethrow) const;
    /// Whether the loader walks or is about to.
    bool isLoading() const { return mLoader && mLoader->isRunning(); }
    /// Blocks until the loader has nothing to do.
    void waitUntilIdle();

    // Of the host's settings. A setter that changes nothing does nothing; one that throws has changed
    // nothing.
    std::size_t budget() const { return mBudget; }
    /// A smaller budget evicts at once, and publishes what is left; a larger one restarts the loaders that
    /// lack nodes.
    void setBudget(std::size_t budget);
    Duration updateInterval() const { return Duration(mUpdateInterval.load()); }
    /// Throws std::invalid_argument for 0 and less. May be called from any thread.
    void setUpdateInterval(Duration interval);
    bool restartLoadingAfterCameraChange() const { return mRestartAfterCameraChange; }
    void setRestartLoadingAfterCameraChange(bool restart) { mRestartAfterCameraChange = restart; }
    float priorityThreshold() const { return mParameters.threshold; }
    /// Throws std::invalid_argument for NaN.
    void setPriorityThreshold(float threshold);
    std::size_t minLevelToKeep() const { return mParameters.minLevelToKeep; }
    void setMinLevelToKeep(std::size_t level);
    std::size_t maxLevelToKeep() const { return mParameters.maxLevelToKeep; }
    void setMaxLevelToKeep(std::size_t level);
    bool visible() const { return mVisible; }
    void setVisible(bool visible);
    /// In world coordinates; false when they are the same as before. Throws std::invalid_argument for numbers
    /// that are not finite.
    bool setClippingVolume(const std::vector<Math::HalfSpace<float, 3>>& halfSpaces);
    /// Synchronous: waits until the running walk has ended. Throws std::invalid_argument for a scale that is
    /// not positive and finite.
    void setUnitScale(double unitScale);
    /// Follows a unit scale or external attributes that are new at the octree, whoever set them: what is
    /// shown is dropped and loaded anew.
    void onOctreeChanged();

    // Of the renderer's state.
    void onProjectionChanged();
    void onViewChanged();
    /// May be called with each frame: restarts only when the depth range is another one.
    void onZRangeChanged();
    void setWorldMatrix(const Eigen::Matrix4f& world);
    void setRenderMode(RenderMode renderMode);
    void setColorMapRange(float minDistance, float maxDistance);
    void setUseSignedDistance(bool useSignedDistance);
    /// In world coordinates, both.
    void setPlane(const Math::NPlane<float, 3>& plane);
    void setMesh(std::shared_ptr<const Math::TriangleMesh<float>> mesh);

    /// Drops and publishes nothing, then restarts the loader. While there is a loader to bring new nodes, the
    /// reader keeps what it has until then.
    void clearVisibleOctreeNodes();
    /// Has the loader walk again, if there is one and the point cloud is visible.
    void restart();

    /// As a walk that starts now would rate it.
    NodePriority boundingBoxPriority(std::size_t level, const Math::NBoundingBox<float, 3>& box) const;
    /// A copy, from any thread.
    WalkParameters parameters() const;
    /// Of the last publication, from any thread.
    std::size_t publishedNodeCount() const { return mPublishedNodeCount; }
    std::size_t publishedPointCount() const { return mPublishedPointCount; }
    /// From any thread. Nothing is wanted when nothing walks.
    LoadingProgress loadingProgress() const { return mProgress.read(); }
    /// Null before attach().
    const std::shared_ptr<NodePrioritizer>& prioritizer() const { return mPrioritizer; }
    std::shared_ptr<VertexContainerCache> vertexCache() const;

    /// What a query reads from: the octree as it is now, and the cache of that.
    struct QueryAccess {
        std::shared_ptr<Octree::Octree> octree;
        std::shared_ptr<PointDataCache> cache;
    };
    QueryAccess queryAccess() const;

    /// Takes over the newest publication; true when there was one that was not taken before. The reader may
    /// drop the vertices of the nodes in it; those of the last one are dropped here.
    bool acquirePublication();
    PublishedNodes& publication() { return mBuffers->readSlot(); }

private:
    struct Caches {
        Octree::CacheIdentifier identifier;
        /// What the caches are filled from: the octree as its identifier says, whatever is changed meanwhile.
        std::shared_ptr<Octree::Octree> octree;
        std::shared_ptr<VertexContainerCache> vertices;
        std::shared_ptr<MeshDistanceCache> meshDistances;
        std::shared_ptr<PointDataCache> pointData;
    };
    /// There is one walk at a time, and the next waits for its end.
    class WalkTurn {
    public:
        WalkTurn(PointCloudStreamer& streamer, std::stop_token stop);
        ~WalkTurn();
        WalkTurn(const WalkTurn&) = delete;
        WalkTurn& operator=(const WalkTurn&) = delete;

        /// False when it was stopped while it waited.
        bool hasCome() const { return mHasCome; }

    private:
        PointCloudStreamer& mStreamer;
        const std::stop_token mStop;
        bool mHasCome = false;
    };
    struct Callbacks {
        std::function<void()> onProgress;
        EndedCallback onEnded;
    };

    Caches takeCaches() const;
    /// Takes other caches if the octree has changed; false when it has not.
    bool updateCaches();
    void walk(const std::function<void()>& onProgress, std::size_t maxLevel, const std::stop_token& stop);
    void beginWalk(std::size_t maxLevel, const std::stop_token& stop);
    bool isPublicationDue() const;

    void createLoader();
    void destroyLoader();
    void restartFromAnyThread();
    void runLoader(const std::stop_token& stop);
    /// With keepsPicture the reader goes on with what it has until the next publication.
    void publish(bool keepsPicture = false);

    /// Applies a change to the parameters under their lock.
    template <class Change>
    void change(Change&& apply) {
        const std::lock_guard lock(mParametersMutex);
        apply(mParameters);
    }
    /// Sets one parameter; false when that changes nothing.
    template <class T>
    bool changeTo(T WalkParameters::*member, const T& value);
    // Bring what the parameters hold in model coordinates up to date. Under the lock.
    void updateCamera(WalkParameters& parameters) const;
    void updateModelClippingVolume(WalkParameters& parameters) const;
    void updateModelMesh(WalkParameters& parameters) const;

    const std::shared_ptr<Octree::Octree> mOctree;

    // Of the host's thread.
    std::shared_ptr<const Camera> mCamera;
    std::vector<Math::HalfSpace<float, 3>> mWorldHalfSpaces;
    std::shared_ptr<const Math::TriangleMesh<float>> mWorldMesh;
    std::size_t mBudget;
    bool mRestartAfterCameraChange = true;
    std::size_t mInstanceId = 0;
    std::function<void()> mOnPublished;
    Callbacks mCallbacks;  ///< Of the loader.
    std::size_t mMaxLevel = 0;
    std::shared_ptr<NodePrioritizer> mPrioritizer;  ///< Changes only while no walk can run.

    std::atomic<bool> mVisible{true};
    std::atomic<bool> mKeepsPicture{false};  ///< Until the next publication.
    std::atomic<Duration::rep> mUpdateInterval{5000000};
    std::atomic<std::size_t> mPublishedNodeCount{0};
    std::atomic<std::size_t> mPublishedPointCount{0};

    mutable std::mutex mParametersMutex;  ///< Guards the two below.
    WalkParameters mParameters;  ///< Written by the host's thread only, which reads without the lock.
    Caches mCaches;

    mutable std::mutex mPublishMutex;  ///< Held while the write slot of the buffers is in use.
    std::unique_ptr<Core::TripleBuffer<PublishedNodes>> mBuffers;
    std::chrono::steady_clock::time_point mLastPublication;  ///< Guarded by mPublishMutex.

    Core::Mutex mWalkMutex;  ///< Guards mIsWalking.
    Core::ConditionVariable mWalkEnded;
    bool mIsWalking = false;
    LoadingProgressMeter mProgress;
    NodeWalk mWalk{mProgress};  ///< Of who has the turn.

    mutable std::mutex mErrorMutex;  ///< Guards mError.
    std::exception_ptr mError;

    std::mutex mLoaderMutex;  ///< Held to change mLoader, and by other threads to look at it.
    std::unique_ptr<Core::BackgroundThread> mLoader;  ///< Last: joins before anything else goes.
};

}  // namespace Render
