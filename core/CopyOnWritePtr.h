#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

namespace Core {

/**
 * A value of which copies share one object until one of them is written. Null stands for a T() that nobody
 * has written.
 *
 * As safe across threads as a plain T: copies may live on different threads, one of them on one at a time.
 */
template <class T>
class CopyOnWritePtr {
public:
    CopyOnWritePtr() = default;
    explicit CopyOnWritePtr(T value) : mShared(new Shared(std::move(value))) {}
    CopyOnWritePtr(const CopyOnWritePtr& other) : mShared(other.copy()) {}
    CopyOnWritePtr(CopyOnWritePtr&& other) noexcept : mShared(std::exchange(other.mShared, nullptr)) {}
    CopyOnWritePtr& operator=(CopyOnWritePtr other) noexcept {
        std::swap(mShared, other.mShared);
        return *this;
    }
    ~CopyOnWritePtr() {
        if (mShared != nullptr && mShared->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete mShared;
        }
    }

    explicit operator bool() const { return mShared != nullptr; }
    const T& operator*() const { return mShared->value; }
    const T* operator->() const { return &mShared->value; }

    /// The value for this owner alone; to be written before the next copy is made. Invalidates what was read.
    T& write() {
        // Acquires what other owners did before they let go.
        if (mShared == nullptr) {
            mShared = new Shared(T());
        } else if (mShared->owners.load(std::memory_order_acquire) != 1) {
            *this = CopyOnWritePtr(T(mShared->value));
        }
        return mShared->value;
    }

    /// As write(), for as long as wanted: copies do not share before takeBack().
    T& lend() {
        T& value = write();
        mShared->isLent = true;
        return value;
    }
    void takeBack() {
        if (mShared != nullptr && mShared->isLent) {  // Then it has one owner.
            mShared->isLent = false;
        }
    }

private:
    struct Shared {
        explicit Shared(T&& v) : value(std::move(v)) {}

        T value;
        std::atomic<size_t> owners{1};
        bool isLent = false;
    };

    Shared* copy() const {
        if (mShared != nullptr && mShared->isLent) {
            return new Shared(T(mShared->value));
        }
        if (mShared != nullptr) {
            mShared->owners.fetch_add(1, std::memory_order_relaxed);
        }
        return mShared;
    }

    Shared* mShared = nullptr;
};

}  // namespace Core
