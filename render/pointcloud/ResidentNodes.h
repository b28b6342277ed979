#pragma once

#include <math/NBoundingBox.h>
#include <render/pointcloud/NodeId.h>
#include <render/pointcloud/NodePriority.h>
#include <render/pointcloud/PublishedNodes.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stop_token>
#include <unordered_map>
#include <vector>

namespace Render {

/// One node that is resident.
struct PrioritizedNode {
    NodeId id;
    NodePriority priority;
    Math::NBoundingBox<float, 3> cube;  ///< Model coordinates.
    std::size_t pointCount = 0;
    std::shared_ptr<const NodeVertices> vertices;
    std::unordered_map<NodeId, PrioritizedNode*>::iterator position{};  ///< Among the resident nodes.
};

/// The resident nodes of one point cloud, as a heap by importance and in the order in which they are drawn.
/// One thread at a time.
class ResidentNodes {
public:
    using Node = std::unique_ptr<PrioritizedNode>;

    ResidentNodes();

    bool contains(Octree::OctreeNodeId id) const;
    std::size_t size() const { return mEntries.size(); }
    std::size_t pointCount() const { return mPointCount; }
    /// Without discarded nodes.
    std::size_t keptSize() const { return mKeptSize; }
    std::size_t keptPointCount() const { return mKeptPointCount; }
    /// Bit i: child i of the node is there.
    std::uint8_t childrenOf(Octree::OctreeNodeId id) const;

    /// Null when there are no nodes. Makes the heap when it has to.
    const PrioritizedNode* leastImportant();
    /// The points of nodes less important than that; counts no further than `enough`, and returns no more.
    std::size_t pointsBelow(const NodePriority& priority, std::size_t enough);
    /// The least important node that has no children here and is not the parent of `coming`, so that its
    /// leaving orphans no node. Null if there is none.
    const PrioritizedNode* leastImportantLeaf(Octree::OctreeNodeId coming);

    /// The node must not be there yet. Changes nothing when memory runs out.
    void add(Node node);
    Node remove(const PrioritizedNode& node);

    /// Gives each node the priority `rate(Octree::OctreeNodeId, cube)`; ends early when `stop` is signalled.
    /// Returns whether a node became discarded or is so no more.
    template <class Rate>
    bool rerate(const std::stop_token& stop, Rate&& rate);

    /// Replaces `out` by all nodes that are not discarded; with dropDeepestLevel only by those above the last
    /// of the consecutive levels that begin at the root.
    void publish(bool dropDeepestLevel, PublishedNodes& out) const;

    std::vector<std::shared_ptr<const NodeVertices>> vertices() const;

private:
    std::size_t pointsBelow(const NodePriority& priority, std::size_t enough, std::size_t entry) const;
    bool isLeaf(Octree::OctreeNodeId id) const { return childrenOf(id) == 0; }
    std::vector<Octree::OctreeNodeId>::const_iterator firstNotBefore(Octree::OctreeNodeId id) const;
    void countIn(const PrioritizedNode& node);
    void countOut(const PrioritizedNode& node);

    std::vector<Node> mEntries;
    bool mIsHeap = false;  ///< The least important entry is the first.
    std::size_t mPointCount = 0;
    std::size_t mKeptSize = 0;
    std::size_t mKeptPointCount = 0;
    /// The nodes by id. Its hash makes every search linear, so the sorted mIds tell what is resident, and a
    /// node that leaves knows its position.
    std::unordered_map<NodeId, PrioritizedNode*> mResident{8};
    std::vector<Octree::OctreeNodeId> mIds;
    std::vector<const PrioritizedNode*> mInOrder;  ///< Node i has id mIds[i].
};

template <class Rate>
bool ResidentNodes::rerate(const std::stop_token& stop, Rate&& rate) {
    bool changed = false;
    mIsHeap = false;
    for (const Node& entry : mEntries) {
        if (stop.stop_requested()) {
            break;
        }
        const NodePriority priority = rate(entry->id.octreeNodeId, entry->cube);
        const std::size_t keptBefore = mKeptSize;
        countOut(*entry);
        entry->priority = priority;
        countIn(*entry);
        changed = changed || mKeptSize != keptBefore;
    }
    return changed;
}

}  // namespace Render
