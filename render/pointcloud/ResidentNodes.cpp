#include <render/pointcloud/ResidentNodes.h>

#include <algorithm>
#include <utility>

namespace Render {

namespace {

// Puts the least important entry at the front of a heap.
constexpr auto moreImportant = [](const auto& a, const auto& b) { return a->priority > b->priority; };

template <class T>
void makeRoomForOneMore(std::vector<T>& vector) {
    if (vector.size() == vector.capacity()) {
        vector.reserve(2 * vector.size() + 8);
    }
}

// Levels follow each other.
void dropDeepestLevel(std::vector<PublishedNode>& nodes) {
    std::size_t levelCount = 0;
    for (const PublishedNode& node : nodes) {
        if (node.id.level() > levelCount) {
            break;
        }
        levelCount = node.id.level() + 1;
    }
    const std::size_t kept = levelCount > 0 ? levelCount - 1 : 0;
    std::erase_if(nodes, [kept](const PublishedNode& node) { return node.id.level() >= kept; });
}

}  // namespace

ResidentNodes::ResidentNodes() {
    // More buckets would stay empty, and positions hold only until the next rehash.
    mResident.max_load_factor(static_cast<float>(PublishedNodes::maxNodes));
}

bool ResidentNodes::contains(Octree::OctreeNodeId id) const {
    const auto place = firstNotBefore(id);
    return place != mIds.end() && *place == id;
}

// As std::lower_bound, but each step is a choice of two numbers instead of a branch that is wrong half the
// time: walks ask for one node after another in no order.
std::vector<Octree::OctreeNodeId>::const_iterator ResidentNodes::firstNotBefore(
    Octree::OctreeNodeId id) const {
    const Octree::OctreeNodeId* first = mIds.data();
    for (std::size_t count = mIds.size(); count > 0;) {
        const std::size_t half = (count + 1) / 2;
        first += half * static_cast<std::size_t>(first[half - 1] < id);
        count -= half;
    }
    return mIds.begin() + (first - mIds.data());
}

const PrioritizedNode* ResidentNodes::leastImportant() {
    if (!mIsHeap) {
        std::make_heap(mEntries.begin(), mEntries.end(), moreImportant);
        mIsHeap = true;
    }
    return mEntries.empty() ? nullptr : mEntries.front().get();
}

std::size_t ResidentNodes::pointsBelow(const NodePriority& priority, std::size_t enough) {
    leastImportant();
    return pointsBelow(priority, enough, 0);
}

// What lies below an entry in the heap is no less important.
std::size_t ResidentNodes::pointsBelow(const NodePriority& priority, std::size_t enough,
                                       std::size_t entry) const {
    if (entry >= mEntries.size() || !(mEntries[entry]->priority < priority)) {
        return 0;
    }
    std::size_t points = (std::min)(mEntries[entry]->pointCount, enough);
    for (std::size_t next = 2 * entry + 1; next <= 2 * entry + 2 && points < enough; ++next) {
        points += pointsBelow(priority, enough - points, next);
    }
    return points;
}

const PrioritizedNode* ResidentNodes::leastImportantLeaf(Octree::OctreeNodeId coming) {
    const auto mayLeave = [&](const PrioritizedNode& node) {
        const Octree::OctreeNodeId id = node.id.octreeNodeId;
        return isLeaf(id) && (id != coming.parent() || coming.isRoot());
    };
    const PrioritizedNode* least = leastImportant();
    if (!least || mayLeave(*least)) {
        return least;
    }
    least = nullptr;
    for (const Node& entry : mEntries) {
        if ((!least || entry->priority < least->priority) && mayLeave(*entry)) {
            least = entry.get();
        }
    }
    return least;
}

std::uint8_t ResidentNodes::childrenOf(Octree::OctreeNodeId id) const {
    if (id.level() == Octree::OctreeNodeId::MAX_REPRESENTABLE_LEVEL) {
        return 0;
    }
    unsigned mask = 0;
    auto next = firstNotBefore(id.child(0));
    for (; next != mIds.end() && *next <= id.child(7); ++next) {
        mask |= 1u << (next->code() & 7u);
    }
    return static_cast<std::uint8_t>(mask);
}

void ResidentNodes::countIn(const PrioritizedNode& node) {
    if (!node.priority.isDiscarded()) {
        ++mKeptSize;
        mKeptPointCount += node.pointCount;
    }
}

void ResidentNodes::countOut(const PrioritizedNode& node) {
    if (!node.priority.isDiscarded()) {
        --mKeptSize;
        mKeptPointCount -= node.pointCount;
    }
}

void ResidentNodes::add(Node node) {
    makeRoomForOneMore(mEntries);
    makeRoomForOneMore(mIds);
    makeRoomForOneMore(mInOrder);
    node->position = mResident.emplace(node->id, node.get()).first;

    // Nothing fails from here on.
    const auto place = std::lower_bound(mIds.begin(), mIds.end(), node->id.octreeNodeId);
    mInOrder.insert(mInOrder.begin() + (place - mIds.begin()), node.get());
    mIds.insert(place, node->id.octreeNodeId);
    mPointCount += node->pointCount;
    countIn(*node);
    mEntries.push_back(std::move(node));
    if (mIsHeap) {
        std::push_heap(mEntries.begin(), mEntries.end(), moreImportant);
    }
}

ResidentNodes::Node ResidentNodes::remove(const PrioritizedNode& node) {
    if (mIsHeap && mEntries.front().get() == &node) {
        std::pop_heap(mEntries.begin(), mEntries.end(), moreImportant);
    } else {
        const auto entry = std::find_if(mEntries.begin(), mEntries.end(),
                                        [&](const Node& each) { return each.get() == &node; });
        std::iter_swap(entry, mEntries.end() - 1);
        mIsHeap = false;
    }
    Node removed = std::move(mEntries.back());
    mEntries.pop_back();
    mResident.erase(removed->position);
    const auto place = std::lower_bound(mIds.begin(), mIds.end(), removed->id.octreeNodeId);
    mInOrder.erase(mInOrder.begin() + (place - mIds.begin()));
    mIds.erase(place);
    mPointCount -= removed->pointCount;
    countOut(*removed);
    return removed;
}

void ResidentNodes::publish(bool withoutDeepestLevel, PublishedNodes& out) const {
    out.nodes.clear();
    out.nodes.reserve(mInOrder.size());
    for (const PrioritizedNode* node : mInOrder) {
        if (!node->priority.isDiscarded()) {
            out.nodes.push_back({.id = node->id.octreeNodeId,
                                 .cube = node->cube,
                                 .pointCount = node->pointCount,
                                 .serial = node->vertices->serial,
                                 .vertices = node->vertices});
        }
    }
    if (withoutDeepestLevel) {
        dropDeepestLevel(out.nodes);
    }
    out.pointCount = 0;
    for (const PublishedNode& node : out.nodes) {
        out.pointCount += node.pointCount;
    }
    out.buildNodeTable();
}

std::vector<std::shared_ptr<const NodeVertices>> ResidentNodes::vertices() const {
    std::vector<std::shared_ptr<const NodeVertices>> result;
    result.reserve(mEntries.size());
    for (const Node& entry : mEntries) {
        result.push_back(entry->vertices);
    }
    return result;
}

}  // namespace Render
