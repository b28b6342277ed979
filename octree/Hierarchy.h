#pragma once

#include <octree/HierarchyPage.h>
#include <octree/OctreeNodeId.h>
#include <octree/StoppableMutex.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <vector>

namespace Octree {

/// The nodes of a store, page by page as they are asked for. Any number of threads at once: nodes of loaded
/// pages are found without locking, one thread at a time loads a page. A page is kept once it was read well;
/// as pages only hold what is below their own node, no link leads back.
class Hierarchy {
public:
    /// Reads the page of a node, which lies at the range that its link names; nullptr when stopped.
    using ReadPage = std::function<std::unique_ptr<const HierarchyPage>(
        OctreeNodeId root, const ByteRange& range, const std::stop_token& stop)>;

    struct Found {
        /// nullptr when stopped.
        const HierarchyNode* node = nullptr;
        const HierarchyPage* page = nullptr;
    };

    /// Reads the root's page, which lies at rootRange. Throws StoreError, as the other operations do, and
    /// OpenStopped when stopped. Errors name the place where no page is at fault.
    Hierarchy(std::filesystem::path place, bool hasRanges, ReadPage readPage, const ByteRange& rootRange,
              const std::stop_token& stop);
    Hierarchy(const Hierarchy&) = delete;
    Hierarchy& operator=(const Hierarchy&) = delete;
    ~Hierarchy();

    /// The node's own entry, which is no link; an error when there is no such node.
    Found find(OctreeNodeId id, const std::stop_token& stop);
    /// The same without loading the node's own page: it may be a link.
    Found lookUp(OctreeNodeId id, const std::stop_token& stop);

private:
    Found findEntry(OctreeNodeId id, bool followsOwnLink, const std::stop_token& stop);
    const HierarchyPage* load(const HierarchyNode& link, const ByteRange& range, OctreeNodeId id,
                              const std::stop_token& stop);
    const HierarchyPage* readPage(OctreeNodeId id, const ByteRange& range, const std::stop_token& stop);

    const std::filesystem::path mPlace;
    const bool mHasRanges;
    const ReadPage mReadPage;
    StoppableMutex mLoading;
    /// Guarded by mLoading; the first is the root's.
    std::vector<std::unique_ptr<const HierarchyPage>> mPages;
    const HierarchyPage* const mRoot;
};

}  // namespace Octree
