#pragma once

#include <octree/las/ColorDecoder.h>
#include <octree/las/Columns.h>

#include <cstddef>
#include <cstdint>

namespace Las {

/// Which parts a point record has, in their order: the point, GPS time (in the older formats; the newer have
/// it in the point), colour, near infrared, extra bytes.
struct PointFormat {
    /// 0 to 3 and 6 to 8; throws DataError naming any other, and a record shorter than its format.
    PointFormat(unsigned format, std::size_t length);

    bool isLayered() const { return number >= 6; }
    /// Those that the format has, of the ones wanted.
    unsigned fieldsOf(unsigned wanted) const;

    unsigned number;
    std::size_t recordLength;
    bool hasGpsTime, hasColor, hasNearInfrared;
    std::size_t extraByteCount;
};

/// The first part of a record of formats 0 to 5.
struct Point10 {
    static constexpr std::size_t SIZE = 20;
    static Point10 read(const std::byte* record);

    unsigned returnNumber() const { return returns & 7U; }
    unsigned returnCount() const { return returns >> 3 & 7U; }
    unsigned scanDirection() const { return returns >> 6 & 1U; }
    void store(const PointSink& sink, std::size_t i) const;

    std::int32_t x, y, z;
    std::uint16_t intensity;
    /// Return number, number of returns, scan direction, edge of flight line: 3, 3, 1 and 1 bits.
    std::uint8_t returns;
    /// Class and flags: 5 and 3 bits.
    std::uint8_t classification;
    std::int8_t scanAngle;
    std::uint8_t userData;
    std::uint16_t pointSourceId;
};

/// The first part of a record of formats 6 to 10.
struct Point14 {
    static constexpr std::size_t SIZE = 30;
    static Point14 read(const std::byte* record);

    void store(const PointSink& sink, std::size_t i) const;

    std::int32_t x, y, z;
    std::uint16_t intensity;
    std::uint8_t returnNumber, returnCount;
    /// As in Columns, without the channel.
    std::uint8_t flags;
    std::uint8_t channel;
    std::uint8_t classification, userData;
    std::int16_t scanAngle;
    std::uint16_t pointSourceId;
    std::uint64_t gpsTime;
};

Rgb readRgb(const std::byte* bytes);
void storeRgb(const Rgb& color, const PointSink& sink, std::size_t i);
void storeGpsTime(std::uint64_t bits, const PointSink& sink, std::size_t i);

/// Stores a whole uncompressed record.
void storeRecord(const PointFormat& format, const std::byte* record, const PointSink& sink, std::size_t i);

}  // namespace Las
