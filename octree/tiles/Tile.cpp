#include <octree/tiles/Tile.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace Tiles {

namespace {

static_assert(std::endian::native == std::endian::little, "Numbers are read in place");

template <class T>
void readAs(const NumberColumn& column, std::size_t start, std::size_t count, double* out) {
    const std::byte* at = column.first + start * column.stride;
    for (std::size_t i = 0; i < count; ++i, at += column.stride) {
        T number;
        std::memcpy(&number, at, sizeof number);
        out[i] = static_cast<double>(number);
    }
}

}  // namespace

const char* nameOf(Known dimension) {
    constexpr std::array<const char*, KNOWN_COUNT> NAMES{
        "X",   "Y",     "Z",    "Intensity", "Classification", "PointSourceId",
        "Red", "Green", "Blue", "NormalX",   "NormalY",        "NormalZ"};
    return NAMES[static_cast<std::size_t>(dimension)];
}

void NumberColumn::readNumbers(std::size_t start, std::size_t count, double* out) const {
    switch (type) {
        case NumberType::Int8:
            return readAs<std::int8_t>(*this, start, count, out);
        case NumberType::Int16:
            return readAs<std::int16_t>(*this, start, count, out);
        case NumberType::Int32:
            return readAs<std::int32_t>(*this, start, count, out);
        case NumberType::Int64:
            return readAs<std::int64_t>(*this, start, count, out);
        case NumberType::Uint8:
            return readAs<std::uint8_t>(*this, start, count, out);
        case NumberType::Uint16:
            return readAs<std::uint16_t>(*this, start, count, out);
        case NumberType::Uint32:
            return readAs<std::uint32_t>(*this, start, count, out);
        case NumberType::Uint64:
            return readAs<std::uint64_t>(*this, start, count, out);
        case NumberType::Float:
            return readAs<float>(*this, start, count, out);
        case NumberType::Double:
            return readAs<double>(*this, start, count, out);
    }
}

void NumberColumn::readValues(std::size_t start, std::size_t count, double* out) const {
    readNumbers(start, count, out);
    if (scale == 1.0 && offset == 0.0) {
        return;
    }
    for (std::size_t i = 0; i < count; ++i) {
        out[i] = out[i] * scale + offset;
    }
}

Tile makeRecordTile(const StoreDescription& description, std::unique_ptr<std::byte[]> records,
                    std::size_t size) {
    if (size % description.recordSize != 0) {
        throw std::invalid_argument(std::to_string(size) + " bytes are no whole number of records of " +
                                    std::to_string(description.recordSize) + " bytes");
    }
    Tile tile;
    tile.pointCount = size / description.recordSize;
    const std::byte* const first = records.get();
    tile.memory = std::shared_ptr<const std::byte[]>(std::move(records));
    for (std::size_t i = 0; i < KNOWN_COUNT; ++i) {
        if (const Dimension* dimension = description.find(nameOf(Known{i}))) {
            tile.columns[i] = NumberColumn{first + dimension->recordOffset, description.recordSize,
                                           dimension->type, dimension->scale, dimension->offset};
        }
    }
    return tile;
}

}  // namespace Tiles
