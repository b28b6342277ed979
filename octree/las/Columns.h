#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Las {

/// What a reader may be asked for: values to be or-ed.
enum class Field : unsigned {
    Position = 1,
    Intensity = 2,
    Returns = 4,
    Flags = 8,
    Classification = 16,
    ScanAngle = 32,
    UserData = 64,
    PointSourceId = 128,
    GpsTime = 256,
    Color = 512,
    NearInfrared = 1024,
    ExtraBytes = 2048
};

inline constexpr unsigned ALL_FIELDS = 4095;

/// Where the fields of some points go; a field that is not wanted or that the format does not have is
/// nullptr.
struct PointSink {
    std::int32_t *x = nullptr, *y = nullptr, *z = nullptr;
    std::uint16_t* intensity = nullptr;
    std::uint8_t *returnNumber = nullptr, *returnCount = nullptr;
    std::uint8_t* flags = nullptr;
    std::uint8_t* classification = nullptr;
    std::int16_t* scanAngle = nullptr;
    std::uint8_t* userData = nullptr;
    std::uint16_t* pointSourceId = nullptr;
    double* gpsTime = nullptr;
    std::uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
    std::uint16_t* nearInfrared = nullptr;
    std::byte* extraBytes = nullptr;
};

/// Points, one column a field. A column that was not wanted or that the format does not have is empty; the
/// others have size elements.
struct Columns {
    std::size_t size = 0;
    /// Times the file's scale plus its offset.
    std::vector<std::int32_t> x, y, z;
    std::vector<std::uint16_t> intensity;
    std::vector<std::uint8_t> returnNumber, returnCount;
    /// From bit 0: synthetic, key point, withheld, overlap (from format 6 on), scan direction, edge of flight
    /// line; the upper two bits are the scanner channel (from format 6 on).
    std::vector<std::uint8_t> flags;
    std::vector<std::uint8_t> classification;
    /// Degrees in formats 0 to 5, steps of 0.006 degrees from format 6 on.
    std::vector<std::int16_t> scanAngle;
    std::vector<std::uint8_t> userData;
    std::vector<std::uint16_t> pointSourceId;
    std::vector<double> gpsTime;
    std::vector<std::uint16_t> red, green, blue;
    std::vector<std::uint16_t> nearInfrared;
    /// Those of one point after those of the other.
    std::vector<std::byte> extraBytes;

    /// What a point of these fields takes.
    static std::size_t bytesPerPoint(unsigned fields, std::size_t extraByteCount);

    void clear();
    /// Room for more points in all, of these fields.
    void reserve(std::size_t count, unsigned fields, std::size_t extraByteCount);
    /// Appends points whose fields are still 0; the sink is valid until the next change.
    PointSink append(std::size_t count, unsigned fields, std::size_t extraByteCount);
};

}  // namespace Las
