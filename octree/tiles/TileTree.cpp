#include <octree/ChildCube.h>
#include <octree/NodeKey.h>
#include <octree/StoreError.h>
#include <octree/tiles/TileTree.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tiles {

namespace {

using Octree::Attribute;
using Octree::OctreeNodeId;
using Octree::StoreError;

constexpr std::array<Known, 3> POSITION{Known::X, Known::Y, Known::Z};

std::string typeName(NumberType type) {
    if (!isInteger(type)) {
        return type == NumberType::Float ? "float" : "double";
    }
    const bool isSigned = type <= NumberType::Int64;
    return (isSigned ? "int" : "uint") + std::to_string(8 * sizeOf(type));
}

Octree::AttributeInfo attributeOf(const Dimension& dimension) {
    Octree::AttributeInfo result;
    result.name = dimension.name;
    result.type = typeName(dimension.type);
    result.size = sizeOf(dimension.type);
    if (dimension.minimum && dimension.maximum) {
        result.min = {*dimension.minimum};
        result.max = {*dimension.maximum};
    }
    return result;
}

/// The columns whose dimensions the schema has.
unsigned columnsOf(const StoreDescription& description) {
    const auto bit = [&](Attribute attribute, std::initializer_list<Known> dimensions) {
        const bool hasAll = std::all_of(dimensions.begin(), dimensions.end(), [&](Known dimension) {
            return description.find(nameOf(dimension)) != nullptr;
        });
        return hasAll ? static_cast<unsigned>(attribute) : 0u;
    };
    return bit(Attribute::Position, {}) | bit(Attribute::Color, {Known::Red, Known::Green, Known::Blue}) |
           bit(Attribute::Intensity, {Known::Intensity}) |
           bit(Attribute::Classification, {Known::Classification}) |
           bit(Attribute::ScanIndex, {Known::PointSourceId}) |
           bit(Attribute::Normal, {Known::NormalX, Known::NormalY, Known::NormalZ});
}

// A node is chosen for a point before its coordinates are rounded to integers or floats. The tiles of a
// "laszip" store have steps of their own, of which a schema of floats says nothing.
Math::Point<double, 3> overhangOf(const StoreDescription& description) {
    constexpr double SLACK_STEPS = 4.0;
    constexpr double FLOAT_STEP = 1.2e-7;
    constexpr double RELATIVE_SLACK = 1e-6;
    constexpr double RELATIVE_SLACK_OF_UNKNOWN_STEPS = 1e-4;
    const double side = description.bounds.max[0] - description.bounds.min[0];
    Math::Point<double, 3> result;
    for (int axis = 0; axis < 3; ++axis) {
        const Dimension& dimension = *description.find(nameOf(POSITION[static_cast<std::size_t>(axis)]));
        if (isInteger(dimension.type)) {
            result[axis] = SLACK_STEPS * dimension.scale + RELATIVE_SLACK * side;
        } else if (description.dataType == "laszip") {
            result[axis] = RELATIVE_SLACK_OF_UNKNOWN_STEPS * side;
        } else {
            const auto [low, high] = std::pair(description.bounds.min[axis], description.bounds.max[axis]);
            const double step = dimension.type == NumberType::Float ? FLOAT_STEP : 0.0;
            result[axis] = step * std::max(std::abs(low), std::abs(high)) + RELATIVE_SLACK * side;
        }
    }
    return result;
}

// LAZ tiles have grids of their own where the schema does not say.
std::optional<Octree::PositionGrid> gridOf(const StoreDescription& description) {
    Math::Point<double, 3> scale;
    Math::Point<double, 3> offset;
    for (int axis = 0; axis < 3; ++axis) {
        const Dimension& dimension = *description.find(nameOf(POSITION[static_cast<std::size_t>(axis)]));
        if (!isInteger(dimension.type) || (description.dataType == "laszip" && dimension.scale == 1.0)) {
            return std::nullopt;
        }
        scale[axis] = dimension.scale;
        offset[axis] = dimension.offset;
    }
    return Octree::PositionGrid(scale, offset);
}

Octree::StoreFacts makeFacts(const StoreDescription& description) {
    Octree::StoreFacts facts;
    facts.boundingBox = description.boundsConforming;
    facts.boundingCube = description.bounds;
    facts.overhang = overhangOf(description);
    facts.referencePosition = referencePositionOf(description);
    facts.positionGrid = gridOf(description);
    facts.spacing = description.spacing;
    facts.pointCount = description.pointCount;
    for (const Dimension& dimension : description.schema) {
        facts.attributes.push_back(attributeOf(dimension));
    }
    facts.encoding = description.dataType;
    facts.columns = columnsOf(description);
    facts.hasColors = (facts.columns & static_cast<unsigned>(Attribute::Color)) != 0;
    return facts;
}

}  // namespace

TileTree::TileTree(TileStore store, const std::stop_token& stop)
    : mStore(std::move(store)),
      mFacts(makeFacts(*mStore.description)),
      mHierarchy(mStore.hierarchyPlace, mStore.hasRanges, mStore.readPage, mStore.rootPage, stop),
      mDeclaredColorDepth(declaredColorDepth(*mStore.description)),
      mDeclaredIntensityRange(declaredIntensityRange(*mStore.description)) {}

