#include <core/Brotli.h>
#include <octree/NodeLimits.h>
#include <octree/StoreError.h>
#include <octree/potree/FetchCancelled.h>
#include <octree/potree/NodeChunk.h>
#include <octree/potree/PointColumns.h>

#include <cstring>
#include <string>
#include <utility>

namespace PoTree {

namespace {

class ChunkReader {
public:
    ChunkReader(const Node& node, const Metadata& metadata, const FileLoader& loader)
        : mNode(node),
          mLoader(loader),
          mLayout(metadata.layout),
          mBytesPerPoint(metadata.bytesPerPoint),
          mExpected(std::uint64_t{node.pointCount} * metadata.bytesPerPoint) {}

    PointChunk read(const std::stop_token& stop) const {
        if (mNode.pointCount > Octree::MAX_NODE_POINTS) {
            fail("its " + claim() + " are more than a node may have");
        }
        if (mExpected > Octree::maxDecodedSize(mNode.byteSize)) {
            fail("its " + claim() + " are too many for " + std::to_string(mNode.byteSize) +
                 " bytes in the file");
        }
        return {mLayout == ChunkLayout::Records ? readRecords(stop) : readBrotli(stop), mNode.pointCount,
                mBytesPerPoint, mLayout};
    }

private:
    std::shared_ptr<const std::byte> readRecords(const std::stop_token& stop) const {
        if (mNode.byteSize != mExpected) {
            failInChunk("has " + std::to_string(mNode.byteSize) + " bytes");
        }
        const auto bytes = std::make_shared<const std::string>(fetch(stop));
        return {bytes, reinterpret_cast<const std::byte*>(bytes->data())};
    }

    std::shared_ptr<const std::byte> readBrotli(const std::stop_token& stop) const {
        // Brotli adds a few bytes to what it cannot compress: anything longer is damaged.
        if (mNode.byteSize > 2 * mExpected + 1024) {
            fail(std::to_string(mNode.byteSize) + " bytes are too many for " + claim());
        }
        const std::shared_ptr<const std::byte[]> bytes = decompress(fetch(stop), stop);
        return {bytes, bytes.get()};
    }

    [[noreturn]] void fail(const std::string& problem) const {
        throw Octree::StoreError(mLoader.octreeFile(), mNode.id.name(), problem);
    }

    std::string claim() const { return Octree::pointsText(mNode.pointCount, mBytesPerPoint); }

    std::string fetch(const std::stop_token& stop) const {
        try {
            return mLoader.fetchOctreeChunk(mNode.byteOffset, mNode.byteSize, stop).get();
        } catch (const Octree::StoreError&) {
            std::throw_with_nested(
                Octree::StoreError(mLoader.octreeFile(), mNode.id.name(), "its points cannot be read"));
        }
    }

    std::unique_ptr<std::byte[]> decompress(const std::string& input, const std::stop_token& stop) const {
        try {
            std::size_t size = 0;
            auto bytes = Core::brotliDecode(input, static_cast<std::size_t>(mExpected), size, stop);
            if (bytes == nullptr) {
                throw FetchCancelled();
            }
            // A whole number of points, but not the node's, is damage as well: the hierarchy's count is what
            // budgets and external attributes were told.
            if (size != mExpected) {
                failInChunk("decompresses to " + std::to_string(size) + " bytes");
            }
            return bytes;
        } catch (const Core::BrotliError& error) {
            failInChunk(error.what());
        }
    }

    [[noreturn]] void failInChunk(const std::string& problem) const {
        fail("its chunk " + problem + ", its " + claim() + " take " + std::to_string(mExpected));
    }

