#pragma once

#include <math/NBoundingBox.h>
#include <octree/OctreeNodeId.h>
#include <render/pointcloud/LoadingProgressMeter.h>
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
#include <utility>
#include <vector>

namespace Render {

/// A walk through the octree of one point cloud, most important node first, that offers each node to a
/// prioritizer and goes on to the children of those that are resident. A node that cannot be read costs that
/// node and those below it.
///
/// The loading pool loads its nodes: the one that it comes to, and meanwhile those that will be next. They
/// are offered in the same order all the same, whatever comes first. Nodes without points are not worth the
/// way there.
///
/// One thread at a time.
class NodeWalk : private NodeVertexSource {
public:
    struct PendingNode {
        Octree::OctreeNodeId id;
        NodePriority priority;
        Math::NBoundingBox<float, 3> cube;
        std::uint32_t pointCount = 0;  ///< As far as known without reading; of one that is not resident.
        bool isResident = false;       ///< When it was pushed.
        bool isWanted = false;         ///< The progress counts it.
        bool isSaidEmpty = false;      ///< By its store.
    };

    /// What a walk goes by, as it was at its start.
    struct Basis {
        NodeVertexLoader loader;
        WalkParameters parameters;
        std::size_t maxLevel = 0;

        /// The root is offered unrated, so that a point cloud never vanishes altogether; it must not do so
        /// later either.
        NodePriority rate(Octree::OctreeNodeId id, const Math::NBoundingBox<float, 3>& cube) const;
        /// The children of a node that a walk offers: those that are not hidden and worth loading.
        template <class Visit>
        void forEachChild(Octree::OctreeNodeId id, const std::stop_token& stop, Visit&& visit) const;
        /// Has the octree read what a walk asks of it about these.
        void readChildren(Octree::OctreeNodeId id, const std::stop_token& stop) const;
    };

    explicit NodeWalk(LoadingProgressMeter& progress);

    /// Offers made after a clear() that the generation does not know are refused.
    void begin(std::shared_ptr<NodePrioritizer> prioritizer, std::size_t instanceId, std::uint64_t generation,
               Basis basis, const std::stop_token& stop);

    bool isDone() const { return mHeap.empty(); }
    /// Offers the most important node that is left, and tells the progress. True when nodes came or went.
    bool visitNext(const std::stop_token& stop);
    /// Hands over the error of the first node that could not be read: "Error loading point data" with the
    /// cause nested inside. Null when there is none.
    std::exception_ptr takeError() { return std::exchange(mError, nullptr); }

    void reportProgress(const NodePriority& mostImportant);
    /// Between two walks: what is being loaded goes on, and the next walk takes it if it wants it.
    void pause();
    /// Waits until nothing is being loaded any more.
    void end();

private:
    bool fetchNodeVertices(Octree::OctreeNodeId id, VertexContainer& out, std::stop_token stop) override;
    void push(PendingNode node, const std::stop_token& stop);
    std::optional<std::size_t> knownPointCount(const PendingNode& node, const std::stop_token& stop) const;
    void pushChildren(Octree::OctreeNodeId id, const std::stop_token& stop);
    PendingNode pop();
    void lookAhead(const std::stop_token& walkStop);
    void addNext();
    bool hasNothingToLoad(const PendingNode& node) const { return node.isSaidEmpty && mCountsAreGiven; }
    void pushCandidate(std::size_t place);
    const PendingNode& popCandidate();

    LoadingProgressMeter& mProgress;
    std::shared_ptr<NodePrioritizer> mPrioritizer;
    std::size_t mInstanceId = 0;
    std::uint64_t mGeneration = 0;
    Basis mBasis;
    std::exception_ptr mError;
    std::vector<PendingNode> mHeap;
    PendingNode mOffered{{}, NodePriority::discard(), {}};
    std::vector<std::size_t> mCandidates;  ///< To be loaded ahead: a heap of places in mHeap.
    NodeLoads mLoads;
    bool mIsLookingAhead = false;  ///< In this walk.
    bool mCountsAreGiven = true;   ///< A host's source may call every node empty.
};

}  // namespace Render
