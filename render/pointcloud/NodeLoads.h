#pragma once

#include <core/LoadingQueue.h>
#include <octree/OctreeNodeId.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <unordered_map>

namespace Render {

/// The nodes that a walk or a query has the loading pool load, into caches where it finds them: the one that
/// it waits for and those that it will want next. A load that has begun outlives the walk that asked for it:
/// a view that keeps moving restarts walks faster than slow stores give nodes.
///
/// One thread at a time. What is asked for and not yet taken never exceeds a number of bytes.
class NodeLoads {
public:
    /// Loads a node into caches. Called on the pool's threads, several at a time.
    using Load = std::function<void(Octree::OctreeNodeId, const std::stop_token&)>;

    /// The pool is that of the process.
    explicit NodeLoads(std::size_t maxBytes) : mMaxBytes(maxBytes) {}
    NodeLoads(const NodeLoads&) = delete;
    NodeLoads& operator=(const NodeLoads&) = delete;
    /// As stop().
    ~NodeLoads();

    /// From now on add() has nodes loaded so, if it comes to that before the walk is stopped. Needed before
    /// the first add() and after stop().
    void setLoad(Load load, std::stop_token walkStop = {});
    /// Takes back what has not begun, and has what is under way go on only where `isWanted(id)`.
    template <class IsWanted>
    void keepOnly(IsWanted&& isWanted);
    /// Takes back all and waits for what is under way.
    void stop();

    /// False when the pool has none: who wants nodes loads them on its own thread then.
    bool hasThreads() { return window() > 0; }
    /// Whether more nodes are worth asking for to keep the pool busy.
    bool hasRoom();
    /// At the most half of what has room is asked for.
    bool isLow();
    bool contains(Octree::OctreeNodeId id) const { return mAsked.contains(id); }

    /// Asks for a node that will take so many bytes; 0 for one that is waited for. The more important, the
    /// sooner. False when it is asked for already, and when that fails: too many bytes, no memory, no
    /// threads.
    bool add(Octree::OctreeNodeId id, float importance, std::size_t bytes);
    /// Takes a node back; stops it where it is under way.
    void remove(Octree::OctreeNodeId id);
    /// Waits for the end of the node's load and takes it off; false when `stop` is signalled first. What the
    /// load has thrown passes through. True also for a node that is not asked for.
    bool take(Octree::OctreeNodeId id, const std::stop_token& stop);

private:
    class Shared;
    struct Asked {
        std::size_t bytes = 0;
        std::stop_source stop;
    };
    using AllAsked = std::unordered_map<Octree::OctreeNodeId, Asked>;

    const std::shared_ptr<Core::LoadingPool>& pool();
    std::size_t window();
    bool isUnderWay(Octree::OctreeNodeId id) const;
    AllAsked::iterator remove(AllAsked::iterator asked);
    AllAsked::iterator forget(AllAsked::iterator asked);

    const std::size_t mMaxBytes;
    std::shared_ptr<const Load> mLoad;
    std::stop_token mWalkStop;
    AllAsked mAsked;
    std::size_t mTotalBytes = 0;
    std::shared_ptr<Shared> mShared;           ///< With the tasks. Null before it is needed.
    std::shared_ptr<Core::LoadingPool> mPool;  ///< The same.
    std::optional<Core::LoadingQueue> mQueue;  ///< None before it is needed and after stop().
};

template <class IsWanted>
void NodeLoads::keepOnly(IsWanted&& isWanted) {
    for (auto asked = mAsked.begin(); asked != mAsked.end();) {
        if (isUnderWay(asked->first) && isWanted(asked->first)) {
            ++asked;
        } else {
            asked = remove(asked);
        }
    }
    if (mQueue) {
        mQueue->dropStopped();
    }
}

}  // namespace Render
