#pragma once

#include <core/BlockingSection.h>
#include <core/CacheEntrySizeCount.h>
#include <core/StoppableWait.h>

#include <cstddef>
#include <iterator>
#include <list>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <stop_token>
#include <unordered_map>
#include <utility>

namespace Core {

/**
 * Keeps the most recently used values by key. Each entry is charged SizeOf()(value) units against the
 * capacity.
 *
 * Make room, then insert: least recently used entries leave until the new one fits. A value larger than the
 * whole capacity empties the cache and is inserted all the same, so usedSize() may exceed capacity() until
 * the next insertion evicts it. A value counts as a function of its key: a key already present keeps its
 * value. So that values of little or no size leave as well, there are never more entries than `capacity`, or
 * than 64 times the expected ones.
 *
 * Every member may be called from any thread. Values are loaded, copied and destroyed outside the lock, and
 * each eviction takes the lock by itself. Values are copied out or shared, so an eviction never affects a
 * caller.
 */
template <class Key, class Value, class SizeOf = CacheEntrySizeCount<Value>>
class LruCache {
public:
    /// Throws std::invalid_argument for a capacity of 0. With expectedEntries 0 nothing is known about them.
    LruCache(size_t capacity, size_t expectedEntries)
        : mCapacity(capacity), mMaxEntries(maxEntries(capacity, expectedEntries)) {
        if (capacity == 0) {
            throw std::invalid_argument("Size of the cache should be non-zero");
        }
        mByKey.reserve(expectedEntries);
    }

    LruCache(const LruCache&) = delete;
    LruCache& operator=(const LruCache&) = delete;

    /// Does not count as a use.
    bool contains(const Key& key) const {
        const std::lock_guard lock(mMutex);
        return mByKey.contains(key);
    }

    /// A copy of the value, which becomes the most recently used. Throws std::invalid_argument for an absent
    /// key.
    Value get(const Key& key) {
        if (const Shared present = use(key)) {
            return *present;
        }
        throw std::invalid_argument("Error: Key is not in cache");
    }

    /// Inserts as the most recently used.
    void insert(const Key& key, Value value) {
        insertOrUse(key, std::make_shared<const Value>(std::move(value)));
    }

    /**
     * Copies the value of the key into out, loading it on a miss. `bool load(Value&)` fills a default value
     * without the lock; it must not ask this cache for the same key. Returns false, with nothing inserted and
     * out unchanged, when load does; what load throws passes through.
     *
     * While one caller loads a key, others who want it wait and get the same value. When that load fails,
     * each of them loads for itself, one after another. A wait ends, with false, when its own stop token is
     * signalled; load sees to its own stop.
     */
    template <class Load>
    bool getOrLoad(const Key& key, Value& out, Load&& load, const std::stop_token& stop = {}) {
        const Shared value = getOrLoadShared(key, std::forward<Load>(load), stop);
        if (value) {
            out = *value;
        }
        return value != nullptr;
    }

    /// As getOrLoad(), without a copy; null instead of false.
    template <class Load>
    std::shared_ptr<const Value> getOrLoadShared(const Key& key, Load&& load,
                                                 const std::stop_token& stop = {}) {
        for (;;) {
            typename Loading::Pointer loading;
            bool isMine = false;
            {
                const std::lock_guard lock(mMutex);
                if (Shared present = use(key)) {
                    return present;
                }
                loading = startOrJoinLoading(key, isMine);
            }
            if (isMine) {
                const EndOfLoading end(*this, key, *loading);
                return loading->value = loadAndInsert(key, load);
            }
            if (loading->wait(stop)) {
                return loading->value;
            }
            if (stop.stop_requested()) {
                return nullptr;
            }
        }
    }

    void clear() {
        Entries dropped;
        ByKey droppedKeys;
        const std::lock_guard lock(mMutex);
        mByKey.swap(droppedKeys);
        mEntries.swap(dropped);
        mUsedSize = 0;
    }

    size_t capacity() const { return mCapacity; }

    size_t usedSize() const {
        const std::lock_guard lock(mMutex);
        return mUsedSize;
    }

    /// Number of entries.
    size_t size() const {
        const std::lock_guard lock(mMutex);
        return mByKey.size();
    }

private:
    using Shared = std::shared_ptr<const Value>;

