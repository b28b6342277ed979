#pragma once

#include <math/NBoundingBox.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tiles {

enum class NumberType : std::uint8_t {
    Int8,
    Int16,
    Int32,
    Int64,
    Uint8,
    Uint16,
    Uint32,
    Uint64,
    Float,
    Double
};

/// In bytes.
std::size_t sizeOf(NumberType type);
bool isInteger(NumberType type);

/// One dimension of the schema: value = number * scale + offset.
struct Dimension {
    std::string name;
    NumberType type = NumberType::Uint8;
    double scale = 1.0;
    double offset = 0.0;
    /// Where its number stands in a record of "binary" and "zstandard" tiles.
    std::size_t recordOffset = 0;
    /// Of the values, if the store keeps statistics.
    std::optional<double> minimum, maximum;
};

/// What a store of tiles says of itself, checked: every number is finite, scales are positive, the bounds are
/// a cube, boxes are not inverted, X, Y and Z are there, and doubles hold every step of their grids.
struct StoreDescription {
    /// nullptr when the schema has no dimension of this name.
    const Dimension* find(const std::string& name) const;

    /// As Entwine calls it: "binary", "zstandard" or "laszip".
    std::string dataType;
    std::uint64_t pointCount = 0;
    /// Distance between points of level 0, halved with each level.
    double spacing = 0.0;
    /// The root's cube.
    Math::NBoundingBox<double, 3> bounds;
    /// Around the points; the root's cube when the store does not say.
    Math::NBoundingBox<double, 3> boundsConforming;
    std::vector<Dimension> schema;
    /// Bytes of a point in "binary" and "zstandard" tiles.
    std::size_t recordSize = 0;
};

}  // namespace Tiles
