#pragma once

#include <math/Point.h>
#include <octree/potree/ChunkColumn.h>
#include <octree/potree/FileLoader.h>
#include <octree/potree/Metadata.h>
#include <octree/potree/Node.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

namespace PoTree {

/// Where one attribute lies among the bytes of a point.
struct ColumnPlace {
    std::size_t offset = 0;
    std::size_t size = 0;
};

/// Where a store's columns lie. An attribute of another name or size than expected is not one of them; of two
/// that are alike the later one counts.
struct ColumnPlaces {
    explicit ColumnPlaces(const Metadata& metadata);

    bool hasNormals() const { return normalOct16 || (normalX && normalY && normalZ); }

    std::optional<ColumnPlace> position, color, intensity, scanIndex, classification, visibility;
    std::optional<ColumnPlace> normalOct16;
    /// One double a point each.
    std::optional<ColumnPlace> normalX, normalY, normalZ;
};

/// A node's points as the store has them, decompressed.
struct PointChunk {
    ChunkColumn column(const ColumnPlace& place) const {
        return layout == ChunkLayout::Records
                   ? ChunkColumn{bytes.get() + place.offset, bytesPerPoint, place.size}
                   : ChunkColumn{bytes.get() + place.offset * pointCount, place.size, place.size};
    }

    std::shared_ptr<const std::byte> bytes;
    std::size_t pointCount = 0;
    std::size_t bytesPerPoint = 0;
    ChunkLayout layout = ChunkLayout::BrotliColumns;
};

/// Columns to fill; those left nullptr are not wanted.
struct RawColumns {
    /// Position and colour codes as they stand in a Brotli store; records hold none.
    std::vector<std::array<std::byte, 16>>* positions = nullptr;
    std::vector<std::uint64_t>* colors = nullptr;
    std::vector<std::uint16_t>* intensities = nullptr;
    std::vector<std::uint32_t>* scanIndices = nullptr;
    std::vector<std::uint8_t>* classifications = nullptr;
    /// 0 is visible.
    std::vector<std::uint8_t>* visibilities = nullptr;
    std::vector<Math::Point<float, 3>>* normals = nullptr;
    /// All of it, for columns that are better decoded where they lie.
    PointChunk* chunk = nullptr;
};

/// Reads and decompresses the chunk of a node that has points. Memory grows with the output and ends at what
/// the node's point count allows. Throws FetchCancelled when stopped, and StoreError naming the node when the
/// chunk is not to be had, is not Brotli where it should be, or does not hold exactly the node's points.
PointChunk readNodeChunk(const Node& node, const Metadata& metadata, const FileLoader& loader,
                         const std::stop_token& stop);

/// Copies the wanted columns that the store has; the others stay as they were.
void copyColumns(const PointChunk& chunk, const ColumnPlaces& places, const RawColumns& columns);

/// Fills the wanted columns of one node and sets count to its number of points; a column that the store does
/// not have stays as it was. In a store of one attribute whose hierarchy says that the whole node is visible
/// or hidden, wanted visibilities are filled for the count passed in, without reading anything, and all else
/// is left alone. Throws as readNodeChunk does; returns true.
bool decodeNodeChunk(const Node& node, const Metadata& metadata, const FileLoader& loader,
                     const std::stop_token& stop, const RawColumns& columns, std::size_t& count);

}  // namespace PoTree
