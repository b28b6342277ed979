#include <octree/OpenStopped.h>
#include <octree/StoreError.h>
#include <octree/entwine/Hierarchy.h>
#include <octree/entwine/NodeKey.h>

#include <mutex>

namespace Entwine {

using Octree::OctreeNodeId;
using Octree::StoreError;

Hierarchy::Hierarchy(const std::filesystem::path& folder, Octree::MemoryBudget& budget,
                     const std::stop_token& stop)
    : mFolder(folder / "ept-hierarchy"), mBudget(budget), mRoot(readPage(OctreeNodeId(), stop)) {
    if (mRoot == nullptr) {
        throw Octree::OpenStopped();
    }
}

Hierarchy::~Hierarchy() = default;

const HierarchyNode* Hierarchy::find(OctreeNodeId id, const std::stop_token& stop) {
    return findEntry(id, true, stop);
}

const HierarchyNode* Hierarchy::lookUp(OctreeNodeId id, const std::stop_token& stop) {
    return findEntry(id, false, stop);
}

const HierarchyNode* Hierarchy::findEntry(OctreeNodeId id, bool followsOwnLink, const std::stop_token& stop) {
    const HierarchyPage* page = mRoot;
    while (page != nullptr) {
        // The node, or else the nearest above it that the page has: the page's own node at the latest.
        OctreeNodeId place = id;
        const HierarchyNode* entry = page->find(place);
        while (entry == nullptr) {
            place = place.parent();
            entry = page->find(place);
        }
        const HierarchyNode& node = *entry;
        if (place == id && !(node.isLink && followsOwnLink)) {
            return &node;
        }
        if (!node.isLink) {
            throw StoreError(mFolder, NodeKey(id).text(), "there is no such node");
        }
        page = load(node, place, stop);
    }
    return nullptr;
}

const HierarchyPage* Hierarchy::load(const HierarchyNode& link, OctreeNodeId id,
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
    const HierarchyPage* page = readPage(id, stop);
    link.linked.store(page, std::memory_order_release);
    return page;
}

const HierarchyPage* Hierarchy::readPage(OctreeNodeId id, const std::stop_token& stop) {
    auto page = HierarchyPage::read(mFolder / (NodeKey(id).text() + ".json"), id, mBudget, stop);
    if (page == nullptr) {
        return nullptr;
    }
    mPages.push_back(std::move(page));
    return mPages.back().get();
}

}  // namespace Entwine
