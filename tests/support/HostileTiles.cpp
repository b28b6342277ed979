#include <tests/support/HostileTiles.h>

#include <bit>

namespace Support::Hostile {

namespace {

/// Little-endian, whatever the machine.
template <class T>
std::string number(T value) {
    std::string bytes;
    for (std::size_t i = 0; i < sizeof value; ++i) {
        bytes += static_cast<char>(value >> 8 * i & 0xff);
    }
    return bytes;
}

std::string padded(std::string text, std::size_t size) {
    text.resize(size);
    return text;
}

std::string variableRecord(const std::string& user, std::uint16_t id, const std::string& data) {
    return padded("", 2) + padded(user, 16) + number(id) + number(static_cast<std::uint16_t>(data.size())) +
           padded("", 32) + data;
}

/// Version 1.4.
std::string header(unsigned char format, std::uint16_t recordLength, double scale, std::uint64_t points,
                   std::size_t recordBytes, std::uint32_t records) {
    constexpr std::uint16_t SIZE = 375;
    std::string bytes(SIZE, '\0');
    const auto put = [&bytes](std::size_t offset, const std::string& part) {
        bytes.replace(offset, part.size(), part);
    };
    const auto putDouble = [&put](std::size_t offset, double value) {
        put(offset, number(std::bit_cast<std::uint64_t>(value)));
    };
    put(0, "LASF");
    put(24, "\1\4");
    put(94, number(SIZE) + number(static_cast<std::uint32_t>(SIZE + recordBytes)) + number(records));
    put(104, number(format) + number(recordLength));
    for (std::size_t axis = 0; axis < 3; ++axis) {
        putDouble(131 + 8 * axis, scale);
        putDouble(155 + 8 * axis, 1000.0 * static_cast<double>(axis + 1));
    }
    put(247, number(points));
    return bytes;
}

}  // namespace

std::string lasTile(double scale, std::uint32_t points) {
    constexpr std::uint16_t RECORD = 20;
    return header(0, RECORD, scale, points, 0, 0) + std::string(std::size_t{RECORD} * points, '\0');
}

std::string lazTile(std::uint64_t points, std::uint16_t extraBytes, std::size_t returnBytes) {
    constexpr std::uint16_t RECORD = 30;
    constexpr std::size_t POINT_LAYERS = 9;
    const auto item = [](std::uint16_t type, std::uint16_t size) {
        return number(type) + number(size) + number(std::uint16_t{3});
    };
    const bool hasExtra = extraBytes > 0;
    std::string compression = number(std::uint16_t{3}) + padded("", 2) + padded("\3\4", 8) +
                              number(std::uint32_t{1} << 28) + std::string(16, '\xff') +
                              number(static_cast<std::uint16_t>(hasExtra ? 2 : 1)) + item(10, RECORD);
    if (hasExtra) {
        compression += item(14, extraBytes);
    }
    const std::string description = padded(padded("", 2) + padded("\x09", 2) + "NormalX", 192);
    const std::string records =
        variableRecord("laszip encoded", 22204, compression) + variableRecord("LASF_Spec", 4, description);
    const auto recordLength = static_cast<std::uint16_t>(RECORD + extraBytes);
    std::string file = header(6 | 0x80, recordLength, 0.25, points, records.size(), 2) + records;
    file += number(std::uint64_t{file.size()});  // There is no chunk table.
    file += std::string(recordLength, '\0') + number(static_cast<std::uint32_t>(points));
    file += number(static_cast<std::uint32_t>(returnBytes));
    file += std::string(4 * (POINT_LAYERS - 1 + extraBytes), '\0');
    return file + std::string(returnBytes, '\0');
}

}  // namespace Support::Hostile
