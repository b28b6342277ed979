#pragma once

#include <core/BlockingSection.h>
#include <core/Mutex.h>
#include <core/StoppableWait.h>

#include <mutex>
#include <optional>
#include <stop_token>

namespace Octree {

/// A mutex for work that takes long: who waits for it can be stopped.
class StoppableMutex {
public:
    /// False, and not locked, when stopped first.
    bool lock(const std::stop_token& stop) {
        std::unique_lock lock(mMutex);
        std::optional<Core::BlockingSection> waiting;
        if (mIsLocked) {
            waiting.emplace();
        }
        if (!Core::waitUnlessStopped(mUnlocked, lock, stop, [this] { return !mIsLocked; })) {
            return false;
        }
        mIsLocked = true;
        return true;
    }

    void unlock() {
        {
            const std::lock_guard lock(mMutex);
            mIsLocked = false;
        }
        mUnlocked.notify_one();
    }

private:
    Core::Mutex mMutex;
    Core::ConditionVariable mUnlocked;
    bool mIsLocked = false;  ///< Guarded by mMutex.
};

}  // namespace Octree
