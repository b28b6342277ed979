#pragma once

#include <math/Color.h>
#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <octree/NodePointData.h>
#include <octree/tiles/StoreDescription.h>
#include <octree/tiles/Tile.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Tiles {

/// The origin of model coordinates: the centre of the store's cube, on each axis with integer coordinates
/// moved onto their grid.
Math::Point<double, 3> referencePositionOf(const StoreDescription& description);

/// Positions relative to reference, times unitScale; exact steps where the reference lies on the tile's grid.
/// Returns the index of the first point outside the bounds, if one is; out is then unspecified.
std::optional<std::size_t> readPositions(const Tile& tile, const Math::NBoundingBox<double, 3>& bounds,
                                         const Math::Point<double, 3>& reference, double unitScale,
                                         std::vector<Math::Point<double, 3>>& out);

/// How a store's colour channels become 8 bits.
enum class ColorDepth {
    /// They hold 0 … 255; larger values become 255.
    Eight,
    /// They hold 0 … 65535, or 8-bit values shifted up: the upper byte counts.
    Sixteen
};

/// Eight when the schema has channels of one byte, or statistics with a maximum up to 255; empty when it does
/// not say.
std::optional<ColorDepth> declaredColorDepth(const StoreDescription& description);
/// Eight when no value of the tile is above 255.
ColorDepth observedColorDepth(const Tile& tile);

/// The range of the intensities that readPlainColumns gives: as wide as the schema's type or its maximum for
/// them says; empty when neither does.
std::optional<std::uint16_t> declaredIntensityRange(const StoreDescription& description);
/// Wide enough for every intensity of the tile, which must have some.
std::uint16_t observedIntensityRange(const Tile& tile, const StoreDescription& description);

bool hasColors(const Tile& tile);
/// Precondition: hasColors(tile).
std::vector<Math::Color> readColors(const Tile& tile, ColorDepth depth);

/// Sets the wanted columns that the tile has, except positions and colours. Values are rounded and kept
/// within their range. Intensities of one byte are spread over 16 bits; wider ones and floats are scaled by
/// the schema's maximum for them if that is above 65535, and floats also if it is at most 1. Normals come
/// out with length 1, or 0.
void readPlainColumns(const Tile& tile, const StoreDescription& description, std::uint16_t intensityRange,
                      Octree::NodePointData& data);

}  // namespace Tiles
