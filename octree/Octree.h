#pragma once

#include <core/Export.h>
#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <octree/AttributeInfo.h>
#include <octree/CacheIdentifier.h>
#include <octree/Location.h>
#include <octree/NodeChildren.h>
#include <octree/NodePointData.h>
#include <octree/NodeSource.h>
#include <octree/OctreeNodeId.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stop_token>
#include <vector>

namespace Octree {

/// A point cloud in an octree, wherever its nodes come from. Model coordinates are
/// (absolute - referencePosition()) * unitScale().
///
/// All operations may be called from any thread at any time. Those that take a node throw StoreError when the
/// store is damaged or has no such node. The hierarchy is read as it is asked for; once the part with a node
/// is loaded, queries about that node neither lock nor allocate.
class LUMARO_API Octree {
public:
    /// Opens the store. Throws StoreError, and std::invalid_argument for a unit scale that is not positive
    /// and finite or for no location.
    explicit Octree(const Location& location, double unitScale = 1.0);
    /// Serves a source of the host's own; the location is only its name in caches and palettes.
    Octree(std::shared_ptr<NodeSource> source, const Location& location, double unitScale = 1.0);
    Octree(const Octree&) = delete;
    Octree& operator=(const Octree&) = delete;
    ~Octree();

    const Location& location() const { return mLocation; }
    double unitScale() const { return mUnitScale.load(std::memory_order_relaxed); }
    /// Takes effect with the next call of each other operation.
    void setUnitScale(double unitScale);
    CacheIdentifier cacheIdentifier() const { return {mLocation, unitScale()}; }

    /// The origin of model coordinates, absolute, whatever the unit scale.
    const Math::Point<double, 3>& referencePosition() const { return mFacts.referencePosition; }
    /// Tight around the points, in model coordinates.
    Math::NBoundingBox<float, 3> boundingBox() const;
    /// Of the root, in model coordinates.
    Math::NBoundingBox<float, 3> boundingCube() const;
    /// Of any node id, in model coordinates; the node need not exist.
    Math::NBoundingBox<float, 3> boundingCube(OctreeNodeId id) const;
    /// Distance between points of a level, in model units.
    float spacing(std::size_t level = 0) const;

    /// Everything about one node in one lookup. False when stopped, which leaves facts as they were.
    bool nodeFacts(OctreeNodeId id, NodeFacts& facts, const std::stop_token& stop = {}) const;
    /// Empty when stopped.
    NodeChildren children(OctreeNodeId id, const std::stop_token& stop = {}) const;
    /// Whether the node has no children; true when stopped.
    bool isLeaf(OctreeNodeId id, const std::stop_token& stop = {}) const;
    static std::size_t level(OctreeNodeId id) { return id.level(); }
    /// 1 all points visible, 2 all hidden, 0 per point or unknown.
    int nodeVisibility(OctreeNodeId id) const;
    std::uint64_t pointCount(OctreeNodeId id) const;
    std::uint64_t totalPointCount() const { return mFacts.pointCount; }
    const std::vector<AttributeInfo>& attributes() const { return mFacts.attributes; }
    /// False: the store knows no colours, all points are white.
    bool hasColors() const { return mFacts.hasColors; }

    /// Reads and decodes a node's points: the columns that data was constructed for and that the store has.
    /// False when stopped.
    bool getNodePointData(OctreeNodeId id, NodePointData& data, const std::stop_token& stop = {}) const;

private:
    Math::NBoundingBox<float, 3> toModel(const Math::NBoundingBox<double, 3>& box) const;

    const Location mLocation;
    const std::shared_ptr<NodeSource> mSource;
    const StoreFacts& mFacts;
    std::atomic<double> mUnitScale;
};

}  // namespace Octree
