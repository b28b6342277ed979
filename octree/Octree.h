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
#include <octree/PositionGrid.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace Octree {

/// A point cloud in an octree, wherever its nodes come from. Model coordinates are
/// (absolute - referencePosition()) * unitScale().
///
/// External attributes are columns in stores of their own, with the same nodes and the same points in the
/// same order. A column comes from the cloud's own store if that has it, otherwise from the first external
/// one that does; a point is hidden that is hidden in any.
///
/// All operations may be called from any thread at any time. Those that take a node throw StoreError when the
/// store is damaged or has no such node. The hierarchy is read as it is asked for; once the part with a node
/// is loaded, queries about that node neither lock nor allocate.
class LUMARO_API Octree {
public:
    /// Opens the store. Throws StoreError, and std::invalid_argument for a unit scale that is not positive
    /// and finite or for no location.
    explicit Octree(const Location& location, double unitScale = 1.0);
    /// The same, and throws OpenStopped when stopped.
    Octree(const Location& location, double unitScale, const std::stop_token& stop);
    /// Serves a source of the host's own; the location is only its name in caches and palettes.
    Octree(std::shared_ptr<NodeSource> source, const Location& location, double unitScale = 1.0);
    /// One over the same stores that no change to this one reaches: what caches of its identifier are filled
    /// from.
    std::shared_ptr<Octree> snapshot() const;
    Octree(const Octree&) = delete;
    Octree& operator=(const Octree&) = delete;
    ~Octree();

    const Location& location() const { return mLocation; }
    double unitScale() const { return mUnitScale.load(std::memory_order_relaxed); }
    /// Takes effect with the next call of each other operation.
    void setUnitScale(double unitScale);
    CacheIdentifier cacheIdentifier() const;

    /// Opens a store of external attributes, which needs no positions; takes effect with the next call of
    /// each other operation. Nothing happens for one that was added before. Throws as the constructor does.
    /// Afterwards, operations on a node throw StoreError naming both stores where they do not match.
    void addExternalAttributeLocation(const Location& location);
    /// The same, and throws OpenStopped, with nothing added, when stopped.
    void addExternalAttributeLocation(const Location& location, const std::stop_token& stop);
    /// A source of the host's own; the location is only its name.
    void addExternalAttributes(std::shared_ptr<NodeSource> source, const Location& location);

    /// The origin of model coordinates, absolute, whatever the unit scale.
    const Math::Point<double, 3>& referencePosition() const { return mFacts.referencePosition; }
    /// That positions lie on, absolute; nullopt when the store states none.
    const std::optional<PositionGrid>& positionGrid() const { return mFacts.positionGrid; }
    /// Tight around the points, in model coordinates.
    Math::NBoundingBox<float, 3> boundingBox() const;
    /// Of the root, in model coordinates.
    Math::NBoundingBox<float, 3> boundingCube() const;
    /// Of any node id, in model coordinates; the node need not exist.
    Math::NBoundingBox<float, 3> boundingCube(OctreeNodeId id) const;
    /// Around all points that the node may have: its cube and what its store's points may stick out of it.
    /// Holds their positions narrowed to float, too.
    Math::NBoundingBox<float, 3> pointBounds(OctreeNodeId id) const;
    /// Distance between points of a level, in model units.
    float spacing(std::size_t level = 0) const;

    /// Everything about one node in one lookup. False when stopped, which leaves facts as they were.
    bool nodeFacts(OctreeNodeId id, NodeFacts& facts, const std::stop_token& stop = {}) const;
    /// Empty when stopped.
    NodeChildren children(OctreeNodeId id, const std::stop_token& stop = {}) const;
    /// Whether the node has no children; true when stopped.
    bool isLeaf(OctreeNodeId id, const std::stop_token& stop = {}) const;
    static std::size_t level(OctreeNodeId id) { return id.level(); }
    /// 1 all points visible, 2 all hidden, 0 per point, unknown or stopped.
    int nodeVisibility(OctreeNodeId id, const std::stop_token& stop = {}) const;
    std::uint64_t pointCount(OctreeNodeId id) const;
    /// As far as it is known without reading more of the hierarchy than it takes to know the node.
    std::optional<std::uint64_t> knownPointCount(OctreeNodeId id, const std::stop_token& stop = {}) const;
    std::uint64_t totalPointCount() const { return mFacts.pointCount; }
    /// Of the cloud's own store, as the two below.
    const std::vector<AttributeInfo>& attributes() const { return mFacts.attributes; }
    /// As the store names it: "BROTLI", "laszip" and the like.
    const std::string& encoding() const { return mFacts.encoding; }
    /// False: the store knows no colours, all points are white.
    bool hasColors() const { return mFacts.hasColors; }

    /// Reads and decodes a node's points: the columns that data was constructed for and that the store has.
    /// False when stopped.
    bool getNodePointData(OctreeNodeId id, NodePointData& data, const std::stop_token& stop = {}) const;

private:
    struct External {
        Location location;
        std::shared_ptr<NodeSource> source;
    };
    using Externals = std::vector<External>;

    Math::NBoundingBox<float, 3> toModel(const Math::NBoundingBox<double, 3>& box) const;
    const Externals& externals() const { return *mExternals.load(std::memory_order_acquire); }
    bool hasExternal(const Location& location) const;
    int combinedVisibility(OctreeNodeId id, int own, const std::stop_token& stop) const;
    bool mergeExternal(const External& external, OctreeNodeId id, NodePointData& data,
                       const std::stop_token& stop) const;
    [[noreturn]] void failInExternal(const External& external, OctreeNodeId id) const;

    const Location mLocation;
    const std::shared_ptr<NodeSource> mSource;
    const StoreFacts& mFacts;
    std::atomic<double> mUnitScale;

    std::mutex mAddingExternals;
    /// All there ever were, so that readers need no lock; guarded by mAddingExternals.
    std::vector<std::shared_ptr<const Externals>> mExternalVersions;
    std::atomic<const Externals*> mExternals;
};

}  // namespace Octree
