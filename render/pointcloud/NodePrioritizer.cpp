#include <render/pointcloud/NodePrioritizer.h>

#include <core/SharedResources.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <stdexcept>
#include <utility>

namespace Render {

namespace {

std::uint64_t nextSerial() {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

// Puts the least important entry at the front of a heap.
constexpr auto moreImportant = [](const auto& a, const auto& b) { return a->priority > b->priority; };

// Null when stopped.
std::shared_ptr<NodeVertices> fetch(NodeVertexSource& source, Octree::OctreeNodeId id,
                                    const std::stop_token& stop) {
    auto fetched = std::make_shared<NodeVertices>();
    fetched->serial = nextSerial();
    bool success = false;
    try {
        success = source.fetchNodeVertices(id, fetched->vertices, stop);
    } catch (...) {
        if (!stop.stop_requested()) {
            std::throw_with_nested(std::runtime_error("Error loading point data"));
        }
    }
    if (!success && !stop.stop_requested()) {
        throw std::runtime_error("Error loading point data");
    }
    return success ? fetched : nullptr;
}

}  // namespace

NodePrioritizer::NodePrioritizer(std::size_t totalMaxPointCount) : mTotalMaxPointCount(totalMaxPointCount) {}

NodePrioritizer::~NodePrioritizer() = default;

std::shared_ptr<NodePrioritizer> NodePrioritizer::shared(std::size_t rendererId, std::size_t budget) {
    static Core::SharedResources<std::size_t, NodePrioritizer> prioritizers;
    return prioritizers.getOrCreate(rendererId,
                                    [budget] { return std::make_shared<NodePrioritizer>(budget); });
}

void NodePrioritizer::addUser(std::size_t instanceId, std::size_t budget) {
    Entries evicted;
    const std::lock_guard lock(mMutex);
    mUsers[instanceId].budget = budget;
    startGeneration(instanceId);
    applyBudgets(evicted);
}

void NodePrioritizer::removeUser(std::size_t instanceId) {
    Entries evicted;
    const std::lock_guard lock(mMutex);
    removeEntries(instanceId, evicted);
    mUsers.erase(instanceId);
    applyBudgets(evicted);
}

void NodePrioritizer::applyBudgets(Entries& evicted) {
    std::optional<std::size_t> smallest;
    for (const auto& [instanceId, user] : mUsers) {
        if (user.budget && (!smallest || *user.budget < *smallest)) {
            smallest = user.budget;
        }
    }
    if (smallest) {
        mTotalMaxPointCount = *smallest;
        evictUntilWithinBudget(evicted);
    }
}

void NodePrioritizer::setTotalMaxPointCount(std::size_t count) {
    Entries evicted;
    const std::lock_guard lock(mMutex);
    mTotalMaxPointCount = count;
    evictUntilWithinBudget(evicted);
}

std::size_t NodePrioritizer::totalMaxPointCount() const {
    const std::lock_guard lock(mMutex);
    return mTotalMaxPointCount;
}

std::size_t NodePrioritizer::totalUsedPointCount() const {
    const std::lock_guard lock(mMutex);
    return mTotalUsedPointCount;
}

std::size_t NodePrioritizer::residentNodeCount() const {
    const std::lock_guard lock(mMutex);
    return mEntries.size();
}

NodePrioritizer::OfferResult NodePrioritizer::offer(const NodeId& id,
                                                    const Math::NBoundingBox<float, 3>& cube,
                                                    const NodePriority& priority, NodeVertexSource& source,
                                                    std::stop_token stop,
                                                    std::optional<std::uint64_t> generation) {
    {
        const std::lock_guard lock(mMutex);
        if (!generation) {
            const auto user = mUsers.find(id.instanceId);
            generation = user == mUsers.end() ? 0 : user->second.generation;
        }
        if (isStale(id.instanceId, *generation)) {
            return {};
        }
        if (mResident.contains(id)) {
            return {.resident = true};
        }
        if (isRefused(priority)) {
            return {};
        }
    }

    std::shared_ptr<const NodeVertices> vertices = fetch(source, id.octreeNodeId, stop);
    if (!vertices) {
        return {};
    }
    const std::size_t count = vertices->vertices.size();
    auto entry = std::make_unique<PrioritizedNode>(PrioritizedNode{id, priority, cube, std::move(vertices)});

    Entries evicted;
    const std::lock_guard lock(mMutex);
    if (isStale(id.instanceId, *generation)) {
        return {};
    }
    if (count == 0 || mResident.contains(id)) {
        return {.resident = true};
    }
    if (isRefused(priority)) {
        return {};
    }
    const bool fits = mTotalUsedPointCount + count < mTotalMaxPointCount;
    append(std::move(entry));
    if (fits) {
        mIsHeap = false;
    } else {
        if (mIsHeap) {
            std::push_heap(mEntries.begin(), mEntries.end(), moreImportant);
        }
        evictUntilWithinBudget(evicted);
    }
    const bool stayed =
        std::none_of(evicted.begin(), evicted.end(), [&](const auto& e) { return e->id == id; });
    return {.resident = stayed, .changed = true};
}

std::uint64_t NodePrioritizer::generation(std::size_t instanceId) const {
    const std::lock_guard lock(mMutex);
    const auto user = mUsers.find(instanceId);
    return user == mUsers.end() ? 0 : user->second.generation;
}

bool NodePrioritizer::isStale(std::size_t instanceId, std::uint64_t generation) const {
    const auto user = mUsers.find(instanceId);
    return generation != (user == mUsers.end() ? 0 : user->second.generation);
}

void NodePrioritizer::ensureHeap() {
    if (!mIsHeap) {
        std::make_heap(mEntries.begin(), mEntries.end(), moreImportant);
        mIsHeap = true;
    }
}

bool NodePrioritizer::isRefused(const NodePriority& priority) {
    if (mTotalUsedPointCount < mTotalMaxPointCount || mEntries.empty()) {
        return false;
    }
    ensureHeap();
    return !(mEntries.front()->priority < priority);
}

void NodePrioritizer::append(std::unique_ptr<PrioritizedNode> entry) {
    mTotalUsedPointCount += entry->pointCount();
    markChanged(entry->id.instanceId);
    mResident.emplace(entry->id, entry.get());
    mEntries.push_back(std::move(entry));
}

void NodePrioritizer::evictUntilWithinBudget(Entries& evicted) {
    while (mTotalUsedPointCount > mTotalMaxPointCount) {
        ensureHeap();
        std::pop_heap(mEntries.begin(), mEntries.end(), moreImportant);
        std::unique_ptr<PrioritizedNode> least = std::move(mEntries.back());
        mEntries.pop_back();
        mTotalUsedPointCount -= least->pointCount();
        mResident.erase(least->id);
        markChanged(least->id.instanceId);
        evicted.push_back(std::move(least));
    }
}

void NodePrioritizer::removeEntries(std::size_t instanceId, Entries& removed) {
    const auto kept = std::partition(mEntries.begin(), mEntries.end(),
                                     [&](const auto& entry) { return entry->id.instanceId != instanceId; });
    if (kept == mEntries.end()) {
        return;
    }
    for (auto entry = kept; entry != mEntries.end(); ++entry) {
        mTotalUsedPointCount -= (*entry)->pointCount();
        mResident.erase((*entry)->id);
        removed.push_back(std::move(*entry));
    }
    mEntries.erase(kept, mEntries.end());
    mIsHeap = false;
    markChanged(instanceId);
}

void NodePrioritizer::clear(std::size_t instanceId) {
    Entries removed;
    const std::lock_guard lock(mMutex);
    removeEntries(instanceId, removed);
    startGeneration(instanceId);
}

void NodePrioritizer::clear() {
    Entries removed;
    const std::lock_guard lock(mMutex);
    mResident.clear();
    mEntries.swap(removed);
    mTotalUsedPointCount = 0;
    for (const auto& entry : removed) {
        markChanged(entry->id.instanceId);
    }
    for (auto& [instanceId, user] : mUsers) {
        user.generation = ++mLastGeneration;
    }
}

bool NodePrioritizer::hasUnpublishedChanges(std::size_t instanceId) const {
    const std::lock_guard lock(mMutex);
    const auto user = mUsers.find(instanceId);
    return user != mUsers.end() && user->second.changed;
}

NodePrioritizer::Counts NodePrioritizer::updateBuffers(std::size_t instanceId, bool dropDeepestLevel,
                                                       Core::TripleBuffer<Buffer>& buffers) {
    std::vector<PublishedNode> stale;
    const std::lock_guard lock(mMutex);
    collectDrawn(instanceId, dropDeepestLevel);
    Buffer& buffer = buffers.writeSlot();
    updateVertexBuffer(buffer);
    updateOctreeTextureData(buffer);
    const Counts counts{buffer.nodes.size(), buffer.pointCount};
    buffers.swapWrite();
    // What an earlier publication left in the slot that comes back must not outlive its nodes.
    stale.swap(buffers.writeSlot().nodes);
    mDrawn.clear();
    mUsers[instanceId].changed = false;
    return counts;
}

void NodePrioritizer::collectDrawn(std::size_t instanceId, bool dropDeepestLevel) {
    std::array<std::size_t, Octree::OctreeNodeId::MAX_REPRESENTABLE_LEVEL + 1> nodesOfLevel{};
    mDrawn.clear();
    for (const auto& entry : mEntries) {
        if (entry->id.instanceId == instanceId && !entry->priority.isDiscarded()) {
            mDrawn.push_back(entry.get());
            ++nodesOfLevel[entry->id.octreeNodeId.level()];
            if (mDrawn.size() == Buffer::maxNodes) {
                break;
            }
        }
    }
    if (dropDeepestLevel) {
        const auto gap = std::find(nodesOfLevel.begin(), nodesOfLevel.end(), std::size_t{0});
        const auto levelCount = static_cast<std::size_t>(gap - nodesOfLevel.begin());
        const std::size_t kept = levelCount > 0 ? levelCount - 1 : 0;
        std::erase_if(mDrawn, [&](const auto* entry) { return entry->id.octreeNodeId.level() >= kept; });
    }
    std::sort(mDrawn.begin(), mDrawn.end(),
              [](const auto* a, const auto* b) { return a->id.octreeNodeId < b->id.octreeNodeId; });
}

void NodePrioritizer::updateOctreeTextureData(Buffer& buffer) const {
    buffer.buildNodeTable();
}

void NodePrioritizer::updateVertexBuffer(Buffer& buffer) const {
    buffer.nodes.clear();
    buffer.nodes.reserve(mDrawn.size());
    buffer.pointCount = 0;
    for (const PrioritizedNode* entry : mDrawn) {
        buffer.nodes.push_back({.id = entry->id.octreeNodeId,
                                .cube = entry->cube,
                                .pointCount = entry->pointCount(),
                                .serial = entry->vertices->serial,
                                .vertices = entry->vertices});
        buffer.pointCount += entry->pointCount();
    }
}

std::vector<std::shared_ptr<const NodeVertices>> NodePrioritizer::residentVertices(
    std::size_t instanceId) const {
    const std::lock_guard lock(mMutex);
    std::vector<std::shared_ptr<const NodeVertices>> result;
    for (const auto& entry : mEntries) {
        if (entry->id.instanceId == instanceId) {
            result.push_back(entry->vertices);
        }
    }
    return result;
}

}  // namespace Render
