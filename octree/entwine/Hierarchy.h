#pragma once

#include <octree/MemoryBudget.h>
#include <octree/OctreeNodeId.h>
#include <octree/StoppableMutex.h>
#include <octree/entwine/HierarchyPage.h>

#include <filesystem>
#include <memory>
#include <stop_token>
#include <vector>

namespace Entwine {

/// The nodes of a store, file by file as they are asked for. Any number of threads at once: nodes of loaded
/// files are found without locking, one thread at a time loads a file. A file is kept once it was read well;
/// as files only hold what is below their own node, no link leads back.
class Hierarchy {
public:
    /// Reads the root's file. Throws StoreError, as the other operations do, and OpenStopped when stopped.
    /// The budget must outlive it.
    Hierarchy(const std::filesystem::path& folder, Octree::MemoryBudget& budget, const std::stop_token& stop);
    Hierarchy(const Hierarchy&) = delete;
    Hierarchy& operator=(const Hierarchy&) = delete;
    ~Hierarchy();

    /// The node's own entry, which is no link. nullptr when stopped; an error when there is no such node.
    const HierarchyNode* find(Octree::OctreeNodeId id, const std::stop_token& stop);
    /// The same without loading the node's own file: it may be a link.
    const HierarchyNode* lookUp(Octree::OctreeNodeId id, const std::stop_token& stop);

private:
    const HierarchyNode* findEntry(Octree::OctreeNodeId id, bool followsOwnLink, const std::stop_token& stop);
    const HierarchyPage* load(const HierarchyNode& link, Octree::OctreeNodeId id,
                              const std::stop_token& stop);
    const HierarchyPage* readPage(Octree::OctreeNodeId id, const std::stop_token& stop);

    const std::filesystem::path mFolder;
    Octree::MemoryBudget& mBudget;
    Octree::StoppableMutex mLoading;
    /// Guarded by mLoading; the first is the root's.
    std::vector<std::unique_ptr<const HierarchyPage>> mPages;
    const HierarchyPage* const mRoot;
};

}  // namespace Entwine
