#pragma once

#include <octree/HierarchyPage.h>
#include <octree/MemoryBudget.h>
#include <octree/RandomAccessFile.h>

#include <cstdint>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

namespace Copc {

/// Reads the pages of a file's hierarchy: entries of 32 bytes, each a node's place in the octree, where its
/// points or its own page lie, and how many points it has (COPC 1.0 specification). Nodes deeper than
/// OctreeNodeId::MAX_REPRESENTABLE_LEVEL are left out. One caller at a time.
class HierarchyReader {
public:
    /// pointCount is what the file's header says.
    HierarchyReader(std::shared_ptr<const Octree::RandomAccessFile> file, std::uint64_t pointCount,
                    std::shared_ptr<Octree::MemoryBudget> budget);

    /// nullptr when stopped. Throws StoreError naming the file, and the node where one is at fault, also for
    /// ranges outside the file and more nodes than the budget holds, and when the nodes of all pages have
    /// more points than the header says, or fewer once no page is left to read.
    std::unique_ptr<const Octree::HierarchyPage> read(Octree::OctreeNodeId root,
                                                      const Octree::ByteRange& range,
                                                      const std::stop_token& stop);

private:
    /// Of all pages, those of nodes that are left out included.
    struct Totals {
        std::uint64_t points = 0;
        std::uint64_t openPages = 1;
    };

    bool readEntries(Octree::OctreeNodeId root, const Octree::ByteRange& range,
                     std::vector<Octree::HierarchyEntry>& entries, Totals& totals,
                     const std::stop_token& stop) const;
    [[noreturn]] void fail(Octree::OctreeNodeId root, const std::string& problem) const;

    const std::shared_ptr<const Octree::RandomAccessFile> mFile;
    const std::uint64_t mPointCount;
    const std::shared_ptr<Octree::MemoryBudget> mBudget;
    Totals mTotals;  ///< Of the pages read well.
};

}  // namespace Copc