    struct Entry {
        Key key;
        Shared value;
        size_t size;
    };
    using Entries = std::list<Entry>;
    using ByKey = std::unordered_map<Key, typename Entries::iterator>;

    /// A load under way. The value belongs to the loading caller until the end, then to nobody.
    struct Loading {
        using Pointer = std::shared_ptr<Loading>;

        Shared value;  ///< Null after a failure.

        /// For the end of the load; false when it failed or the wait was stopped.
        bool wait(const std::stop_token& stop) {
            const BlockingSection waiting;
            std::unique_lock<Mutex> lock(mMutex);
            return waitUnlessStopped(mEnded, lock, stop, [this] { return mHasEnded; }) && value != nullptr;
        }
        void end() {
            {
                const std::lock_guard<Mutex> lock(mMutex);
                mHasEnded = true;
            }
            mEnded.notify_all();
        }

    private:
        Mutex mMutex;  ///< Guards mHasEnded.
        ConditionVariable mEnded;
        bool mHasEnded = false;
    };

    /// However a load ends, those that wait for it are told, after the cache has what was loaded.
    class EndOfLoading {
    public:
        EndOfLoading(LruCache& cache, const Key& key, Loading& loading)
            : mCache(cache), mKey(key), mLoading(loading) {}
        ~EndOfLoading() {
            {
                const std::lock_guard lock(mCache.mMutex);
                mCache.mLoadings.erase(mKey);
            }
            mLoading.end();
        }
        EndOfLoading(const EndOfLoading&) = delete;
        EndOfLoading& operator=(const EndOfLoading&) = delete;

    private:
        LruCache& mCache;
        const Key& mKey;
        Loading& mLoading;
    };

    static size_t maxEntries(size_t capacity, size_t expectedEntries) {
        constexpr size_t FACTOR = 64;
        return expectedEntries == 0 || expectedEntries > capacity / FACTOR ? capacity
                                                                           : expectedEntries * FACTOR;
    }

    /// Makes the value of a key the most recently used; null for an absent key.
    Shared use(const Key& key) {
        const std::lock_guard lock(mMutex);
        const auto found = mByKey.find(key);
        if (found == mByKey.end()) {
            return nullptr;
        }
        mEntries.splice(mEntries.begin(), mEntries, found->second);
        return found->second->value;
    }

    /// Under the lock.
    typename Loading::Pointer startOrJoinLoading(const Key& key, bool& isMine) {
        const auto found = mLoadings.find(key);
        isMine = found == mLoadings.end();
        return isMine ? mLoadings.emplace(key, std::make_shared<Loading>()).first->second : found->second;
    }

    template <class Load>
    Shared loadAndInsert(const Key& key, Load& load) {
        auto loaded = std::make_shared<Value>();
        return load(*loaded) ? insertOrUse(key, std::move(loaded)) : nullptr;
    }

    /// Inserts the value, or uses the one that has come in meanwhile. Returns the one that is in the cache.
    Shared insertOrUse(const Key& key, Shared value) {
        const size_t size = SizeOf()(*value);
        Entries entry;
        entry.push_back(Entry{key, value, size});
        while (evictOneFor(size)) {
        }
        const std::lock_guard lock(mMutex);
        if (!mByKey.try_emplace(key, entry.begin()).second) {
            return use(key);
        }
        mUsedSize += size;
        mEntries.splice(mEntries.begin(), entry);
        return value;
    }

    /// Drops the least recently used entry unless one of `size` units fits already; true when one was
    /// dropped.
    bool evictOneFor(size_t size) {
        Entries evicted;
        const std::lock_guard lock(mMutex);
        const bool fits = mUsedSize <= mCapacity && mCapacity - mUsedSize >= size;
        if ((fits && mEntries.size() < mMaxEntries) || mEntries.empty()) {
            return false;
        }
        const auto last = std::prev(mEntries.end());
        mUsedSize -= last->size;
        mByKey.erase(last->key);
        evicted.splice(evicted.begin(), mEntries, last);
        return true;
    }

    const size_t mCapacity;
    const size_t mMaxEntries;

    mutable std::recursive_mutex mMutex;  ///< Guards the four below.
    size_t mUsedSize = 0;                 ///< Sum of the entries' sizes.
    Entries mEntries;                     ///< Most recently used first.
    ByKey mByKey;
    std::unordered_map<Key, typename Loading::Pointer> mLoadings;
};

}  // namespace Core
