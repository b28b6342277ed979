#pragma once

#include <math/Point.h>
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

/// Where a store's columns start in a decompressed chunk: bytes to multiply by the chunk's point count. An
/// attribute of another name or size than expected is not one of them.
struct ColumnOffsets {
    explicit ColumnOffsets(const Metadata& metadata);

    std::optional<std::size_t> position, color, intensity, scanIndex, classification, visibility;
    /// Two bytes a point.
    std::optional<std::size_t> normalOct16;
    /// One double a point each.
    std::optional<std::size_t> normalX, normalY, normalZ;
};

/// A node's points as the store has them, one column after another.
struct DecompressedChunk {
    const std::byte* column(std::size_t offset) const { return bytes.get() + offset * pointCount; }

    std::unique_ptr<std::byte[]> bytes;
    std::size_t pointCount = 0;
};

/// Columns to fill; those left nullptr are not wanted.
struct RawColumns {
    /// Position and colour codes as they stand in the store.
    std::vector<std::array<std::byte, 16>>* positions = nullptr;
    std::vector<std::uint64_t>* colors = nullptr;
    std::vector<std::uint16_t>* intensities = nullptr;
    std::vector<std::uint32_t>* scanIndices = nullptr;
    std::vector<std::uint8_t>* classifications = nullptr;
    /// 0 is visible.
    std::vector<std::uint8_t>* visibilities = nullptr;
    std::vector<Math::Point<float, 3>>* normals = nullptr;
};

/// Reads and decompresses the chunk of a node that has points. Memory grows with the output and ends at what
/// the node's point count allows. Throws FetchCancelled when stopped, and StoreError naming the node when the
/// chunk is not to be had, is not Brotli or does not decompress to exactly the node's points.
DecompressedChunk readNodeChunk(const Node& node, const Metadata& metadata, const FileLoader& loader,
                                const std::stop_token& stop);

/// Copies the wanted columns that the store has; the others stay as they were.
void copyColumns(const DecompressedChunk& chunk, const ColumnOffsets& offsets, const RawColumns& columns);

/// Fills the wanted columns of one node and sets count to its number of points; a column that the store does
/// not have stays as it was. In a store of one attribute whose hierarchy says that the whole node is visible
/// or hidden, wanted visibilities are filled for the count passed in, without reading anything, and all else
/// is left alone. Throws as readNodeChunk does; returns true.
bool decodeNodeChunk(const Node& node, const Metadata& metadata, const FileLoader& loader,
                     const std::stop_token& stop, const RawColumns& columns, std::size_t& count);

}  // namespace PoTree
