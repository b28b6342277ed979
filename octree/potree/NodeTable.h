#pragma once

#include <octree/OctreeNodeId.h>
#include <octree/potree/Node.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stop_token>
#include <vector>

namespace PoTree {

/// The known nodes of a store by id: an open-addressing table that only grows. Any number of threads look
/// nodes up without locking while one inserts; nodes and outgrown tables live until the table dies, so that a
/// reader never holds a dangling pointer. Where a node stands depends on random numbers of the table's own:
/// no store can be made to have its nodes collide.
class NodeTable {
public:
    NodeTable();
    NodeTable(const NodeTable&) = delete;
    NodeTable& operator=(const NodeTable&) = delete;
    ~NodeTable();

    /// nullptr when it is not known (yet).
    const Node* find(Octree::OctreeNodeId id) const;

    /// Adds the node, or puts it in the place of the one with its id. One caller at a time.
    void insert(std::shared_ptr<const Node> node);

    /// Makes room for so many more nodes at once; the same caller as insert's. False when stopped, which
    /// leaves all as it was.
    bool reserve(std::size_t count, const std::stop_token& stop);

    /// Most slots that finding a known node looks at; the same caller as insert's.
    std::size_t longestSearch() const;

private:
    struct Slot;
    struct Slots;

    std::size_t firstSlotOf(const Slots& slots, std::uint64_t code) const;
    Slot& slotOf(const Slots& slots, std::uint64_t code) const;
    bool grow(std::size_t slotCount, const std::stop_token& stop);

    const std::uint64_t mFirstFactor, mSecondFactor;  ///< Odd.
    std::atomic<const Slots*> mCurrent;
    std::vector<std::unique_ptr<const Slots>> mSlots;
    std::vector<std::shared_ptr<const Node>> mNodes;
    std::size_t mUsed = 0;
};

}  // namespace PoTree
