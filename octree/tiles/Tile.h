#pragma once

#include <octree/tiles/StoreDescription.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace Tiles {

/// The dimensions that are made use of.
enum class Known : std::size_t {
    X,
    Y,
    Z,
    Intensity,
    Classification,
    PointSourceId,
    Red,
    Green,
    Blue,
    NormalX,
    NormalY,
    NormalZ
};
constexpr std::size_t KNOWN_COUNT = 12;
/// As schemas call it.
const char* nameOf(Known dimension);

/// One number a point, stride bytes apart: value = number * scale + offset. Refers to a tile's memory.
struct NumberColumn {
    /// Without scale and offset. count numbers from point start on.
    void readNumbers(std::size_t start, std::size_t count, double* out) const;
    void readValues(std::size_t start, std::size_t count, double* out) const;

    const std::byte* first = nullptr;
    std::size_t stride = 0;
    NumberType type = NumberType::Uint8;
    double scale = 1.0;
    double offset = 0.0;
};

/// A node's points in memory, in whatever layout its reader left them.
struct Tile {
    std::optional<NumberColumn>& operator[](Known dimension) {
        return columns[static_cast<std::size_t>(dimension)];
    }
    const std::optional<NumberColumn>& operator[](Known dimension) const {
        return columns[static_cast<std::size_t>(dimension)];
    }

    std::size_t pointCount = 0;
    /// Empty for a dimension that the tile does not have.
    std::array<std::optional<NumberColumn>, KNOWN_COUNT> columns;
    /// What the columns refer to, and how many bytes that takes.
    std::shared_ptr<const void> memory;
    std::uint64_t memorySize = 0;
};

/// A tile whose memory is one record of the schema after another. Throws std::invalid_argument when size is
/// not a whole number of records.
Tile makeRecordTile(const StoreDescription& description, std::unique_ptr<std::byte[]> records,
                    std::size_t size);

}  // namespace Tiles
