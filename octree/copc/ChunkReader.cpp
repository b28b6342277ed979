#include <octree/NodeKey.h>
#include <octree/NodeLimits.h>
#include <octree/StoreError.h>
#include <octree/copc/ChunkReader.h>
#include <octree/las/LittleEndian.h>
#include <octree/las/PointReader.h>

#include <algorithm>
#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace Copc {

namespace {

using Octree::NodeKey;
using Octree::OctreeNodeId;
using Octree::StoreError;

bool hasNormals(const Tiles::ExtraBytes& extraBytes) {
    return std::any_of(
        extraBytes.attributes.begin(), extraBytes.attributes.end(),
        [](const Las::ExtraAttribute& extra) { return extra.name == nameOf(Tiles::Known::NormalX); });
}

}  // namespace

ChunkReader::ChunkReader(std::shared_ptr<const Octree::RandomAccessFile> file,
                         std::shared_ptr<const Head> head, std::shared_ptr<const Octree::MemoryBudget> budget)
    : mFile(std::move(file)),
      mHead(std::move(head)),
      mBudget(std::move(budget)),
      mExtraBytes{mHead->las().extraAttributes(), mHead->las().format().extraByteCount},
      mFields(mHead->las().format().fieldsOf(
          Tiles::TILE_FIELDS |
          (hasNormals(mExtraBytes) ? static_cast<unsigned>(Las::Field::ExtraBytes) : 0u))),
      mBytesPerPoint(Las::Columns::bytesPerPoint(mFields, mExtraBytes.count)) {}

void ChunkReader::fail(OctreeNodeId id, const std::string& problem) const {
    throw StoreError(mFile->path(), NodeKey(id).text(), problem);
}

void ChunkReader::check(OctreeNodeId id, const Octree::HierarchyNode& node,
                        const Octree::ByteRange& range) const {
    const std::string claim = "its " + Octree::pointsText(node.pointCount, mBytesPerPoint);
    if (node.pointCount > Octree::MAX_NODE_POINTS) {
        fail(id, claim + " are more than a node may have");
    }
    if (node.pointCount * mBytesPerPoint > Octree::maxDecodedSize(range.size) ||
        !Las::isPlausible(node.pointCount, range.size)) {
        fail(id, claim + " are too many for " + std::to_string(range.size) + " bytes in the file");
    }
    if (!node.isCounted && mReadBytes + range.size > mFile->size()) {
        fail(id, "with its " + std::to_string(range.size) + " bytes the nodes read take more than the " +
                     std::to_string(mFile->size()) + " of the file");
    }
}

bool ChunkReader::read(OctreeNodeId id, const Octree::HierarchyNode& node, const Octree::ByteRange& range,
                       Tiles::Tile& tile, const std::stop_token& stop) const {
    check(id, node, range);
    const std::uint64_t decodedSize = node.pointCount * mBytesPerPoint;
    mBudget->require(range.size + decodedSize, mFile->path(), NodeKey(id).text());
    try {
        std::vector<std::byte> bytes(static_cast<std::size_t>(range.size));
        if (!mFile->read(range.offset, bytes.size(), reinterpret_cast<char*>(bytes.data()), stop)) {
            return false;
        }
        auto points = std::make_shared<Las::Columns>();
        if (!decode(node, bytes, *points, stop)) {
            return false;
        }
        tile = Tiles::makeLasTile(std::move(points), mHead->las().header(), mExtraBytes);
        tile.memorySize = decodedSize;
    } catch (const StoreError&) {
        std::throw_with_nested(StoreError(mFile->path(), NodeKey(id).text(), "its points cannot be read"));
    } catch (const Las::DataError& error) {
        fail(id, error.what());
    }
    if (!node.isCounted.exchange(true)) {
        mReadBytes += range.size;
    }
    return true;
}

bool ChunkReader::decode(const Octree::HierarchyNode& node, std::span<const std::byte> bytes,
                         Las::Columns& points, const std::stop_token& stop) const {
    // A chunk tells its own number of points, after the first record.
    Las::FieldReader chunk(bytes, "the chunk");
    chunk.skip(mHead->las().format().recordLength);
    if (const auto count = chunk.next<std::uint32_t>(); count != node.pointCount) {
        throw Las::DataError("its chunk has " + std::to_string(count) + " points, the hierarchy says " +
                             std::to_string(node.pointCount));
    }
    Las::PointReader reader(mHead->las(), bytes, node.pointCount, mFields);
    points.reserve(static_cast<std::size_t>(node.pointCount), mFields, mExtraBytes.count);
    while (!stop.stop_requested()) {
        if (!reader.read(points)) {
            return true;
        }
    }
    return false;
}

}  // namespace Copc
