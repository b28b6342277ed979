#pragma once

#include <core/Export.h>
#include <math/NBoundingBox.h>
#include <math/StoredMatrix.h>
#include <octree/BoxTestResult.h>
#include <octree/NodePointData.h>
#include <octree/Octree.h>
#include <octree/PositionGrid.h>
#include <render/gpu/VertexTypes.h>
#include <render/pointcloud/IFilter.h>
#include <render/pointcloud/NodeCaches.h>
#include <render/pointcloud/PointCloudFilter.h>
#include <render/pointcloud/QueryPoint.h>
#include <render/pointcloud/filters/RegionFilter.h>

#include <Eigen/Core>
#include <chrono>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <optional>
#include <stop_token>

namespace Render {

class NodeLoads;

/// Hands out the points of a cloud that lie in a region, down to a level and a point spacing, in chunks of
/// the caller's size. Walks the octree breadth first and reads nodes as it needs them; with a cache, the
/// process's loading threads read ahead, a few nodes at first and more the longer it goes on.
///
/// A RegionFilter is tested in double: a point is handed out exactly when the region contains its
/// QueryPoint::position. Any other IFilter sees positions narrowed to float and then moved by the world
/// matrix, also in float. Both forms of getNextPointChunk() accept the same points.
///
/// Belongs to one thread at a time; it may be another than the one that renders the cloud. Any number of
/// queries may share an octree and a cache.
class LUMARO_API PointCloudQuery {
public:
    using Cache = PointDataCache;

    /// `cache` may be null. `filter` stays the caller's and must outlive the query; null stands for all of
    /// space. `minSpacing` is in world units.
    ///
    /// `timeLimit` bounds how long one getNextPointChunk() takes, but for the reading of the node that it is
    /// at; 0 or less is no limit.
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

    /// Writes up to maxCount points in world coordinates and returns how many. 0 means that there are no
    /// more, or that maxCount is 0, or that the call was stopped or its time was up before it met a point:
    /// isExhausted() tells. The next call goes on where this one ended; nothing is lost or repeated. A
    /// position or colour that the store does not have is left as it is in `out`.
    ///
    /// Throws std::runtime_error "Querying node data failed", with the cause nested inside, when a node
    /// cannot be read, and whatever the filter throws. A call that has points returns them and leaves the
    /// exception to the next call. The call after that goes on: with the nodes below one whose points cannot
    /// be read, behind a point whose test threw, and with the points of a node whose box test threw. So who
    /// goes on until isExhausted() gets all points of a damaged store that can be had.
    ///
    /// Throws std::invalid_argument for null with a maxCount above 0.
    std::size_t getNextPointChunk(VertexPosColor* out, std::size_t maxCount,
                                  const std::stop_token& stop = {});
    /// The same points, of which it writes more. The two forms share one cursor and may be mixed.
    std::size_t getNextPointChunk(QueryPoint* out, std::size_t maxCount, const std::stop_token& stop = {});
    std::size_t getNextPointChunk(std::nullptr_t, std::size_t maxCount, const std::stop_token& stop = {}) {
        return getNextPointChunk(static_cast<QueryPoint*>(nullptr), maxCount, stop);
    }

    /// Whether nothing is left, neither points to look at nor an exception to throw. False before the first
    /// chunk.
    bool isExhausted() const;

    // What follows belongs before the first chunk: nodes that were queued or dropped stay so.

    void setWorldMatrix(const Eigen::Matrix4f& world);

    /// Makes the region, which must be a RegionFilter or null, and QueryPoint::position absolute: the store's
    /// own coordinates, whatever the unit scale and the world matrix. Where the store states the grid that
    /// its points lie on, they come out as the decimal fractions that they are (see Octree::PositionGrid).
    /// VertexPosColor and the spacing stay in world coordinates. Off by default.
    ///
    /// Throws std::invalid_argument for another filter: floats cannot hold absolute coordinates.
    void setAbsoluteCoordinates(bool isAbsolute);

    /// Whether hidden points and nodes count as well. Off by default.
    void setIncludesHidden(bool includesHidden) { mIncludesHidden = includesHidden; }

private:
    struct PendingNode {
        Octree::OctreeNodeId id;
        std::size_t level = 0;
        float spacing = 0.0f;  ///< World units.
        Octree::BoxTestResult boxTestResult = Octree::BoxTestResult::Outside;
    };
    /// Of a point; computed only as far as somebody needs it.
    struct Place {
        Math::Point<float, 3> world;
        Math::Point<double, 3> exact;
    };

    template <class Point>
    std::size_t nextChunk(Point* out, std::size_t maxCount, const std::stop_token& stop);
    template <class Point>
    std::size_t takePoints(Point* out, std::size_t maxCount);
    bool isHidden(std::size_t index) const;
    Math::Point<double, 3> exactPosition(std::size_t index) const;
    void write(std::size_t index, const Place& place, VertexPosColor& out) const;
    void write(std::size_t index, const Place& place, QueryPoint& out) const;

    void consider(Octree::OctreeNodeId id, Octree::BoxTestResult parentResult);
    void considerChildren(const PendingNode& parent, const Octree::NodeChildren& children);
    Octree::BoxTestResult testBox(Octree::OctreeNodeId id) const;
    Math::NBoundingBox<double, 3> exactBounds(Octree::OctreeNodeId id) const;
    void loadNextNode(const std::stop_token& stop);
    bool fetch(Octree::OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop);
    bool fetchPoints(Octree::OctreeNodeId id, const std::stop_token& stop);
    void loadAhead(Octree::OctreeNodeId id);
    std::size_t bytesToLoadAhead(Octree::OctreeNodeId id) const;
    void keepException();
    void updateExactMatrix();

    std::shared_ptr<Octree::Octree> mOctree;
    std::shared_ptr<Cache> mCache;
    std::deque<PendingNode> mPending;
    PendingNode mCurrent;
    Octree::NodePointData mPoints;
    bool mIsStarted = false;
    bool mIsNodeLoaded = false;
    bool mIsNodeHidden = false;
    std::size_t mCursor = 0;        ///< Next point of the current node.
    std::exception_ptr mException;  ///< For the next call that has no points to return.
    PointCloudFilter mFilter;
    const RegionFilter* mRegion;  ///< The same filter; null when it is none.
    bool mIncludesHidden = false;
    bool mIsAbsolute = false;
    Math::StoredMatrix4f mWorld = Math::StoredMatrix4f::Identity();
    float mWorldScale = 1.0f;
    /// From model coordinates to those of the region and of QueryPoints.
    Math::StoredMatrix4d mExactMatrix = Math::StoredMatrix4d::Identity();
    std::optional<Octree::PositionGrid> mGrid;  ///< That those lie on.
    std::chrono::nanoseconds mTimeLimit;
    std::unique_ptr<NodeLoads> mLoads;  ///< Null before the first node that is in no cache.
    std::size_t mNodesFetched = 0;
};

}  // namespace Render
