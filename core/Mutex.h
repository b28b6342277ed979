#pragma once

#include <core/Export.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace Core {

#if defined(__MINGW32__)

/**
 * In place of std::mutex where a ConditionVariable with several waiting threads belongs to it: the system's
 * own lock. MinGW's runtime makes condition variables out of semaphores, and under load threads have waited
 * in them for ever.
 */
class LUMARO_API Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() noexcept;
    void unlock() noexcept;

private:
    friend class ConditionVariable;
    void* mLock = nullptr;
};

/// The system's own condition variable, used as std::condition_variable is.
class LUMARO_API ConditionVariable {
public:
    ConditionVariable() = default;
    ConditionVariable(const ConditionVariable&) = delete;
    ConditionVariable& operator=(const ConditionVariable&) = delete;

    void notify_one() noexcept;
    void notify_all() noexcept;

    void wait(std::unique_lock<Mutex>& lock) noexcept;
    template <class IsDone>
    void wait(std::unique_lock<Mutex>& lock, IsDone isDone) {
        while (!isDone()) {
            wait(lock);
        }
    }
    void wait_for(std::unique_lock<Mutex>& lock, std::chrono::milliseconds longest) noexcept;

private:
    void* mCondition = nullptr;
};

#else

using Mutex = std::mutex;
using ConditionVariable = std::condition_variable;

#endif

}  // namespace Core
