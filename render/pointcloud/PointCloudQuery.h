#pragma once

#include <core/Export.h>
#include <math/NBoundingBox.h>
#include <octree/BoxTestResult.h>
#include <octree/NodePointData.h>
#include <octree/Octree.h>
#include <render/gpu/VertexTypes.h>
#include <render/pointcloud/IFilter.h>
#include <render/pointcloud/NodeCaches.h>
#include <render/pointcloud/PointCloudFilter.h>

#include <Eigen/Core>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>

namespace Render {

/// Hands out the points of a cloud that lie in a region, down to a level and a point spacing, in chunks of
/// the caller's size. Walks the octree breadth first and reads nodes as it needs them.
///
/// Belongs to one thread at a time; it may be another than the one that renders the cloud.
class LUMARO_API PointCloudQuery {
public:
    using Cache = PointDataCache;

    /// `cache` may be null. `filter` stays the caller's and must outlive the query; null stands for all of
    /// space. `minSpacing` is in world units.
    PointCloudQuery(std::shared_ptr<Octree::Octree> octree, std::shared_ptr<Cache> cache,
                    const Eigen::Matrix4f& world, IFilter* filter, std::size_t maxLevel, float minSpacing,
                    std::chrono::nanoseconds timeLimit);
    PointCloudQuery(PointCloudQuery&&) noexcept;
    PointCloudQuery& operator=(PointCloudQuery&&) noexcept;
    ~PointCloudQuery();

    /// The cache that all queries of a location at a unit scale share; see NodeCaches.h.
    static std::shared_ptr<Cache> createOrGetSharedCache(const Octree::Location& location, double unitScale,
                                                         std::size_t capacity, std::size_t expectedEntries);

    /// Writes up to maxCount points in world coordinates; 0 means that there are no more. Throws
    /// std::runtime_error "Querying node data failed", with the cause nested inside, when a node cannot be
    /// read.
    std::size_t getNextPointChunk(VertexPosColor* out, std::size_t maxCount);

    /// Applies to the nodes and points not handed out yet.
    void setWorldMatrix(const Eigen::Matrix4f& world);

private:
    struct PendingNode {
        Octree::OctreeNodeId id;
        std::size_t level = 0;
        float spacing = 0.0f;  ///< World units.
        Octree::BoxTestResult boxTestResult = Octree::BoxTestResult::Outside;
    };

    void consider(Octree::OctreeNodeId id, Octree::BoxTestResult parentResult);
    bool loadNextNode();
    Octree::NodeChildren fetch(Octree::OctreeNodeId id);  ///< Reads the points, returns the children.
    bool takePoint(VertexPosColor& out);

    std::shared_ptr<Octree::Octree> mOctree;
    std::shared_ptr<Cache> mCache;
    std::deque<PendingNode> mPending;
    PendingNode mCurrent;
    Octree::NodePointData mPoints;
    bool mIsStarted = false;
    bool mIsNodeLoaded = false;
    std::size_t mCursor = 0;  ///< Next point of the current node.
    PointCloudFilter mFilter;
    Eigen::Matrix4f mWorld = Eigen::Matrix4f::Identity();
    float mWorldScale = 1.0f;
    std::chrono::nanoseconds mTimeLimit;
};

}  // namespace Render
