#pragma once

#include <core/Export.h>
#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <octree/AttributeInfo.h>
#include <octree/NodePointData.h>
#include <octree/OctreeNodeId.h>
#include <octree/PositionGrid.h>

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace Octree {

/// What does not change about a store while it is open. Coordinates and lengths are absolute, in the store's
/// unit.
struct StoreFacts {
    /// As the store names it: "BROTLI", "laszip" and the like; empty when there is nothing to name.
    std::string encoding;
    /// Tight around the points.
    Math::NBoundingBox<double, 3> boundingBox;
    /// Of the root node; a child's is half of it along each axis.
    Math::NBoundingBox<double, 3> boundingCube;
    /// How far points may lie outside their nodes' cubes along each axis, as rounding to the store's grid
    /// leaves them.
    Math::Point<double, 3> overhang{0.0, 0.0, 0.0};
    /// The origin of model coordinates: the cube's centre, moved onto the store's integer grid if it has one,
    /// so that differences to it are whole steps.
    Math::Point<double, 3> referencePosition{0.0, 0.0, 0.0};
    /// That positions lie on; nullopt when the store states none.
    std::optional<PositionGrid> positionGrid;
    /// Distance between points of level 0, halved with each level.
    double spacing = 0.0;
    std::uint64_t pointCount = 0;
    std::vector<AttributeInfo> attributes;
    /// Attribute values or'ed: the columns that nodes may have, for a source that serves as external
    /// attributes. Visibility includes what NodeFacts says.
    unsigned columns = NodePointData::ALL_ATTRIBUTES;
    /// False: all points come out white.
    bool hasColors = true;
};

struct NodeFacts {
    /// Bit i set: child i exists.
    std::uint8_t childMask = 0;
    /// 1 all points visible, 2 all hidden, 0 per point or unknown.
    std::uint8_t visibility = 0;
    std::uint64_t pointCount = 0;
};

/// The store behind an Octree. Hosts and tests may bring their own. All operations are called from any number
/// of threads at once; they throw StoreError when the store is damaged or has no such node.
class LUMARO_API NodeSource {
public:
    NodeSource() = default;
    NodeSource(const NodeSource&) = delete;
    NodeSource& operator=(const NodeSource&) = delete;
    virtual ~NodeSource();

    /// The same object, unchanged, for the source's whole life.
    virtual const StoreFacts& storeFacts() const = 0;

    /// May read from the store. False when stopped, which leaves facts as they were.
    virtual bool nodeFacts(OctreeNodeId id, NodeFacts& facts, const std::stop_token& stop) = 0;

    /// As NodeFacts::visibility, without reading more of the store than it takes to know the node.
    virtual int nodeVisibility(OctreeNodeId id);
    /// The same, 0 when stopped. Unless overridden, stops only before it begins.
    virtual int nodeVisibility(OctreeNodeId id, const std::stop_token& stop);

    /// As NodeFacts::pointCount, with as little reading; nullopt when that does not tell, or stopped. Unless
    /// overridden, as nodeFacts says.
    virtual std::optional<std::uint64_t> knownPointCount(OctreeNodeId id, const std::stop_token& stop);

    /// Fills the columns that data wants and the store has; positions are (absolute - reference) * unitScale.
    /// False when stopped; data is then unspecified.
    virtual bool readNode(OctreeNodeId id, double unitScale, NodePointData& data,
                          const std::stop_token& stop) = 0;
};

}  // namespace Octree
