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
#include <render/pointcloud/QueryPoint.h>

#include <Eigen/Core>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>

namespace Render {

/// Hands out the points of a cloud that lie in a region, down to a level and a point spacing, in chunks of
/// the caller's size. Walks the octree breadth first and reads nodes as it needs them. Hidden points and
/// nodes are left out.
///
/// Belongs to one thread at a time; it may be another than the one that renders the cloud. Any number of
/// queries may share an octree and a cache.
class LUMARO_API PointCloudQuery {
public:
    using Cache = PointDataCache;

    /// `cache` may be null. `filter` stays the caller's and must outlive the query; null stands for all of
    /// space. `minSpacing` is in world units.
    ///
    /// `timeLimit` bounds how long one getNextPointChunk() goes on fetching nodes once it has a point to
    /// return: it then returns what it has. It never cuts short the search for the first point, and 0 or less
    /// is no limit.
    ///
    /// Throws std::invalid_argument without an octree.
    PointCloudQuery(std::shared_ptr<Octree::Octree> octree, std::shared_ptr<Cache> cache,
                    const Eigen::Matrix4f& world, IFilter* filter, std::size_t maxLevel, float minSpacing,
                    std::chrono::nanoseconds timeLimit);
    PointCloudQuery(PointCloudQuery&&) noexcept;
    PointCloudQuery& operator=(PointCloudQuery&&) noexcept;
    ~PointCloudQuery();

    /// The cache that all queries of a location at a unit scale share; see NodeCaches.h.
    static std::shared_ptr<Cache> createOrGetSharedCache(const Octree::Location& location, double unitScale,
                                                         std::size_t capacity, std::size_t expectedEntries);

    /// Writes up to maxCount points in world coordinates and returns how many; 0 means that there are no more
    /// (or that maxCount is 0). A position or colour that the store does not have is left as it is in `out`.
    ///
    /// Throws std::runtime_error "Querying node data failed", with the cause nested inside, when a node
    /// cannot be read. The next call tries that node again; what the failed call had written is not handed
    /// out a second time.
    std::size_t getNextPointChunk(VertexPosColor* out, std::size_t maxCount);
    /// The same points, of which it writes more. The two forms share one cursor and may be mixed. Which
    /// points are accepted is decided on positions narrowed to float here too.
    std::size_t getNextPointChunk(QueryPoint* out, std::size_t maxCount);

    /// Belongs before the first chunk: nodes that were queued or dropped under the old matrix stay so.
    void setWorldMatrix(const Eigen::Matrix4f& world);

private:
    struct PendingNode {
        Octree::OctreeNodeId id;
        std::size_t level = 0;
        float spacing = 0.0f;  ///< World units.
        Octree::BoxTestResult boxTestResult = Octree::BoxTestResult::Outside;
    };

    template <class Point>
    std::size_t nextChunk(Point* out, std::size_t maxCount);
    template <class Point>
    std::size_t takePoints(Point* out, std::size_t maxCount);
    void write(std::size_t index, const Math::Point<float, 3>& position, VertexPosColor& out) const;
    void write(std::size_t index, const Math::Point<float, 3>& position, QueryPoint& out) const;

    void consider(Octree::OctreeNodeId id, Octree::BoxTestResult parentResult);
    void considerChildren(const PendingNode& parent, const Octree::NodeChildren& children);
    bool hasNextNode();
    void loadNextNode();
    Octree::NodeChildren fetch(Octree::OctreeNodeId id);  ///< Reads the points, returns the children.

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
    Eigen::Matrix4d mExactWorld = Eigen::Matrix4d::Identity();  ///< mWorld in double.
    float mWorldScale = 1.0f;
    std::chrono::nanoseconds mTimeLimit;
};

}  // namespace Render