TileTree::~TileTree() = default;

bool TileTree::nodeFacts(OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) {
    const Octree::HierarchyNode* node = mHierarchy.find(id, stop).node;
    if (node == nullptr) {
        return false;
    }
    facts.childMask = node->childMask;
    facts.visibility = 0;
    facts.pointCount = node->pointCount;
    return true;
}

int TileTree::nodeVisibility(OctreeNodeId id, const std::stop_token& stop) {
    mHierarchy.lookUp(id, stop);
    return 0;
}

std::optional<std::uint64_t> TileTree::knownPointCount(OctreeNodeId id, const std::stop_token& stop) {
    const Octree::HierarchyNode* node = mHierarchy.lookUp(id, stop).node;
    return node == nullptr || node->isLink ? std::nullopt : std::optional(node->pointCount);
}

bool TileTree::readNode(OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                        const std::stop_token& stop) {
    const Octree::Hierarchy::Found found = mHierarchy.find(id, stop);
    if (found.node == nullptr) {
        return false;
    }
    if (found.node->pointCount == 0) {
        data.reset(0);
        return true;
    }
    Tile tile;
    if (!readTile(id, found, tile, stop)) {
        return false;
    }
    mStore.budget->require(tile.memorySize + Octree::columnBytes(data, tile.pointCount),
                           mStore.reader->fileOf(id), Octree::NodeKey(id).text());
    data.reset(tile.pointCount);
    if (data.wants(Attribute::Position)) {
        std::vector<Math::Point<double, 3>> positions;
        if (const auto outside =
                readPositions(tile, pointBounds(id), mFacts.referencePosition, unitScale, positions)) {
            throw StoreError(mStore.reader->fileOf(id), Octree::NodeKey(id).text(),
                             "point " + std::to_string(*outside) + " lies outside the node's cube");
        }
        data.setPositions(std::move(positions));
    }
    const bool wantsColors = hasColors(tile) && data.wants(Attribute::Color);
    const bool wantsIntensities = tile[Known::Intensity] && data.wants(Attribute::Intensity);
    Depths depths;
    if ((wantsColors || wantsIntensities) && !findDepths(id, tile, depths, stop)) {
        return false;
    }
    readPlainColumns(tile, *mStore.description, depths.intensityRange, data);
    if (wantsColors) {
        data.setColors(readColors(tile, depths.color));
    }
    return true;
}

bool TileTree::readTile(OctreeNodeId id, const Octree::Hierarchy::Found& found, Tile& tile,
                        const std::stop_token& stop) const {
    const Octree::ByteRange range = mStore.hasRanges ? found.page->rangeOf(*found.node) : Octree::ByteRange();
    return mStore.reader->read(id, *found.node, range, tile, stop);
}

// A little less than the overhang, whatever queries round.
Math::NBoundingBox<double, 3> TileTree::pointBounds(OctreeNodeId id) const {
    constexpr double PART_OF_OVERHANG = 0.9999;
    Math::NBoundingBox<double, 3> bounds = Octree::nodeCube(mStore.description->bounds, id);
    bounds.min -= mFacts.overhang * PART_OF_OVERHANG;
    bounds.max += mFacts.overhang * PART_OF_OVERHANG;
    return bounds;
}

std::uint32_t TileTree::Depths::packed() const {
    return static_cast<std::uint32_t>(color) << 16 | intensityRange;
}

TileTree::Depths TileTree::Depths::unpacked(std::uint32_t bits) {
    return {ColorDepth(bits >> 16), static_cast<std::uint16_t>(bits & 0xffffu)};
}

TileTree::Depths TileTree::depthsOf(const Tile& tile, const Depths& otherwise) const {
    Depths result = otherwise;
    if (mDeclaredColorDepth) {
        result.color = *mDeclaredColorDepth;
    } else if (hasColors(tile)) {
        result.color = observedColorDepth(tile);
    }
    if (mDeclaredIntensityRange) {
        result.intensityRange = *mDeclaredIntensityRange;
    } else if (tile[Known::Intensity]) {
        result.intensityRange = observedIntensityRange(tile, *mStore.description);
    }
    return result;
}

// As the root's points show them, which are drawn from all of the store; false when stopped. Where they are
// not to be had, each node stands for itself.
bool TileTree::findDepths(OctreeNodeId id, const Tile& tile, Depths& depths, const std::stop_token& stop) {
    if (const std::uint32_t known = mObserved.load(std::memory_order_relaxed); known != 0) {
        depths = Depths::unpacked(known);
        return true;
    }
    depths = depthsOf(tile, {});
    if (!id.isRoot() && !(mDeclaredColorDepth && mDeclaredIntensityRange)) {
        try {
            const Octree::Hierarchy::Found root = mHierarchy.find(OctreeNodeId(), stop);
            Tile rootTile;
            if (root.node == nullptr || !readTile(OctreeNodeId(), root, rootTile, stop)) {
                return false;
            }
            depths = depthsOf(rootTile, depths);
        } catch (const StoreError&) {
            return true;
        }
    }
    mObserved.store(depths.packed(), std::memory_order_relaxed);
    return true;
}

}  // namespace Tiles
