#pragma once

#include <core/Mutex.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <stop_token>

namespace Core {

/**
 * Waits until `isDone()`, called under the lock, or until a stop is requested: false then. Who makes it done
 * notifies the condition variable; a stop is noticed within 20 ms.
 *
 * In place of waits that register a stop callback: where the runtime has no futex, taking back a callback
 * that is just being called may miss its end and wait for ever.
 */
template <class IsDone>
bool waitUnlessStopped(ConditionVariable& changed, std::unique_lock<Mutex>& lock, const std::stop_token& stop,
                       IsDone&& isDone) {
    if (!stop.stop_possible()) {
        changed.wait(lock, isDone);
        return true;
    }
    constexpr std::chrono::milliseconds LONGEST(20);
    for (std::chrono::milliseconds pause(1); !isDone(); pause = (std::min)(2 * pause, LONGEST)) {
        if (stop.stop_requested()) {
            return false;
        }
        changed.wait_for(lock, pause);
    }
    return true;
}

}  // namespace Core
