#pragma once

#include <core/TripleBuffer.h>
#include <math/NBoundingBox.h>
#include <render/pointcloud/NodeId.h>
#include <render/pointcloud/NodePriority.h>
#include <render/pointcloud/NodeVertexSource.h>
#include <render/pointcloud/PublishedNodes.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <unordered_map>
#include <vector>

namespace Render {

/// Keeps the nodes that are worth drawing, of all point clouds of one renderer, under a common budget in
/// points.
///
/// A node is offered with its priority. While the budget is not used up it becomes resident; after that it
/// has to be more important than the least important resident node, which makes room for it. Without eviction
/// the sum of points stays strictly below the budget; eviction stops as soon as the sum is at or below it.
///
/// The point clouds that share a prioritizer register with their own budgets; the smallest of these holds.
/// Nodes of one point cloud are told from those of others by its instance id.
///
/// Every member may be called from any thread. Vertices are fetched, and evicted ones destroyed, outside the
/// lock.
class NodePrioritizer {
public:
    using Buffer = PublishedNodes;

    struct OfferResult {
        bool resident = false;  ///< The node is resident now, or has no points to be resident with.
        bool changed = false;   ///< Nodes came or went.
    };

    struct Counts {
        std::size_t nodes = 0;
        std::size_t points = 0;
    };

    explicit NodePrioritizer(std::size_t totalMaxPointCount);
    ~NodePrioritizer();
    NodePrioritizer(const NodePrioritizer&) = delete;
    NodePrioritizer& operator=(const NodePrioritizer&) = delete;

    /// The prioritizer of a renderer, made with the given budget by the first who asks.
    static std::shared_ptr<NodePrioritizer> shared(std::size_t rendererId, std::size_t budget);

    /// The budget becomes the smallest of all users. A user that leaves takes its nodes along.
    void addUser(std::size_t instanceId, std::size_t budget);
    void removeUser(std::size_t instanceId);

    /// Evicts the least important nodes at once when they no longer fit.
    void setTotalMaxPointCount(std::size_t count);
    std::size_t totalMaxPointCount() const;
    std::size_t totalUsedPointCount() const;
    std::size_t residentNodeCount() const;

    /// Offers one node; fetches it unless it is resident or not important enough. With a generation given,
    /// the offer is refused when clear() has been called for this point cloud since that generation was asked
    /// for; a clear() during the fetch refuses it in any case. A stop is quiet; other failures to fetch throw
    /// std::runtime_error "Error loading point data" with the cause nested inside.
    OfferResult offer(const NodeId& id, const Math::NBoundingBox<float, 3>& cube,
                      const NodePriority& priority, NodeVertexSource& source, std::stop_token stop,
                      std::optional<std::uint64_t> generation = std::nullopt);

    /// Changes with every clear() of the point cloud.
    std::uint64_t generation(std::size_t instanceId) const;

    /// Gives each resident node of the point cloud the priority `rate(Octree::OctreeNodeId, cube)`; runs
    /// under the lock and ends early when `stop` is signalled.
    template <class Rate>
    void rerate(std::size_t instanceId, std::stop_token stop, Rate&& rate);

    /// Drops the nodes of one point cloud, or of all.
    void clear(std::size_t instanceId);
    void clear();

    /// True when the nodes to draw may differ from the last publication, whoever caused it.
    bool hasUnpublishedChanges(std::size_t instanceId) const;

    /// Publishes the point cloud's resident nodes except discarded ones, 4096 at most, and returns how many
    /// there are. With dropDeepestLevel only those above the last of the consecutive levels that begin at the
    /// root.
    Counts updateBuffers(std::size_t instanceId, bool dropDeepestLevel, Core::TripleBuffer<Buffer>& buffers);

    /// The vertices of all resident nodes of one point cloud.
    std::vector<std::shared_ptr<const NodeVertices>> residentVertices(std::size_t instanceId) const;

private:
    struct PrioritizedNode {
        NodeId id;
        NodePriority priority;
        Math::NBoundingBox<float, 3> cube;
        std::shared_ptr<const NodeVertices> vertices;

        std::size_t pointCount() const { return vertices->vertices.size(); }
    };
    using Entries = std::vector<std::unique_ptr<PrioritizedNode>>;

    struct User {
        std::optional<std::size_t> budget;  ///< None while it is not registered.
        std::uint64_t generation = 0;       ///< Never used twice.
        bool changed = false;               ///< Since its last publication.
    };

    // All of these expect the lock to be held.
    void ensureHeap();
    bool isRefused(const NodePriority& priority);
    bool isStale(std::size_t instanceId, std::uint64_t generation) const;
    void append(std::unique_ptr<PrioritizedNode> entry);  ///< The caller sees to the heap.
    void evictUntilWithinBudget(Entries& evicted);
    void removeEntries(std::size_t instanceId, Entries& removed);
    void markChanged(std::size_t instanceId) { mUsers[instanceId].changed = true; }
    void applyBudgets(Entries& evicted);
    void startGeneration(std::size_t instanceId) { mUsers[instanceId].generation = ++mLastGeneration; }
    void collectDrawn(std::size_t instanceId, bool dropDeepestLevel);
    void updateOctreeTextureData(Buffer& buffer) const;
    void updateVertexBuffer(Buffer& buffer) const;

    mutable std::mutex mMutex;  ///< Guards all below.
    Entries mEntries;
    bool mIsHeap = false;  ///< The least important entry is the first.
    std::unordered_map<NodeId, PrioritizedNode*> mResident{8};
    std::size_t mTotalUsedPointCount = 0;
    std::size_t mTotalMaxPointCount;
    std::unordered_map<std::size_t, User> mUsers;  ///< By instance id.
    std::uint64_t mLastGeneration = 0;
    std::vector<const PrioritizedNode*> mDrawn;  ///< Scratch space of a publication.
};

template <class Rate>
void NodePrioritizer::rerate(std::size_t instanceId, std::stop_token stop, Rate&& rate) {
    const std::lock_guard lock(mMutex);
    mIsHeap = false;
    for (const auto& entry : mEntries) {
        if (stop.stop_requested()) {
            return;
        }
        if (entry->id.instanceId != instanceId) {
            continue;
        }
        const bool wasDiscarded = entry->priority.isDiscarded();
        entry->priority = rate(entry->id.octreeNodeId, entry->cube);
        if (entry->priority.isDiscarded() != wasDiscarded) {
            markChanged(instanceId);
        }
    }
}

}  // namespace Render
