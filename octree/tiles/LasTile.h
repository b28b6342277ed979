#pragma once

#include <octree/las/Columns.h>
#include <octree/las/LasFile.h>
#include <octree/tiles/Tile.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

namespace Tiles {

/// The fields of LAS points that tiles have columns for, but for the extra bytes that normals may lie in.
constexpr unsigned TILE_FIELDS =
    static_cast<unsigned>(Las::Field::Position) | static_cast<unsigned>(Las::Field::Intensity) |
    static_cast<unsigned>(Las::Field::Classification) | static_cast<unsigned>(Las::Field::PointSourceId) |
    static_cast<unsigned>(Las::Field::Color);

/// Empty for bytes without a type.
std::optional<NumberType> typeOf(const Las::ExtraAttribute& attribute);

/// What a point's extra bytes hold.
struct ExtraBytes {
    std::vector<Las::ExtraAttribute> attributes;
    std::size_t count = 0;
};

/// A tile of decoded LAS points, which it keeps. Positions have the header's scale and offset, normals are
/// the attributes "NormalX", "NormalY" and "NormalZ" of the extra bytes if those were decoded.
Tile makeLasTile(std::shared_ptr<const Las::Columns> points, const Las::Header& header,
                 const ExtraBytes& extraBytes);

}  // namespace Tiles