    const Node& mNode;
    const FileLoader& mLoader;
    const ChunkLayout mLayout;
    const std::size_t mBytesPerPoint;
    const std::uint64_t mExpected;
};

template <class T>
void copyColumn(const PointChunk& chunk, const std::optional<ColumnPlace>& place, std::vector<T>* column) {
    if (column == nullptr || !place || place->size != sizeof(T)) {
        return;
    }
    const ChunkColumn source = chunk.column(*place);
    column->resize(chunk.pointCount);
    if (source.stride == sizeof(T)) {
        std::memcpy(static_cast<void*>(column->data()), source.first, chunk.pointCount * sizeof(T));
        return;
    }
    for (std::size_t i = 0; i < chunk.pointCount; ++i) {
        (*column)[i] = source.valueAt<T>(i);
    }
}

void copyNormals(const PointChunk& chunk, const ColumnPlaces& places,
                 std::vector<Math::Point<float, 3>>& normals) {
    if (places.normalOct16) {
        const ChunkColumn codes = chunk.column(*places.normalOct16);
        normals.resize(chunk.pointCount);
        for (std::size_t i = 0; i < chunk.pointCount; ++i) {
            normals[i] = decodeOct16(codes.valueAt<std::uint16_t>(i));
        }
    } else if (places.hasNormals()) {
        const ChunkColumn x = chunk.column(*places.normalX);
        const ChunkColumn y = chunk.column(*places.normalY);
        const ChunkColumn z = chunk.column(*places.normalZ);
        normals.resize(chunk.pointCount);
        for (std::size_t i = 0; i < chunk.pointCount; ++i) {
            normals[i] = {static_cast<float>(x.valueAt<double>(i)), static_cast<float>(y.valueAt<double>(i)),
                          static_cast<float>(z.valueAt<double>(i))};
        }
    }
}

void clearColumns(const RawColumns& columns) {
    const auto clear = [](auto* column) {
        if (column != nullptr) {
            column->clear();
        }
    };
    clear(columns.positions);
    clear(columns.colors);
    clear(columns.intensities);
    clear(columns.scanIndices);
    clear(columns.classifications);
    clear(columns.visibilities);
    clear(columns.normals);
    if (columns.chunk != nullptr) {
        *columns.chunk = PointChunk();
    }
}

}  // namespace

ColumnPlaces::ColumnPlaces(const Metadata& metadata) {
    struct Known {
        const char* name;
        std::size_t size;
        std::optional<ColumnPlace>* place;
    };
    const bool isBrotli = metadata.layout == ChunkLayout::BrotliColumns;
    const Known known[] = {{"position", isBrotli ? 16u : 12u, &position},
                           {"rgb", isBrotli ? 8u : 6u, &color},
                           {"rgb", isBrotli ? 8u : 3u, &color},
                           {"intensity", 2, &intensity},
                           {"ScanIndex", 4, &scanIndex},
                           {"classification", 1, &classification},
                           {"visibility", 1, &visibility},
                           {"normal_oct16", 2, &normalOct16},
                           {"NormalX", 8, &normalX},
                           {"NormalY", 8, &normalY},
                           {"NormalZ", 8, &normalZ}};
    std::size_t offset = 0;
    for (const Octree::AttributeInfo& attribute : metadata.attributes) {
        const std::size_t size = metadata.chunkSize(attribute);
        for (const Known& column : known) {
            if (attribute.name == column.name && size == column.size) {
                *column.place = {offset, size};
            }
        }
        offset += size;
    }
}

PointChunk readNodeChunk(const Node& node, const Metadata& metadata, const FileLoader& loader,
                         const std::stop_token& stop) {
    return ChunkReader(node, metadata, loader).read(stop);
}

void copyColumns(const PointChunk& chunk, const ColumnPlaces& places, const RawColumns& columns) {
    copyColumn(chunk, places.position, columns.positions);
    copyColumn(chunk, places.color, columns.colors);
    copyColumn(chunk, places.intensity, columns.intensities);
    copyColumn(chunk, places.scanIndex, columns.scanIndices);
    copyColumn(chunk, places.classification, columns.classifications);
    copyColumn(chunk, places.visibility, columns.visibilities);
    if (columns.normals != nullptr) {
        copyNormals(chunk, places, *columns.normals);
    }
}

bool decodeNodeChunk(const Node& node, const Metadata& metadata, const FileLoader& loader,
                     const std::stop_token& stop, const RawColumns& columns, std::size_t& count) {
    if (node.pointCount == 0 || node.byteSize == 0) {
        clearColumns(columns);
        count = 0;
        return true;
    }
    const bool isUniform =
        node.visibility == VisibilityType::AllVisible || node.visibility == VisibilityType::AllHidden;
    if (columns.visibilities != nullptr && metadata.hasNodeVisibility && metadata.attributes.size() == 1 &&
        isUniform) {
        columns.visibilities->assign(count, node.visibility == VisibilityType::AllHidden ? 1 : 0);
        return true;
    }
    PointChunk chunk = readNodeChunk(node, metadata, loader, stop);
    copyColumns(chunk, ColumnPlaces(metadata), columns);
    count = chunk.pointCount;
    if (columns.chunk != nullptr) {
        *columns.chunk = std::move(chunk);
    }
    return true;
}

}  // namespace PoTree
