#pragma once

#include <atomic>
#include <cstddef>

namespace Core {

/**
 * Numbers the instances of T (T derives from InstanceId<T>): 0 for the first of the process, 1 for the next,
 * and so on, from any thread. A copy carries its source's number.
 *
 * For a T that is exported from a DLL, InstanceId<T> is instantiated there alone, so that every module of the
 * process draws from one counter. T's header declares the instantiation as extern, one source defines it.
 */
template <class T>
class InstanceId {
public:
    InstanceId() : mId(nextId()) {}
    InstanceId(const InstanceId&) = default;
    InstanceId& operator=(const InstanceId&) = default;
    virtual ~InstanceId() = default;

    size_t id() const { return mId; }

private:
    static size_t nextId();

    size_t mId;
};

// Out of the class and thereby not inline: an inline body would bring a counter of its own into each module.
template <class T>
size_t InstanceId<T>::nextId() {
    static std::atomic<size_t> next{0};
    return next.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace Core
