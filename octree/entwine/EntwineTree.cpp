#include <octree/StoreError.h>
#include <octree/entwine/EntwineTree.h>
#include <octree/entwine/NodeKey.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace Entwine {

namespace {

using Octree::Attribute;
using Octree::OctreeNodeId;
using Octree::StoreError;

constexpr int UNKNOWN_DEPTH = -1;
constexpr std::array<Known, 3> POSITION{Known::X, Known::Y, Known::Z};

Metadata readMetadata(const FileSystemLocation& location) {
    std::error_code ignored;
    const auto status = std::filesystem::status(location.folder(), ignored);
    if (!std::filesystem::exists(status)) {
        throw StoreError(location.folder(), "there is no such folder");
    }
    if (!std::filesystem::is_directory(status)) {
        throw StoreError(location.folder(), "is not a folder");
    }
    return Metadata::read(location.folder() / "ept.json");
}

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
unsigned columnsOf(const Metadata& metadata) {
    const auto bit = [&](Attribute attribute, std::initializer_list<Known> dimensions) {
        const bool hasAll = std::all_of(dimensions.begin(), dimensions.end(), [&](Known dimension) {
            return metadata.find(nameOf(dimension)) != nullptr;
        });
        return hasAll ? static_cast<unsigned>(attribute) : 0u;
    };
    return bit(Attribute::Position, {}) | bit(Attribute::Color, {Known::Red, Known::Green, Known::Blue}) |
           bit(Attribute::Intensity, {Known::Intensity}) |
           bit(Attribute::Classification, {Known::Classification}) |
           bit(Attribute::ScanIndex, {Known::PointSourceId}) |
           bit(Attribute::Normal, {Known::NormalX, Known::NormalY, Known::NormalZ});
}

// A node is chosen for a point before its coordinates are rounded to integers or floats.
Math::Point<double, 3> overhangOf(const Metadata& metadata) {
    constexpr double FLOAT_STEP = 1.2e-7;
    Math::Point<double, 3> result;
    for (int axis = 0; axis < 3; ++axis) {
        const Dimension& dimension = *metadata.find(nameOf(POSITION[static_cast<std::size_t>(axis)]));
        if (isInteger(dimension.type)) {
            result[axis] = dimension.scale;
        } else if (dimension.type == NumberType::Float) {
            const auto [low, high] = std::pair(metadata.bounds.min[axis], metadata.bounds.max[axis]);
            result[axis] = FLOAT_STEP * std::max(std::abs(low), std::abs(high));
        }
    }
    return result;
}

// LAZ tiles have grids of their own where the schema does not say.
std::optional<Octree::PositionGrid> gridOf(const Metadata& metadata) {
    Math::Point<double, 3> scale;
    Math::Point<double, 3> offset;
    for (int axis = 0; axis < 3; ++axis) {
        const Dimension& dimension = *metadata.find(nameOf(POSITION[static_cast<std::size_t>(axis)]));
        if (!isInteger(dimension.type) || (metadata.dataType == "laszip" && dimension.scale == 1.0)) {
            return std::nullopt;
        }
        scale[axis] = dimension.scale;
        offset[axis] = dimension.offset;
    }
    return Octree::PositionGrid(scale, offset);
}

Octree::StoreFacts makeFacts(const Metadata& metadata) {
    Octree::StoreFacts facts;
    facts.boundingBox = metadata.boundsConforming;
    facts.boundingCube = metadata.bounds;
    facts.overhang = overhangOf(metadata);
    facts.referencePosition = referencePositionOf(metadata);
    facts.positionGrid = gridOf(metadata);
    facts.spacing = (metadata.bounds.max[0] - metadata.bounds.min[0]) / static_cast<double>(metadata.span);
    facts.pointCount = metadata.pointCount;
    for (const Dimension& dimension : metadata.schema) {
        facts.attributes.push_back(attributeOf(dimension));
    }
    facts.encoding = metadata.dataType;
    facts.columns = columnsOf(metadata);
    facts.hasColors = (facts.columns & static_cast<unsigned>(Attribute::Color)) != 0;
    return facts;
}

int initialDepth(const Metadata& metadata) {
    const std::optional<ColorDepth> depth = declaredColorDepth(metadata);
    return depth ? static_cast<int>(*depth) : UNKNOWN_DEPTH;
}

}  // namespace

EntwineTree::EntwineTree(const FileSystemLocation& location)
    : mMetadata(readMetadata(location)),
      mReader(makeTileReader(mMetadata, location.folder())),
      mFacts(makeFacts(mMetadata)),
      mHierarchy(location.folder()),
      mColorDepth(initialDepth(mMetadata)) {}

EntwineTree::~EntwineTree() = default;

bool EntwineTree::nodeFacts(OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) {
    const HierarchyNode* node = mHierarchy.find(id, stop);
    if (node == nullptr) {
        return false;
    }
    facts.childMask = node->childMask;
    facts.visibility = 0;
    facts.pointCount = node->pointCount;
    return true;
}

int EntwineTree::nodeVisibility(OctreeNodeId id) {
    mHierarchy.require(id);
    return 0;
}

bool EntwineTree::readNode(OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                           const std::stop_token& stop) {
    const HierarchyNode* node = mHierarchy.find(id, stop);
    if (node == nullptr) {
        return false;
    }
    if (node->pointCount == 0) {
        data.reset(0);
        return true;
    }
    Tile tile;
    if (!mReader->read(id, node->pointCount, tile, stop)) {
        return false;
    }
    data.reset(tile.pointCount);
    if (data.wants(Attribute::Position)) {
        std::vector<Math::Point<double, 3>> positions;
        if (const auto outside =
                readPositions(tile, mMetadata.bounds, mFacts.referencePosition, unitScale, positions)) {
            throw StoreError(mReader->fileOf(id), NodeKey(id).text(),
                             "point " + std::to_string(*outside) + " lies outside the store's bounds");
        }
        data.setPositions(std::move(positions));
    }
    readPlainColumns(tile, mMetadata, data);
    return !hasColors(tile) || !data.wants(Attribute::Color) || fillColors(id, tile, data, stop);
}

bool EntwineTree::fillColors(OctreeNodeId id, const Tile& tile, Octree::NodePointData& data,
                             const std::stop_token& stop) {
    const std::optional<ColorDepth> depth = colorDepth(id, tile, stop);
    if (!depth) {
        return false;
    }
    data.setColors(readColors(tile, *depth));
    return true;
}

// As the root's points show it, which are drawn from all of the store; empty when stopped. Where they are not
// to be had, each node stands for itself.
std::optional<ColorDepth> EntwineTree::colorDepth(OctreeNodeId id, const Tile& tile,
                                                  const std::stop_token& stop) {
    const int known = mColorDepth.load(std::memory_order_relaxed);
    if (known != UNKNOWN_DEPTH) {
        return ColorDepth{known};
    }
    ColorDepth depth = observedColorDepth(tile);
    if (!id.isRoot()) {
        try {
            const HierarchyNode* root = mHierarchy.find(OctreeNodeId(), stop);
            Tile rootTile;
            if (root == nullptr || !mReader->read(OctreeNodeId(), root->pointCount, rootTile, stop)) {
                return std::nullopt;
            }
            depth = hasColors(rootTile) ? observedColorDepth(rootTile) : depth;
        } catch (const StoreError&) {
            return depth;
        }
    }
    mColorDepth.store(static_cast<int>(depth), std::memory_order_relaxed);
    return depth;
}

}  // namespace Entwine
