#include <octree/NodeLimits.h>
#include <octree/OpenStopped.h>
#include <octree/StoreError.h>
#include <octree/potree/FetchCancelled.h>
#include <octree/potree/HierarchyChunk.h>
#include <octree/potree/Store.h>

#include <algorithm>
#include <system_error>
#include <utility>
#include <vector>

namespace PoTree {

namespace {

using Octree::Attribute;
using Octree::OctreeNodeId;
using Octree::StoreError;

/// Millions of nodes in one chunk, where stores have thousands.
constexpr std::uint64_t MAX_HIERARCHY_CHUNK_SIZE = std::uint64_t{64} << 20;
/// Nodes inserted between two looks at the stop token.
constexpr std::size_t INSERT_STEP = 4096;
constexpr double BOUNDS_SLACK_STEPS = 1e-3;
constexpr int ALL_VISIBLE = 1;
constexpr int ALL_HIDDEN = 2;

Metadata readMetadata(const FileSystemLocation& location, StoreRole role, Octree::MemoryBudget& budget,
                      const std::stop_token& stop) {
    std::error_code ignored;
    const auto status = std::filesystem::status(location.folder(), ignored);
    if (!std::filesystem::exists(status)) {
        throw StoreError(location.folder(), "there is no such folder");
    }
    if (!std::filesystem::is_directory(status)) {
        throw StoreError(location.folder(), "is not a folder");
    }
    return Metadata::read(location.folder() / "metadata.json", role, budget, stop);
}

unsigned columnsOf(const Metadata& metadata) {
    const ColumnPlaces places(metadata);
    const auto bit = [](Attribute attribute, bool isThere) {
        return isThere ? static_cast<unsigned>(attribute) : 0u;
    };
    return bit(Attribute::Position, places.position.has_value()) |
           bit(Attribute::Color, places.color.has_value()) |
           bit(Attribute::Intensity, places.intensity.has_value()) |
           bit(Attribute::Classification, places.classification.has_value()) |
           bit(Attribute::ScanIndex, places.scanIndex.has_value()) |
           bit(Attribute::Visibility, places.visibility.has_value() || metadata.hasNodeVisibility) |
           bit(Attribute::Normal, places.hasNormals());
}

Octree::StoreFacts makeFacts(const Metadata& metadata, const CoordinateGrid& grid) {
    Octree::StoreFacts facts;
    facts.encoding = metadata.encoding;
    facts.boundingBox = metadata.tightBox;
    // Converters cut coordinates off to whole steps, and then write those of Brotli stores a step higher.
    if (metadata.layout == ChunkLayout::BrotliColumns) {
        facts.boundingBox.max += metadata.scale;
    } else {
        facts.boundingBox.min -= metadata.scale;
    }
    // The bounds are decimal fractions that the points' own coordinates meet only up to rounding.
    facts.boundingBox.min -= metadata.scale * BOUNDS_SLACK_STEPS;
    facts.boundingBox.max += metadata.scale * BOUNDS_SLACK_STEPS;
    facts.boundingCube = metadata.boundingBox;
    facts.overhang = metadata.scale * (CoordinateGrid::SLACK_STEPS + BOUNDS_SLACK_STEPS);
    facts.referencePosition = grid.reference;
    facts.positionGrid.emplace(metadata.scale, metadata.offset);
    facts.spacing = metadata.spacing;
    facts.pointCount = metadata.pointCount;
    facts.attributes = metadata.attributes;
    facts.columns = columnsOf(metadata);
    facts.hasColors = ColumnPlaces(metadata).color.has_value();
    return facts;
}

}  // namespace

Store::Store(const FileSystemLocation& location, StoreRole role, const std::stop_token& stop,
             const Octree::Limits& limits)
    : mBudget(std::make_shared<Octree::MemoryBudget>(limits)),
      mMetadata(readMetadata(location, role, *mBudget, stop)),
      mLoader(location.folder(), mBudget),
      mPlaces(mMetadata),
      mGrid(mMetadata),
      mColorDepth(colorDepthOf(mMetadata)),
      mIntensityRange(intensityRangeOf(mMetadata)),
      mFacts(makeFacts(mMetadata, mGrid)) {
    const auto root = std::make_shared<Node>(OctreeNodeId(), mMetadata.boundingBox);
    if (mMetadata.pointCount == 0 && mMetadata.firstChunkSize == 0) {
        mNodes.insert(root);
        return;
    }
    if (!loadChunk(root, 0, mMetadata.firstChunkSize, stop)) {
        throw Octree::OpenStopped();
    }
}

Store::~Store() = default;

void Store::failInHierarchy(OctreeNodeId id, const std::string& problem) const {
    throw StoreError(mLoader.hierarchyFile(), id.name(), problem);
}

// The node's record, which may be a proxy's; nullptr when stopped.
const Node* Store::find(OctreeNodeId id, const std::stop_token& stop) {
    for (;;) {
        if (const Node* node = mNodes.find(id)) {
            return node;
        }
        const Node* ancestor = nullptr;
        OctreeNodeId below = id;  // The ancestor's child on the way to the node.
        while (!below.isRoot() && (ancestor = mNodes.find(below.parent())) == nullptr) {
            below = below.parent();
        }
        if (ancestor != nullptr && ancestor->isProxy()) {
            if (!loadChunkOf(*ancestor, stop)) {
                return nullptr;
            }
        } else if (ancestor == nullptr || mNodes.find(below) == nullptr) {
            failInHierarchy(id, "there is no such node");
        }  // Else its chunk was loaded by another thread meanwhile.
    }
}

// The node's own record; nullptr when stopped.
const Node* Store::findLoaded(OctreeNodeId id, const std::stop_token& stop) {
    const Node* node = find(id, stop);
    while (node != nullptr && node->isProxy()) {
        node = loadChunkOf(*node, stop) ? mNodes.find(id) : nullptr;
    }
    return node;
}

bool Store::loadChunkOf(const Node& proxy, const std::stop_token& stop) {
    if (!mLoading.lock(stop)) {
        return false;
    }
    const std::lock_guard lock(mLoading, std::adopt_lock);
    if (!insertPending(stop)) {
        return false;
    }
    if (mNodes.find(proxy.id) != &proxy) {
        return true;  // loaded by another thread meanwhile
    }
    return loadChunk(std::make_shared<Node>(proxy.id, proxy.boundingBox), proxy.byteOffset, proxy.byteSize,
                     stop);
}

bool Store::loadChunk(const std::shared_ptr<Node>& root, std::uint64_t offset, std::uint64_t size,
                      const std::stop_token& stop) {
    checkRange(*root, offset, size);
    std::vector<std::shared_ptr<Node>> nodes;
    if (!loadHierarchyChunk(mLoader, root, offset, size, stop, nodes, MissingRecords::Refused)) {
        return false;
    }
    if (root->isProxy()) {
        failInHierarchy(root->id, "its hierarchy chunk begins with another reference instead of the node");
    }
    mBudget->keep(nodes.size() * HIERARCHY_NODE_SIZE, mLoader.hierarchyFile(), root->id.name());
    mLoadedRanges.emplace(offset, offset + size);
    mPending = std::move(nodes);
    return insertPending(stop);
}

// False when stopped: the next to load a chunk goes on with it.
bool Store::insertPending(const std::stop_token& stop) {
    if (!mNodes.reserve(mPending.size(), stop)) {
        return false;
    }
    // Children first: a reader that sees the root's own record finds them.
    while (!mPending.empty()) {
        if (mPending.size() % INSERT_STEP == 0 && stop.stop_requested()) {
            return false;
        }
        mNodes.insert(mPending.back());
        mPending.pop_back();
    }
    return true;
}

void Store::checkRange(const Node& root, std::uint64_t offset, std::uint64_t size) const {
    if (size < HIERARCHY_RECORD_SIZE) {
        failInHierarchy(root.id, "its hierarchy chunk of " + std::to_string(size) + " bytes holds no record");
    }
    if (size > MAX_HIERARCHY_CHUNK_SIZE) {
        failInHierarchy(root.id, "its hierarchy chunk of " + std::to_string(size) + " bytes is too large");
    }
    const auto next = mLoadedRanges.lower_bound(offset);
    const bool hitsNext = next != mLoadedRanges.end() && next->first - offset < size;
    const bool hitsPrevious = next != mLoadedRanges.begin() && std::prev(next)->second > offset;
    if (hitsNext || hitsPrevious) {
        failInHierarchy(root.id, "its hierarchy chunk at " + std::to_string(offset) +
                                     " overlaps one that belongs to another node");
    }
}

int Store::visibilityOf(const Node& node) const {
    if (!mMetadata.hasNodeVisibility) {
        return 0;
    }
    switch (node.visibility) {
        case VisibilityType::AllVisible:
            return ALL_VISIBLE;
        case VisibilityType::AllHidden:
            return ALL_HIDDEN;
    }
    return 0;
}

// A node without bytes has no points, whatever its record says.
std::size_t Store::pointCountOf(const Node& node) {
    return node.byteSize == 0 ? 0 : node.pointCount;
}

// Hierarchies of many nodes survive a record that lies.
void Store::checkPointCount(const Node& node) const {
    const std::size_t count = pointCountOf(node);
    if (count > mMetadata.pointCount) {
        failInHierarchy(node.id, "it claims " + std::to_string(count) + " points, the whole store has " +
                                     std::to_string(mMetadata.pointCount));
    }
    if (!needsBytes(node) && count > Octree::MAX_NODE_POINTS) {
        failInHierarchy(node.id, "its " + std::to_string(count) + " points are more than a node may have");
    }
}

bool Store::needsBytes(const Node& node) const {
    return !mPlaces.visibility || mMetadata.attributes.size() > 1 || visibilityOf(node) == 0;
}

// Nodes may share their bytes with others, which alone look sound.
void Store::checkTotals(const Node& node) const {
    if (node.isCounted || pointCountOf(node) == 0) {
        return;
    }
    if (mReadPoints + pointCountOf(node) > mMetadata.pointCount) {
        failInHierarchy(node.id, "with its " + std::to_string(pointCountOf(node)) +
                                     " points the nodes read have more than the " +
                                     std::to_string(mMetadata.pointCount) + " of the whole store");
    }
    const std::uint64_t fileSize = mLoader.octreeSize();
    if (needsBytes(node) && node.byteSize <= fileSize && mReadBytes > fileSize - node.byteSize) {
        failInHierarchy(node.id, "with its " + std::to_string(node.byteSize) +
                                     " bytes the nodes read take more than the " + std::to_string(fileSize) +
                                     " of octree.bin");
    }
}

void Store::checkMemory(const Node& node, const Octree::NodePointData& data) const {
    // No more than its chunk would be refused for anyway.
    const std::uint64_t stored = std::min(node.byteSize, mLoader.octreeSize());
    const std::uint64_t count = std::min<std::uint64_t>(pointCountOf(node), Octree::MAX_NODE_POINTS);
    const std::uint64_t decoded = std::min(count * mMetadata.bytesPerPoint, Octree::maxDecodedSize(stored));
    // What it is decompressed into doubles as it grows.
    mBudget->require(stored + 2 * decoded + Octree::columnBytes(data, count), mLoader.octreeFile(),
                     node.id.name());
}

void Store::addToTotals(const Node& node) {
    if (pointCountOf(node) > 0 && !node.isCounted.exchange(true)) {
        mReadPoints += pointCountOf(node);
        mReadBytes += needsBytes(node) ? node.byteSize : 0;
    }
}

bool Store::nodeFacts(OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) {
    const Node* node = findLoaded(id, stop);
    if (node == nullptr) {
        return false;
    }
    const bool isDeepest = id.level() == OctreeNodeId::MAX_REPRESENTABLE_LEVEL;
    facts.childMask = isDeepest ? std::uint8_t{0} : node->childMask;
    facts.visibility = static_cast<std::uint8_t>(visibilityOf(*node));
    facts.pointCount = pointCountOf(*node);
    return true;
}

int Store::nodeVisibility(OctreeNodeId id, const std::stop_token& stop) {
    const Node* node = find(id, stop);
    return node == nullptr ? 0 : visibilityOf(*node);
}

std::optional<std::uint64_t> Store::knownPointCount(OctreeNodeId id, const std::stop_token& stop) {
    const Node* node = find(id, stop);
    if (node == nullptr || (node->isProxy() && node->pointCount == 0)) {
        return std::nullopt;
    }
    return pointCountOf(*node);
}

bool Store::readNode(OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                     const std::stop_token& stop) {
    const Node* node = findLoaded(id, stop);
    if (node == nullptr) {
        return false;
    }
    checkPointCount(*node);
    checkTotals(*node);
    checkMemory(*node, data);
    try {
        fill(*node, unitScale, data, stop);
        addToTotals(*node);
        return true;
    } catch (const FetchCancelled&) {
        return false;
    }
}

void Store::fill(const Node& node, double unitScale, Octree::NodePointData& data,
                 const std::stop_token& stop) const {
    PointChunk chunk;
    std::vector<std::uint16_t> intensities;
    std::vector<std::uint32_t> scanIndices;
    std::vector<std::uint8_t> classifications;
    std::vector<std::uint8_t> visibilities;
    std::vector<Math::Point<float, 3>> normals;
    const auto wanted = [&data](Attribute attribute, auto& column) {
        return data.wants(attribute) ? &column : nullptr;
    };
    std::size_t count = pointCountOf(node);
    decodeNodeChunk(
        node, mMetadata, mLoader, stop,
        {.intensities = wanted(Attribute::Intensity, intensities),
         .scanIndices = wanted(Attribute::ScanIndex, scanIndices),
         .classifications = wanted(Attribute::Classification, classifications),
         .visibilities = mPlaces.visibility ? wanted(Attribute::Visibility, visibilities) : nullptr,
         .normals = wanted(Attribute::Normal, normals),
         .chunk = &chunk},
        count);
    data.reset(count);
    if (const int visibility = visibilityOf(node); visibility != 0 && data.wants(Attribute::Visibility)) {
        visibilities.assign(count, visibility == ALL_HIDDEN ? 1 : 0);
    }
    const auto set = [&data](auto& column, auto setter) {
        if (!column.empty()) {
            (data.*setter)(std::move(column));
        }
    };
    set(scanIndices, &Octree::NodePointData::setScanIndices);
    set(classifications, &Octree::NodePointData::setClassifications);
    set(visibilities, &Octree::NodePointData::setVisibilities);
    set(normals, &Octree::NodePointData::setNormals);
    if (!intensities.empty()) {
        data.setIntensities(std::move(intensities), mIntensityRange);
    }
    if (chunk.pointCount > 0) {
        fillFromCodes(node, chunk, unitScale, data);
    }
}

// Positions and colours, straight from the chunk.
void Store::fillFromCodes(const Node& node, const PointChunk& chunk, double unitScale,
                          Octree::NodePointData& data) const {
    if (mPlaces.position && data.wants(Attribute::Position)) {
        std::vector<Math::Point<double, 3>> positions;
        if (const auto outside = decodePositions(chunk.column(*mPlaces.position), chunk.pointCount, mGrid,
                                                 mGrid.rangeOf(node.boundingBox), unitScale, positions)) {
            throw StoreError(mLoader.octreeFile(), node.id.name(),
                             "point " + std::to_string(*outside) + " lies outside the node's cube");
        }
        data.setPositions(std::move(positions));
    }
    if (mPlaces.color && data.wants(Attribute::Color)) {
        std::vector<Math::Color> colors;
        decodeColors(chunk.column(*mPlaces.color), chunk.pointCount, mColorDepth, colors);
        data.setColors(std::move(colors));
    }
}

}  // namespace PoTree
