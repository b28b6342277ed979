#include <octree/potree/NodeTable.h>

#include <utility>

namespace PoTree {

struct NodeTable::Slots {
    explicit Slots(std::size_t count)
        : mask(count - 1), slots(std::make_unique<std::atomic<const Node*>[]>(count)) {}

    const std::size_t mask;
    const std::unique_ptr<std::atomic<const Node*>[]> slots;
};

NodeTable::NodeTable() {
    mSlots.push_back(std::make_unique<const Slots>(1024));
    mCurrent = mSlots.back().get();
}

NodeTable::~NodeTable() = default;

// The slot with this id, or the empty one where it belongs; there always is an empty one.
std::atomic<const Node*>& NodeTable::slotOf(const Slots& slots, Octree::OctreeNodeId id) {
    for (std::size_t i = std::hash<Octree::OctreeNodeId>()(id);; ++i) {
        std::atomic<const Node*>& slot = slots.slots[i & slots.mask];
        const Node* node = slot.load(std::memory_order_acquire);
        if (node == nullptr || node->id == id) {
            return slot;
        }
    }
}

const Node* NodeTable::find(Octree::OctreeNodeId id) const {
    return slotOf(*mCurrent.load(std::memory_order_acquire), id).load(std::memory_order_acquire);
}

void NodeTable::insert(std::shared_ptr<const Node> node) {
    if (2 * mUsed > mSlots.back()->mask) {
        grow();
    }
    std::atomic<const Node*>& slot = slotOf(*mSlots.back(), node->id);
    if (slot.load(std::memory_order_relaxed) == nullptr) {
        ++mUsed;
    }
    mNodes.push_back(std::move(node));
    slot.store(mNodes.back().get(), std::memory_order_release);
}

void NodeTable::grow() {
    const Slots& old = *mSlots.back();
    auto bigger = std::make_unique<const Slots>(2 * (old.mask + 1));
    for (std::size_t i = 0; i <= old.mask; ++i) {
        if (const Node* node = old.slots[i].load(std::memory_order_relaxed)) {
            slotOf(*bigger, node->id).store(node, std::memory_order_relaxed);
        }
    }
    mSlots.push_back(std::move(bigger));
    mCurrent.store(mSlots.back().get(), std::memory_order_release);
}

}  // namespace PoTree
