#pragma once

#include <math/NBoundingBox.h>
#include <octree/OctreeNodeId.h>
#include <render/pointcloud/NodeLoads.h>
#include <render/pointcloud/NodePrioritizer.h>
#include <render/pointcloud/NodePriority.h>
#include <render/pointcloud/NodeVertexLoader.h>
#include <render/pointcloud/NodeVertexSource.h>
#include <render/pointcloud/WalkParameters.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

namespace Render {

/// A walk through the octree of one point cloud, most important node first, that offers each node to a
/// prioritizer and goes on to the children of those that are resident. A node that cannot be read costs that
/// node and those below it.
///
/// The loading pool loads its nodes: the one that it comes to, and meanwhile those that will be next. They
/// are offered in the same order all the same, whatever comes first.
///
/// One thread at a time.
class NodeWalk : private NodeVertexSource {
public:
    struct PendingNode {
        Octree::OctreeNodeId id;
        NodePriority priority;
        Math::NBoundingBox<float, 3> cube;
        /// Hidden points make it an upper bound. 0 where it is not known: a host's source need not say it.
        std::size_t pointCount = 0;
    };

    /// What a walk goes by, as it was at its start.
    struct Basis {
        NodeVertexLoader loader;
        WalkParameters parameters;
        std::size_t maxLevel = 0;

        /// The root is offered unrated, so that a point cloud never vanishes altogether; it must not do so
        /// later either.
        NodePriority rate(Octree::OctreeNodeId id, const Math::NBoundingBox<float, 3>& cube) const;
        /// The node as a walk offers it. None when stopped, or when it is hidden or not worth loading.
        /// Throws as the octree does.
        std::optional<PendingNode> toBeOffered(Octree::OctreeNodeId id, const std::stop_token& stop) const;
        /// Has the octree read what a walk asks of it about the node's children.
        void readChildren(Octree::OctreeNodeId id, const std::stop_token& stop) const;
    };

    NodeWalk();

    /// Offers made after a clear() that the generation does not know are refused.
    void begin(std::shared_ptr<NodePrioritizer> prioritizer, std::size_t instanceId, std::uint64_t generation,
               Basis basis, const std::stop_token& stop);
    const Basis& basis() const { return mBasis; }

    bool isDone() const { return mHeap.empty(); }
    /// Offers the most important node that is left. True when nodes came or went.
    bool visitNext(const std::stop_token& stop);
    /// Of the first node that could not be read: "Error loading point data" with the cause nested inside.
    /// Null when there is none.
    const std::exception_ptr& error() const { return mError; }

    /// Between two walks: what is being loaded goes on, and the next walk takes it if it wants it.
    void pause();
    /// Waits until nothing is being loaded any more.
    void end();

private:
    bool fetchNodeVertices(Octree::OctreeNodeId id, VertexContainer& out, std::stop_token stop) override;
    void pushIfToBeOffered(Octree::OctreeNodeId id, const std::stop_token& stop);
    void pushChildren(Octree::OctreeNodeId id, const std::stop_token& stop);
    PendingNode pop();
    void lookAhead(const std::stop_token& walkStop);
    void addNext();
    void pushCandidate(std::size_t place);
    const PendingNode& popCandidate();
    /// Runs `read`; what it throws is the walk's error.
    template <class Read>
    void readHierarchy(const std::stop_token& stop, Read&& read);
    void keepError(const std::stop_token& stop);

    std::shared_ptr<NodePrioritizer> mPrioritizer;
    std::size_t mInstanceId = 0;
    std::uint64_t mGeneration = 0;
    Basis mBasis;
    std::exception_ptr mError;
    std::vector<PendingNode> mHeap;
    PendingNode mOffered{{}, NodePriority::discard(), {}, 0};
    std::vector<std::size_t> mCandidates;  ///< To be loaded ahead: a heap of places in mHeap.
    NodeLoads mLoads;
    bool mIsLookingAhead = false;  ///< In this walk.
};

}  // namespace Render
