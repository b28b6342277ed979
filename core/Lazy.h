#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <utility>

namespace Core {

/**
 * A value that is made when it is first asked for. Any number of threads may ask at once: the first one makes
 * it, the others wait for it.
 */
template <class T>
class Lazy {
public:
    Lazy() = default;
    Lazy(const Lazy&) = delete;
    Lazy& operator=(const Lazy&) = delete;

    /// The value; the first call has it from `T make()`, which must not ask for it. When make throws, that
    /// passes through and the next call tries again.
    template <class Make>
    const T& get(Make&& make) {
        if (const T* const ready = mReady.load(std::memory_order_acquire)) {
            return *ready;
        }
        const std::lock_guard lock(mMutex);
        if (!mValue) {
            mValue.emplace(std::forward<Make>(make)());
            mReady.store(&*mValue, std::memory_order_release);
        }
        return *mValue;
    }

private:
    std::mutex mMutex;  ///< Guards mValue until it is there.
    std::optional<T> mValue;
    std::atomic<const T*> mReady{nullptr};
};

}  // namespace Core
