#pragma once

#include <cstddef>
#include <iterator>
#include <list>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <unordered_map>
#include <utility>

namespace Core {

/**
 * Keeps the most recently used values by group and key; a whole group can be dropped at once. The capacity
 * counts entries over all groups, whatever their size. A key already present keeps its value.
 *
 * Every member may be called from any thread. Values are copied out, and destroyed, outside the lock.
 */
template <class Key, class Value, class Group>
class GroupedLruCache {
public:
    /// Throws std::invalid_argument for a capacity of 0.
    explicit GroupedLruCache(size_t capacity) : mCapacity(capacity) {
        if (capacity == 0) {
            throw std::invalid_argument("Capacity must be greater than 0");
        }
    }

    GroupedLruCache(const GroupedLruCache&) = delete;
    GroupedLruCache& operator=(const GroupedLruCache&) = delete;

    /// Does not count as a use.
    bool contains(const Group& group, const Key& key) const {
        const std::lock_guard lock(mMutex);
        const auto inGroup = mByGroup.find(group);
        return inGroup != mByGroup.end() && inGroup->second.contains(key);
    }

    /// Copies the value into out and makes it the most recently used; false, and out stays, when it is
    /// absent.
    bool get(const Group& group, const Key& key, Value& out) {
        const std::shared_ptr<const Value> present = use(group, key);
        if (present) {
            out = *present;
        }
        return present != nullptr;
    }

    /// Inserts as the most recently used; the least recently used entry leaves when the cache is full.
    void insert(const Group& group, const Key& key, Value value) {
        Entries entry;  // Outlives the lock, as does what is evicted.
        Entries evicted;
        entry.push_back(Entry{group, key, std::make_shared<const Value>(std::move(value))});

        const std::lock_guard lock(mMutex);
        const auto [position, isNew] = mByGroup[group].try_emplace(key, entry.begin());
        if (!isNew) {
            mEntries.splice(mEntries.begin(), mEntries, position->second);
            return;
        }
        mEntries.splice(mEntries.begin(), entry);
        if (mEntries.size() > mCapacity) {
            const auto last = std::prev(mEntries.end());
            const auto inGroup = mByGroup.find(last->group);
            inGroup->second.erase(last->key);
            if (inGroup->second.empty()) {
                mByGroup.erase(inGroup);
            }
            evicted.splice(evicted.begin(), mEntries, last);
        }
    }

    void eraseGroup(const Group& group) {
        Entries dropped;
        const std::lock_guard lock(mMutex);
        const auto inGroup = mByGroup.find(group);
        if (inGroup == mByGroup.end()) {
            return;
        }
        for (const auto& [key, position] : inGroup->second) {
            dropped.splice(dropped.begin(), mEntries, position);
        }
        mByGroup.erase(inGroup);
    }

    void clear() {
        Entries dropped;
        const std::lock_guard lock(mMutex);
        mByGroup.clear();
        mEntries.swap(dropped);
    }

    size_t capacity() const { return mCapacity; }

    /// Number of entries over all groups.
    size_t size() const {
        const std::lock_guard lock(mMutex);
        return mEntries.size();
    }

private:
    struct Entry {
        Group group;
        Key key;
        std::shared_ptr<const Value> value;
    };
    using Entries = std::list<Entry>;

    /// Makes a value the most recently used; null when it is absent.
    std::shared_ptr<const Value> use(const Group& group, const Key& key) {
        const std::lock_guard lock(mMutex);
        const auto inGroup = mByGroup.find(group);
        if (inGroup == mByGroup.end()) {
            return nullptr;
        }
        const auto found = inGroup->second.find(key);
        if (found == inGroup->second.end()) {
            return nullptr;
        }
        mEntries.splice(mEntries.begin(), mEntries, found->second);
        return found->second->value;
    }

    const size_t mCapacity;

    mutable std::mutex mMutex;  ///< Guards the two below.
    Entries mEntries;           ///< Most recently used first.
    std::unordered_map<Group, std::unordered_map<Key, typename Entries::iterator>> mByGroup;
};

}  // namespace Core
