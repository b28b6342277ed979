#pragma once

#include <octree/MemoryBudget.h>
#include <octree/OctreeNodeId.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <vector>

namespace Octree {

class HierarchyPage;

/// Where a node's points lie in a file of many nodes; for a link, where its page lies.
struct ByteRange {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

/// A node as a page of the hierarchy has it.
struct HierarchyNode {
    /// What the hierarchy says; the node's tile knows better.
    std::uint64_t pointCount = 0;
    /// Bit 4x + 2y + z set: the hierarchy has that child.
    std::uint8_t childMask = 0;
    /// The node stands in a page of its own, and so does all below it; nothing else is known here.
    bool isLink = false;
    /// Whether its points are among those that the store has given out.
    mutable std::atomic<bool> isCounted{false};
    /// That page, once it is loaded.
    mutable std::atomic<const HierarchyPage*> linked{nullptr};
};

/// A node as a page is made from it.
struct HierarchyEntry {
    OctreeNodeId id;
    std::uint32_t pointCount = 0;
    bool isLink = false;
    ByteRange range{};
};

/// One part of a store's hierarchy: a node and what is below it, without gaps.
class HierarchyPage {
public:
    /// From entries in any order. nullptr when stopped. Throws StoreError naming the file and the node at
    /// fault when the root is missing, a node is there twice, has no parent or one that is a link, is not
    /// below the root, and when the budget does not hold the page. Without entries the octree's root has no
    /// points. With hasRanges, rangeOf works.
    static std::unique_ptr<const HierarchyPage> make(std::vector<HierarchyEntry> entries, OctreeNodeId root,
                                                     bool hasRanges, const std::filesystem::path& file,
                                                     MemoryBudget& budget, const std::stop_token& stop);

    /// nullptr for a node that is not in the page.
    const HierarchyNode* find(OctreeNodeId id) const;
    /// Of a node of this page.
    const ByteRange& rangeOf(const HierarchyNode& node) const {
        return mRanges[static_cast<std::size_t>(&node - mNodes.get())];
    }

private:
    class Builder;

    HierarchyPage() = default;

    /// Ascending; in order rather than hashed, so that no file can make them collide.
    std::vector<OctreeNodeId> mIds;
    std::unique_ptr<HierarchyNode[]> mNodes;
    std::vector<ByteRange> mRanges;
};

}  // namespace Octree
