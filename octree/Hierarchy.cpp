#include <octree/Hierarchy.h>
#include <octree/NodeKey.h>
#include <octree/OpenStopped.h>
#include <octree/StoreError.h>

#include <mutex>
#include <utility>

namespace Octree {

Hierarchy::Hierarchy(std::filesystem::path place, bool hasRanges, ReadPage readPage,
                     const ByteRange& rootRange, const std::stop_token& stop)
    : mPlace(std::move(place)),
      mHasRanges(hasRanges),
      mReadPage(std::move(readPage)),
      mRoot(this->readPage(OctreeNodeId(), rootRange, stop)) {
    if (mRoot == nullptr) {
        throw OpenStopped();
    }
}

Hierarchy::~Hierarchy() = default;

Hierarchy::Found Hierarchy::find(OctreeNodeId id, const std::stop_token& stop) {
    return findEntry(id, true, stop);
}

Hierarchy::Found Hierarchy::lookUp(OctreeNodeId id, const std::stop_token& stop) {
    return findEntry(id, false, stop);
}

Hierarchy::Found Hierarchy::findEntry(OctreeNodeId id, bool followsOwnLink, const std::stop_token& stop) {
    const HierarchyPage* page = mRoot;
    while (page != nullptr) {
        // The node, or else the nearest above it that the page has: the page's own node at the latest.
        OctreeNodeId place = id;
        const HierarchyNode* entry = page->find(place);
        while (entry == nullptr) {
            place = place.parent();
            entry = page->find(place);
        }
        if (place == id && !(entry->isLink && followsOwnLink)) {
            return {entry, page};
        }
        if (!entry->isLink) {
            throw StoreError(mPlace, NodeKey(id).text(), "there is no such node");
        }
        page = load(*entry, mHasRanges ? page->rangeOf(*entry) : ByteRange(), place, stop);
    }
    return {};
}

const HierarchyPage* Hierarchy::load(const HierarchyNode& link, const ByteRange& range, OctreeNodeId id,
                                     const std::stop_token& stop) {
    if (const HierarchyPage* page = link.linked.load(std::memory_order_acquire)) {
        return page;
    }
    if (!mLoading.lock(stop)) {
        return nullptr;
    }
    const std::lock_guard lock(mLoading, std::adopt_lock);
    if (const HierarchyPage* page = link.linked.load(std::memory_order_relaxed)) {
        return page;  // loaded by another thread meanwhile
    }
    const HierarchyPage* page = readPage(id, range, stop);
    link.linked.store(page, std::memory_order_release);
    return page;
}

const HierarchyPage* Hierarchy::readPage(OctreeNodeId id, const ByteRange& range,
                                         const std::stop_token& stop) {
    auto page = mReadPage(id, range, stop);
    if (page == nullptr) {
        return nullptr;
    }
    mPages.push_back(std::move(page));
    return mPages.back().get();
}

}  // namespace Octree
