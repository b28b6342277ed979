#include <render/pointcloud/NodeLoads.h>

#include <core/Mutex.h>
#include <core/StoppableWait.h>

#include <exception>
#include <mutex>
#include <utility>

namespace Render {

/// What the tasks tell of the nodes that are asked for.
class NodeLoads::Shared {
public:
    void add(Octree::OctreeNodeId id, const std::stop_source& stop) {
        const std::lock_guard lock(mMutex);
        mStates.insert_or_assign(id, State{.stop = stop});
    }

    void remove(Octree::OctreeNodeId id) {
        const std::lock_guard lock(mMutex);
        mStates.erase(id);
    }

    bool isUnderWay(Octree::OctreeNodeId id) const {
        const std::lock_guard lock(mMutex);
        const auto state = mStates.find(id);
        return state != mStates.end() && state->second.hasBegun;
    }

    void run(const Load& load, Octree::OctreeNodeId id, const std::stop_source& stop,
             const std::stop_token& walkStop) {
        if (walkStop.stop_requested() || !begin(id, stop)) {
            return;
        }
        std::exception_ptr error;
        try {
            load(id, stop.get_token());
        } catch (...) {
            error = std::current_exception();
        }
        end(id, stop, std::move(error));
    }

    bool waitForEnd(Octree::OctreeNodeId id, const std::stop_token& stop) {
        std::unique_lock lock(mMutex);
        return Core::waitUnlessStopped(mEnded, lock, stop, [&] { return mStates.at(id).hasEnded; });
    }

    void rethrowErrorOf(Octree::OctreeNodeId id) {
        std::exception_ptr error;
        {
            const std::lock_guard lock(mMutex);
            error = std::move(mStates.at(id).error);
        }
        if (error) {
            std::rethrow_exception(std::move(error));
        }
    }

private:
    struct State {
        std::stop_source stop;  ///< Tells the tasks of a node that was asked for twice.
        bool hasBegun = false;
        bool hasEnded = false;
        std::exception_ptr error = nullptr;
    };

    // Under the lock; null for a node that was taken back.
    State* find(Octree::OctreeNodeId id, const std::stop_source& stop) {
        const auto state = mStates.find(id);
        return state != mStates.end() && state->second.stop == stop ? &state->second : nullptr;
    }

    bool begin(Octree::OctreeNodeId id, const std::stop_source& stop) {
        const std::lock_guard lock(mMutex);
        State* const state = find(id, stop);
        if (state) {
            state->hasBegun = true;
        }
        return state != nullptr;
    }

    void end(Octree::OctreeNodeId id, const std::stop_source& stop, std::exception_ptr error) {
        {
            const std::lock_guard lock(mMutex);
            if (State* const state = find(id, stop)) {
                state->hasEnded = true;
                state->error = std::move(error);
            }
        }
        mEnded.notify_all();
    }

    mutable Core::Mutex mMutex;  ///< Guards mStates.
    Core::ConditionVariable mEnded;
    std::unordered_map<Octree::OctreeNodeId, State> mStates;
};

NodeLoads::~NodeLoads() {
    stop();
}

void NodeLoads::setLoad(Load load, std::stop_token walkStop) {
    mWalkStop = std::move(walkStop);
    mLoad = std::make_shared<const Load>(std::move(load));
    if (!mShared) {
        mShared = std::make_shared<Shared>();
    }
}

void NodeLoads::stop() {
    keepOnly([](Octree::OctreeNodeId) { return false; });
    mQueue.reset();
    mLoad.reset();
}

const std::shared_ptr<Core::LoadingPool>& NodeLoads::pool() {
    if (!mPool) {
        mPool = Core::LoadingPool::shared();
    }
    return mPool;
}

// All that may be decoded and waited for at a time, and what comes after that.
std::size_t NodeLoads::window() {
    const std::size_t threads = pool()->threadCount();
    return threads == 0 ? 0 : 2 * threads + Core::LoadingPool::MAX_WAITING_TASKS;
}

bool NodeLoads::hasRoom() {
    return mAsked.size() < window() && mTotalBytes < mMaxBytes;
}

bool NodeLoads::isLow() {
    return mAsked.size() <= window() / 2 && mTotalBytes <= mMaxBytes / 2;
}

bool NodeLoads::isUnderWay(Octree::OctreeNodeId id) const {
    return mShared->isUnderWay(id);
}

bool NodeLoads::add(Octree::OctreeNodeId id, float importance, std::size_t bytes) {
    if (contains(id) || bytes > mMaxBytes - mTotalBytes) {
        return false;
    }
    try {
        if (!mQueue) {
            mQueue.emplace(pool());
        }
        const auto asked = mAsked.try_emplace(id, Asked{bytes, {}}).first;
        mTotalBytes += bytes;
        try {
            const std::stop_source& stop = asked->second.stop;
            mShared->add(id, stop);
            mQueue->submit({.run = [shared = mShared, load = mLoad, id, stop, walkStop = mWalkStop](
                                       const std::stop_token&) { shared->run(*load, id, stop, walkStop); },
                            .stop = stop,
                            .priority = importance});
        } catch (...) {
            forget(asked);
            throw;
        }
        return true;
    } catch (...) {
        return false;
    }
}

void NodeLoads::remove(Octree::OctreeNodeId id) {
    if (const auto asked = mAsked.find(id); asked != mAsked.end()) {
        remove(asked);
    }
}

NodeLoads::AllAsked::iterator NodeLoads::remove(AllAsked::iterator asked) {
    asked->second.stop.request_stop();
    return forget(asked);
}

NodeLoads::AllAsked::iterator NodeLoads::forget(AllAsked::iterator asked) {
    mShared->remove(asked->first);
    mTotalBytes -= asked->second.bytes;
    return mAsked.erase(asked);
}

bool NodeLoads::take(Octree::OctreeNodeId id, const std::stop_token& stop) {
    const auto asked = mAsked.find(id);
    if (asked == mAsked.end()) {
        return true;
    }
    {
        const Core::LoadingQueue::Wait waiting(*mQueue);
        if (!mShared->waitForEnd(id, stop)) {
            return false;
        }
    }
    struct Forget {
        NodeLoads& loads;
        AllAsked::iterator asked;
        ~Forget() { loads.forget(asked); }
    } const atTheEnd{*this, asked};
    mShared->rethrowErrorOf(id);
    return true;
}

}  // namespace Render
