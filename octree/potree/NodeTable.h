#pragma once

#include <octree/OctreeNodeId.h>
#include <octree/potree/Node.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

namespace PoTree {

/// The known nodes of a store by id: an open-addressing table that only grows. Any number of threads look
/// nodes up without locking while one inserts; nodes and outgrown tables live until the table dies, so that a
/// reader never holds a dangling pointer.
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

private:
    struct Slots;

    static std::atomic<const Node*>& slotOf(const Slots& slots, Octree::OctreeNodeId id);
    void grow();

    std::atomic<const Slots*> mCurrent;
    std::vector<std::unique_ptr<const Slots>> mSlots;
    std::vector<std::shared_ptr<const Node>> mNodes;
    std::size_t mUsed = 0;
};

}  // namespace PoTree
