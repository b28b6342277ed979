#include <octree/las/LazItems.h>
#include <octree/las/LittleEndian.h>

#include <string>
#include <vector>

namespace Las {

namespace {

constexpr unsigned POINTWISE_CHUNKED = 2, LAYERED_CHUNKED = 3;
constexpr unsigned POINTWISE_VERSION = 2, LAYERED_VERSION = 3, LATER_LAYERED_VERSION = 4;

struct Item {
    bool operator==(const Item&) const = default;

    unsigned type = 0, size = 0;
};

// Numbers of the item types.
constexpr unsigned BYTE = 0, POINT10 = 6, GPSTIME11 = 7, RGB12 = 8, POINT14 = 10, RGB14 = 11, RGBNIR14 = 12,
                   BYTE14 = 14;

std::vector<Item> itemsOf(const PointFormat& format) {
    std::vector<Item> items;
    const auto extraBytes = static_cast<unsigned>(format.extraByteCount);
    if (format.isLayered()) {
        items.push_back({POINT14, 30});
        if (format.hasColor) {
            items.push_back(format.hasNearInfrared ? Item{RGBNIR14, 8} : Item{RGB14, 6});
        }
    } else {
        items.push_back({POINT10, 20});
        if (format.hasGpsTime) {
            items.push_back({GPSTIME11, 8});
        }
        if (format.hasColor) {
            items.push_back({RGB12, 6});
        }
    }
    if (extraBytes > 0) {
        items.push_back({format.isLayered() ? BYTE14 : BYTE, extraBytes});
    }
    return items;
}

std::string nameOf(unsigned type) {
    static const char* const NAMES[] = {"BYTE",    "SHORT",   "INT",       "LONG",         "FLOAT",
                                        "DOUBLE",  "POINT10", "GPSTIME11", "RGB12",        "WAVEPACKET13",
                                        "POINT14", "RGB14",   "RGBNIR14",  "WAVEPACKET14", "BYTE14"};
    return type < std::size(NAMES) ? NAMES[type] : "number " + std::to_string(type);
}

void checkCompressor(unsigned compressor, unsigned coder, const PointFormat& format) {
    const unsigned expected = format.isLayered() ? LAYERED_CHUNKED : POINTWISE_CHUNKED;
    if (compressor != expected) {
        static const char* const NAMES[] = {"none", "pointwise", "pointwise chunked", "layered chunked"};
        const std::string name = compressor < std::size(NAMES) ? NAMES[compressor] : "unknown";
        throw DataError("compressor " + std::to_string(compressor) + " (" + name +
                        ") is not supported for point format " + std::to_string(format.number));
    }
    if (coder != 0) {
        throw DataError("entropy coder " + std::to_string(coder) + " is not supported");
    }
}

}  // namespace

LazItems LazItems::read(std::span<const std::byte> record, const PointFormat& format) {
    FieldReader reader(record, "the record of the compression");
    const unsigned compressor = reader.next<std::uint16_t>();
    const unsigned coder = reader.next<std::uint16_t>();
    checkCompressor(compressor, coder, format);
    reader.skip(8);  // version of the writer, options
    LazItems result;
    result.chunkSize = reader.next<std::uint32_t>();
    if (result.chunkSize == 0) {
        throw DataError("chunks of no points");
    }
    reader.skip(16);  // special extended records

    const std::vector<Item> expected = itemsOf(format);
    const unsigned count = reader.next<std::uint16_t>();
    unsigned commonVersion = format.isLayered() ? 0 : POINTWISE_VERSION;
    for (unsigned i = 0; i < count; ++i) {
        Item item;
        item.type = reader.next<std::uint16_t>();
        item.size = reader.next<std::uint16_t>();
        const unsigned version = reader.next<std::uint16_t>();
        const std::string name = "item " + nameOf(item.type);
        if (i >= expected.size() || item != expected[i]) {
            throw DataError(name + " of " + std::to_string(item.size) +
                            " bytes does not belong to point format " + std::to_string(format.number) +
                            " with " + std::to_string(format.extraByteCount) + " extra bytes");
        }
        if (commonVersion == 0 && (version == LAYERED_VERSION || version == LATER_LAYERED_VERSION)) {
            commonVersion = version;
        }
        if (version != commonVersion) {
            throw DataError("version " + std::to_string(version) + " of " + name + " is not supported");
        }
    }
    if (count != expected.size()) {
        throw DataError("items are missing for point format " + std::to_string(format.number));
    }
    result.layerVersion = commonVersion == LATER_LAYERED_VERSION ? LayerVersion::Four : LayerVersion::Three;
    return result;
}

}  // namespace Las
