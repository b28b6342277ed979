#pragma once

#include <octree/las/PointFormat.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace Las {

/// Versions of the layered items. They differ where a point comes from another scanner channel than the one
/// before.
enum class LayerVersion { Three, Four };

/// What the record "laszip encoded" says of the compression (LAZ specification, LASzip VLR).
struct LazItems {
    /// Throws DataError naming a compressor, coder, item or version that is not supported, and for items that
    /// are not those of the point format.
    static LazItems read(std::span<const std::byte> record, const PointFormat& format);

    bool hasFixedChunks() const { return chunkSize != VARIABLE; }

    static constexpr std::uint32_t VARIABLE = 0xFFFFFFFF;
    /// Points a chunk, except in the last.
    std::uint32_t chunkSize = VARIABLE;
    LayerVersion layerVersion = LayerVersion::Three;
};

}  // namespace Las
