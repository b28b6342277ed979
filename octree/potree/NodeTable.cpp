#include <octree/potree/NodeTable.h>

#include <algorithm>
#include <bit>
#include <random>
#include <utility>

namespace PoTree {

namespace {

constexpr std::size_t FIRST_SLOT_COUNT = 1024;
/// Slots moved between two looks at the stop token.
constexpr std::size_t STOP_STEP = 65536;

std::uint64_t randomOdd() {
    std::random_device device;
    return (std::uint64_t{device()} << 32 | device()) | 1;
}

}  // namespace

struct NodeTable::Slot {
    /// 0, which no node has, in an empty slot. Set after the node.
    std::atomic<std::uint64_t> code;
    std::atomic<const Node*> node;
};

struct NodeTable::Slots {
    explicit Slots(std::size_t count) : mask(count - 1), slots(std::make_unique<Slot[]>(count)) {}

    const std::size_t mask;
    const std::unique_ptr<Slot[]> slots;
};

NodeTable::NodeTable() : mFirstFactor(randomOdd()), mSecondFactor(randomOdd()) {
    mSlots.push_back(std::make_unique<const Slots>(FIRST_SLOT_COUNT));
    mCurrent = mSlots.back().get();
}

NodeTable::~NodeTable() = default;

std::size_t NodeTable::firstSlotOf(const Slots& slots, std::uint64_t code) const {
    const std::uint64_t once = code * mFirstFactor;
    const std::uint64_t twice = (once ^ once >> 32) * mSecondFactor;
    return (twice ^ twice >> 32) & slots.mask;
}

// The slot with this code, or the empty one where it belongs; there always is an empty one.
NodeTable::Slot& NodeTable::slotOf(const Slots& slots, std::uint64_t code) const {
    for (std::size_t i = firstSlotOf(slots, code);; ++i) {
        Slot& slot = slots.slots[i & slots.mask];
        const std::uint64_t found = slot.code.load(std::memory_order_acquire);
        if (found == 0 || found == code) {
            return slot;
        }
    }
}

const Node* NodeTable::find(Octree::OctreeNodeId id) const {
    const Slot& slot = slotOf(*mCurrent.load(std::memory_order_acquire), id.code());
    // Both may have been set since the slot was found empty.
    return slot.code.load(std::memory_order_acquire) == id.code() ? slot.node.load(std::memory_order_acquire)
                                                                  : nullptr;
}

void NodeTable::insert(std::shared_ptr<const Node> node) {
    reserve(1, {});
    Slot& slot = slotOf(*mSlots.back(), node->id.code());
    mNodes.push_back(std::move(node));
    slot.node.store(mNodes.back().get(), std::memory_order_release);
    if (slot.code.load(std::memory_order_relaxed) == 0) {
        ++mUsed;
        slot.code.store(mNodes.back()->id.code(), std::memory_order_release);
    }
}

std::size_t NodeTable::longestSearch() const {
    const Slots& slots = *mSlots.back();
    std::size_t longest = 0;
    for (std::size_t i = 0; i <= slots.mask; ++i) {
        if (const std::uint64_t code = slots.slots[i].code.load(std::memory_order_relaxed); code != 0) {
            longest = std::max(longest, ((i - firstSlotOf(slots, code)) & slots.mask) + 1);
        }
    }
    return longest;
}

bool NodeTable::reserve(std::size_t count, const std::stop_token& stop) {
    const std::size_t needed = std::bit_ceil(2 * (mUsed + count));
    return needed <= mSlots.back()->mask + 1 || grow(needed, stop);
}

bool NodeTable::grow(std::size_t slotCount, const std::stop_token& stop) {
    const Slots& old = *mSlots.back();
    auto bigger = std::make_unique<const Slots>(slotCount);
    for (std::size_t i = 0; i <= old.mask; ++i) {
        if (i % STOP_STEP == 0 && stop.stop_requested()) {
            return false;
        }
        if (const std::uint64_t code = old.slots[i].code.load(std::memory_order_relaxed); code != 0) {
            Slot& slot = slotOf(*bigger, code);
            slot.node.store(old.slots[i].node.load(std::memory_order_relaxed), std::memory_order_relaxed);
            slot.code.store(code, std::memory_order_relaxed);
        }
    }
    mSlots.push_back(std::move(bigger));
    mCurrent.store(mSlots.back().get(), std::memory_order_release);
    return true;
}

}  // namespace PoTree
