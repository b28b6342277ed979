#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace Core {

/**
 * A registry of resources that are shared by key. It refers to them weakly: a resource lives as long as
 * anyone uses it, and is made anew when it is wanted after that. Every member may be called from any thread.
 */
template <class Key, class Resource>
class SharedResources {
public:
    /**
     * The registered resource of the key, or a new one from `std::shared_ptr<Resource> create()`. create runs
     * without the lock; when two threads create for one key at once, both get the one that was registered
     * first.
     */
    template <class Create>
    std::shared_ptr<Resource> getOrCreate(const Key& key, Create&& create) {
        if (std::shared_ptr<Resource> present = find(key)) {
            return present;
        }
        std::shared_ptr<Resource> created = std::forward<Create>(create)();

        const std::lock_guard lock(mMutex);
        std::erase_if(mResources, [](const auto& entry) { return entry.second.expired(); });
        const auto [position, isNew] = mResources.try_emplace(key, created);
        if (isNew) {
            return created;
        }
        if (std::shared_ptr<Resource> present = position->second.lock()) {
            return present;
        }
        position->second = created;
        return created;
    }

    /// The registered resource of the key, or null.
    std::shared_ptr<Resource> find(const Key& key) const {
        const std::lock_guard lock(mMutex);
        const auto found = mResources.find(key);
        return found == mResources.end() ? nullptr : found->second.lock();
    }

private:
    mutable std::mutex mMutex;  ///< Guards mResources.
    std::unordered_map<Key, std::weak_ptr<Resource>> mResources;
};

}  // namespace Core
