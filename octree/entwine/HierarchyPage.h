#pragma once

#include <octree/MemoryBudget.h>
#include <octree/OctreeNodeId.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <vector>

namespace Entwine {

class HierarchyPage;

/// A node as a hierarchy file has it.
struct HierarchyNode {
    /// What the hierarchy says; the node's tile knows better.
    std::uint64_t pointCount = 0;
    /// Bit 4x + 2y + z set: the hierarchy has that child.
    std::uint8_t childMask = 0;
    /// The node stands in a file of its own, and so does all below it; nothing else is known here.
    bool isLink = false;
    /// That file, once it is loaded.
    mutable std::atomic<const HierarchyPage*> linked{nullptr};
};

/// One file of a store's hierarchy: a node and what is below it, without gaps. Nodes deeper than
/// OctreeNodeId::MAX_REPRESENTABLE_LEVEL are left out, their ancestors there have no children.
class HierarchyPage {
public:
    /// nullptr when stopped. Throws StoreError naming the file, and the node where one is at fault, when the
    /// file is not to be had, is not an object of point counts by node, misses root, or has a node that is
    /// not below root, whose parent is missing, or whose count is negative and not a link,
    /// and when the budget does not hold it. An empty file of
    /// the octree's root is a root without points.
    static std::unique_ptr<const HierarchyPage> read(const std::filesystem::path& path,
                                                     Octree::OctreeNodeId root, Octree::MemoryBudget& budget,
                                                     const std::stop_token& stop);

    /// nullptr for a node that is not in the file.
    const HierarchyNode* find(Octree::OctreeNodeId id) const;

private:
    HierarchyPage(std::vector<Octree::OctreeNodeId> ids, std::unique_ptr<HierarchyNode[]> nodes);

    /// Ascending; in order rather than hashed, so that no file can make them collide.
    std::vector<Octree::OctreeNodeId> mIds;
    std::unique_ptr<HierarchyNode[]> mNodes;
};

}  // namespace Entwine
