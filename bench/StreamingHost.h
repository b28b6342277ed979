#pragma once

#include <octree/NodeSource.h>
#include <render/core/Camera.h>
#include <render/core/UploadAllowance.h>
#include <render/pointcloud/PointCloudStreamer.h>
#include <render/pointcloud/PointPool.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

/// A stretch of time in milliseconds.
class Stopwatch {
public:
    double milliseconds() const {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - mStart).count();
    }

private:
    std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};

/// What a source should wait for, as for a network.
struct Delays {
    std::chrono::milliseconds node{};       ///< Before each read of a node's points, stopped or not.
    std::chrono::milliseconds hierarchy{};  ///< Before the first look at each part of four levels.
};

/// Another source behind delays; knows what was read.
class SlowSource : public Octree::NodeSource {
public:
    explicit SlowSource(std::shared_ptr<Octree::NodeSource> source, Delays delays = {});

    const Octree::StoreFacts& storeFacts() const override { return mSource->storeFacts(); }
    bool nodeFacts(Octree::OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) override;
    int nodeVisibility(Octree::OctreeNodeId id) override { return mSource->nodeVisibility(id); }
    int nodeVisibility(Octree::OctreeNodeId id, const std::stop_token& stop) override {
        return mSource->nodeVisibility(id, stop);
    }
    bool readNode(Octree::OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                  const std::stop_token& stop) override;

    /// In the order in which they began.
    std::vector<Octree::OctreeNodeId> reads() const;
    size_t readCount() const { return mReadCount; }
    /// Reads that have begun and not ended.
    size_t underWay() const { return mUnderWay; }

private:
    bool knowsPartOf(Octree::OctreeNodeId id) const;

    const std::shared_ptr<Octree::NodeSource> mSource;
    const Delays mDelays;
    std::atomic<size_t> mReadCount{0};
    std::atomic<size_t> mUnderWay{0};
    mutable std::mutex mMutex;  ///< Guards the two below.
    std::vector<Octree::OctreeNodeId> mReads;
    std::set<Octree::OctreeNodeId> mKnownParts;
};

/// A host that shows one point cloud, without a device: copying into pages of main memory stands for sending
/// points to one. Hosts with one renderer id share a budget.
class StreamingHost {
public:
    StreamingHost(std::shared_ptr<Octree::NodeSource> source, size_t budget,
                  std::shared_ptr<Render::Camera> camera, size_t rendererId = newId());
    /// Of renderers and clouds.
    static size_t newId();
    /// For clouds whose points are not limited.
    static constexpr size_t NO_LIMIT = 1000000000;

    Render::PointCloudStreamer& streamer() { return mStreamer; }
    Octree::Octree& octree() { return *mOctree; }
    Render::Camera& camera() { return *mCamera; }
    /// All of the cloud, and all of its nodes wanted.
    void seeAll();
    void lookAt(const Math::Point<float, 3>& eye, const Math::Point<float, 3>& target);
    void start() { mStreamer.startAsyncReload({}, 21); }
    void complete();

    /// From now on a frame sends no more than a renderer would. For all hosts with one renderer id, once a
    /// frame.
    void beginFrame() { mAllowance->beginFrame(BYTES_A_FRAME); }
    /// Takes over what is published and not sent yet; true when that shows nodes that were not shown before.
    bool takeNews();
    /// Until there is news or nothing more will come; false for the latter.
    bool waitForNews();
    const std::vector<Octree::OctreeNodeId>& shown() const { return mShown; }
    size_t shownPoints() const { return mShownPoints; }
    /// Whether a walk that began now would want the node.
    bool wants(Octree::OctreeNodeId id) const;

private:
    struct Page {
        size_t capacity = 0;
        std::unique_ptr<std::byte[]> memory;
    };

    static constexpr size_t BYTES_A_FRAME = 40000000;  // As a renderer's default.

    void send(Render::PublishedNodes& published);

    const std::shared_ptr<Octree::Octree> mOctree;
    const std::shared_ptr<Render::Camera> mCamera;
    Render::PointPool mPool{1U << 20U};
    std::vector<Page> mPages;
    const size_t mInstanceId;
    const std::shared_ptr<Render::UploadAllowance> mAllowance;
    bool mHasMoreToSend = false;
    std::vector<Octree::OctreeNodeId> mShown;  ///< In order.
    size_t mShownPoints = 0;
    Render::PointCloudStreamer mStreamer;
};
