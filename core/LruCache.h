#pragma once

#include <core/CacheEntrySizeCount.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <list>
#include <mutex>
#include <stdexcept>
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
 * value.
 *
 * Entries of size 0 take no room from the others, so they are counted: of more than expectedEntries, the
 * least recently used leave.
 *
 * Every member may be called from any thread. Values are loaded and evicted values destroyed outside the
 * lock, and each eviction takes the lock by itself. Values are copied out, so an eviction never affects a
 * caller.
 */
template <class Key, class Value, class SizeOf = CacheEntrySizeCount<Value>>
class LruCache {
public:
    /// Throws std::invalid_argument for a capacity of 0. expectedEntries sizes the hash table, and limits the
    /// entries of size 0 to as many, but not to less than one.
    LruCache(size_t capacity, size_t expectedEntries)
        : mCapacity(capacity), mMaxEmptyEntries((std::max)(expectedEntries, size_t{1})) {
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
        const std::lock_guard lock(mMutex);
        return use(key).value;
    }

    /// Inserts as the most recently used.
    void insert(const Key& key, Value value) { insertOrUse(makeEntry(key, std::move(value)), nullptr); }

    /**
     * Copies the value of the key into out, loading it on a miss. `bool load(Value&)` fills a default value
     * without the lock, perhaps in several threads for one key at once: the first one done decides the value
     * for all. Returns false, with nothing inserted and out unchanged, when load does; what load throws
     * passes through.
     */
    template <class Load>
    bool getOrLoad(const Key& key, Value& out, Load&& load) {
        {
            const std::lock_guard lock(mMutex);
            if (contains(key)) {
                out = get(key);
                return true;
            }
        }
        Value loaded{};
        if (!std::forward<Load>(load)(loaded)) {
            return false;
        }
        out = loaded;
        insertOrUse(makeEntry(key, std::move(loaded)), &out);
        return true;
    }

    void clear() {
        Entries dropped;
        Entries droppedEmpty;
        const std::lock_guard lock(mMutex);
        mByKey.clear();
        mEntries.swap(dropped);
        mEmptyEntries.swap(droppedEmpty);
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
    struct Entry {
        Key key;
        Value value;
        size_t size;
    };
    using Entries = std::list<Entry>;

    static Entries makeEntry(const Key& key, Value&& value) {
        Entries entry;
        const size_t size = SizeOf()(value);
        entry.push_back(Entry{key, std::move(value), size});
        return entry;
    }

    /// Under the lock. The list that entries of this size are in.
    Entries& entriesOf(size_t size) { return size == 0 ? mEmptyEntries : mEntries; }

    /// Under the lock.
    Entry& use(const Key& key) {
        const auto found = mByKey.find(key);
        if (found == mByKey.end()) {
            throw std::invalid_argument("Error: Key is not in cache");
        }
        Entries& entries = entriesOf(found->second->size);
        entries.splice(entries.begin(), entries, found->second);
        return *found->second;
    }

    /// Inserts the one entry of the list; when its key has come in meanwhile, uses that and copies it to
    /// other.
    void insertOrUse(Entries entry, Value* other) {
        while (evictOneFor(entry.front().size)) {
        }
        const std::lock_guard lock(mMutex);
        const auto [position, isNew] = mByKey.try_emplace(entry.front().key, entry.begin());
        if (isNew) {
            mUsedSize += entry.front().size;
            Entries& entries = entriesOf(entry.front().size);
            entries.splice(entries.begin(), entry);
        } else {
            const Entry& present = use(position->first);
            if (other != nullptr) {
                *other = present.value;
            }
        }
    }

    /// Drops the least recently used entry unless one of this size fits already; true when one was dropped.
    bool evictOneFor(size_t size) {
        Entries evicted;
        const std::lock_guard lock(mMutex);
        const bool fits = mUsedSize <= mCapacity && mCapacity - mUsedSize >= size;
        const bool isFullOfEmpty = size == 0 && mEmptyEntries.size() >= mMaxEmptyEntries;
        if (fits && !isFullOfEmpty) {
            return false;
        }
        Entries& entries = fits || mEntries.empty() ? mEmptyEntries : mEntries;
        if (entries.empty()) {
            return false;
        }
        const auto last = std::prev(entries.end());
        mUsedSize -= last->size;
        mByKey.erase(last->key);
        evicted.splice(evicted.begin(), entries, last);
        return true;
    }

    const size_t mCapacity;
    const size_t mMaxEmptyEntries;

    mutable std::recursive_mutex mMutex;  ///< Guards the four below.
    size_t mUsedSize = 0;                 ///< Sum of the entries' sizes.
    Entries mEntries;                     ///< Most recently used first; without those of size 0.
    Entries mEmptyEntries;                ///< Those of size 0, likewise.
    std::unordered_map<Key, typename Entries::iterator> mByKey;
};

}  // namespace Core
