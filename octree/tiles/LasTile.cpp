#include <octree/tiles/LasTile.h>

#include <array>
#include <cstdint>
#include <utility>

namespace Tiles {

namespace {

/// What LAS calls the types of extra bytes, from 1 on.
constexpr std::array<NumberType, 10> EXTRA_TYPES{
    NumberType::Uint8, NumberType::Int8,   NumberType::Uint16, NumberType::Int16, NumberType::Uint32,
    NumberType::Int32, NumberType::Uint64, NumberType::Int64,  NumberType::Float, NumberType::Double};

template <class T>
void setColumn(Tile& tile, Known dimension, const std::vector<T>& numbers, NumberType type,
               double scale = 1.0, double offset = 0.0) {
    if (!numbers.empty()) {
        tile[dimension] =
            NumberColumn{reinterpret_cast<const std::byte*>(numbers.data()), sizeof(T), type, scale, offset};
    }
}

void setNormals(const Las::Columns& points, const ExtraBytes& extraBytes, Tile& tile) {
    for (const Las::ExtraAttribute& extra : extraBytes.attributes) {
        for (const Known dimension : {Known::NormalX, Known::NormalY, Known::NormalZ}) {
            const std::optional<NumberType> type = typeOf(extra);
            if (extra.name == nameOf(dimension) && type) {
                tile[dimension] =
                    NumberColumn{points.extraBytes.data() + extra.offset, extraBytes.count, *type};
            }
        }
    }
}

}  // namespace

std::optional<NumberType> typeOf(const Las::ExtraAttribute& attribute) {
    const bool hasType = attribute.type >= 1 && attribute.type <= EXTRA_TYPES.size();
    return hasType ? std::optional(EXTRA_TYPES[attribute.type - 1]) : std::nullopt;
}

Tile makeLasTile(std::shared_ptr<const Las::Columns> points, const Las::Header& header,
                 const ExtraBytes& extraBytes) {
    Tile tile;
    tile.pointCount = points->size;
    const auto position = [&](Known dimension, const std::vector<std::int32_t>& numbers, int axis) {
        setColumn(tile, dimension, numbers, NumberType::Int32, header.scale[axis], header.offset[axis]);
    };
    position(Known::X, points->x, 0);
    position(Known::Y, points->y, 1);
    position(Known::Z, points->z, 2);
    setColumn(tile, Known::Intensity, points->intensity, NumberType::Uint16);
    setColumn(tile, Known::Classification, points->classification, NumberType::Uint8);
    setColumn(tile, Known::PointSourceId, points->pointSourceId, NumberType::Uint16);
    setColumn(tile, Known::Red, points->red, NumberType::Uint16);
    setColumn(tile, Known::Green, points->green, NumberType::Uint16);
    setColumn(tile, Known::Blue, points->blue, NumberType::Uint16);
    if (!points->extraBytes.empty()) {
        setNormals(*points, extraBytes, tile);
    }
    tile.memory = std::move(points);
    return tile;
}

}  // namespace Tiles
