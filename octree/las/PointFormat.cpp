#include <octree/las/LittleEndian.h>
#include <octree/las/PointFormat.h>

#include <array>
#include <bit>
#include <string>

namespace Las {

namespace {

std::size_t baseLength(unsigned number) {
    switch (number) {
        case 0:
            return 20;
        case 1:
            return 28;
        case 2:
            return 26;
        case 3:
            return 34;
        case 6:
            return 30;
        case 7:
            return 36;
        case 8:
            return 38;
        default:
            throw DataError("point format " + std::to_string(number) + " is not supported");
    }
}

std::size_t extraBytesOf(unsigned number, std::size_t recordLength) {
    const std::size_t base = baseLength(number);
    if (recordLength < base) {
        throw DataError("point format " + std::to_string(number) + " takes " + std::to_string(base) +
                        " bytes a point, the header says " + std::to_string(recordLength));
    }
    return recordLength - base;
}

template <class T>
void storeIf(T* column, std::size_t i, unsigned value) {
    if (column != nullptr) {
        column[i] = static_cast<T>(value);
    }
}

}  // namespace

PointFormat::PointFormat(unsigned format, std::size_t length)
    : number(format),
      recordLength(length),
      hasGpsTime(format == 1 || format == 3),
      hasColor(format == 2 || format == 3 || format == 7 || format == 8),
      hasNearInfrared(format == 8),
      extraByteCount(extraBytesOf(format, length)) {}

unsigned PointFormat::fieldsOf(unsigned wanted) const {
    unsigned fields = wanted & ALL_FIELDS;
    const auto drop = [&](Field field) { fields &= ~static_cast<unsigned>(field); };
    if (!hasGpsTime && !isLayered()) {
        drop(Field::GpsTime);
    }
    if (!hasColor) {
        drop(Field::Color);
    }
    if (!hasNearInfrared) {
        drop(Field::NearInfrared);
    }
    if (extraByteCount == 0) {
        drop(Field::ExtraBytes);
    }
    return fields;
}

Point10 Point10::read(const std::byte* record) {
    return {loadAt<std::int32_t>(record),      loadAt<std::int32_t>(record + 4),
            loadAt<std::int32_t>(record + 8),  loadAt<std::uint16_t>(record + 12),
            loadAt<std::uint8_t>(record + 14), loadAt<std::uint8_t>(record + 15),
            loadAt<std::int8_t>(record + 16),  loadAt<std::uint8_t>(record + 17),
            loadAt<std::uint16_t>(record + 18)};
}

void Point10::store(const PointSink& sink, std::size_t i) const {
    if (sink.x != nullptr) {
        sink.x[i] = x;
        sink.y[i] = y;
        sink.z[i] = z;
    }
    storeIf(sink.intensity, i, intensity);
    if (sink.returnNumber != nullptr) {
        sink.returnNumber[i] = static_cast<std::uint8_t>(returnNumber());
        sink.returnCount[i] = static_cast<std::uint8_t>(returnCount());
    }
    storeIf(sink.flags, i, classification >> 5U | (returns >> 6U & 3U) << 4U);
    storeIf(sink.classification, i, classification & 31U);
    if (sink.scanAngle != nullptr) {
        sink.scanAngle[i] = std::int16_t{scanAngle};
    }
    storeIf(sink.userData, i, userData);
    storeIf(sink.pointSourceId, i, pointSourceId);
}

Point14 Point14::read(const std::byte* record) {
    const auto returns = loadAt<std::uint8_t>(record + 14);
    const auto flags = loadAt<std::uint8_t>(record + 15);
    return {loadAt<std::int32_t>(record), loadAt<std::int32_t>(record + 4), loadAt<std::int32_t>(record + 8),
            loadAt<std::uint16_t>(record + 12), static_cast<std::uint8_t>(returns & 15U),
            static_cast<std::uint8_t>(returns >> 4U),
            // Between the four flags and the two of the scan lie the two bits of the channel.
            static_cast<std::uint8_t>((flags & 15U) | (flags >> 2U & 48U)),
            static_cast<std::uint8_t>(flags >> 4U & 3U), loadAt<std::uint8_t>(record + 16),
            loadAt<std::uint8_t>(record + 17), loadAt<std::int16_t>(record + 18),
            loadAt<std::uint16_t>(record + 20), loadAt<std::uint64_t>(record + 22)};
}

void Point14::store(const PointSink& sink, std::size_t i) const {
    if (sink.x != nullptr) {
        sink.x[i] = x;
        sink.y[i] = y;
        sink.z[i] = z;
    }
    storeIf(sink.intensity, i, intensity);
    if (sink.returnNumber != nullptr) {
        sink.returnNumber[i] = returnNumber;
        sink.returnCount[i] = returnCount;
    }
    storeIf(sink.flags, i, flags | static_cast<unsigned>(channel) << 6U);
    storeIf(sink.classification, i, classification);
    if (sink.scanAngle != nullptr) {
        sink.scanAngle[i] = scanAngle;
    }
    storeIf(sink.userData, i, userData);
    storeIf(sink.pointSourceId, i, pointSourceId);
    storeGpsTime(gpsTime, sink, i);
}

Rgb readRgb(const std::byte* bytes) {
    return loadAt<Rgb>(bytes);
}

void storeRgb(const Rgb& color, const PointSink& sink, std::size_t i) {
    if (sink.red != nullptr) {
        sink.red[i] = color[0];
        sink.green[i] = color[1];
        sink.blue[i] = color[2];
    }
}

void storeGpsTime(std::uint64_t bits, const PointSink& sink, std::size_t i) {
    if (sink.gpsTime != nullptr) {
        sink.gpsTime[i] = std::bit_cast<double>(bits);
    }
}

void storeRecord(const PointFormat& format, const std::byte* record, const PointSink& sink, std::size_t i) {
    if (format.isLayered()) {
        Point14::read(record).store(sink, i);
        record += Point14::SIZE;
    } else {
        Point10::read(record).store(sink, i);
        record += Point10::SIZE;
        if (format.hasGpsTime) {
            storeGpsTime(loadAt<std::uint64_t>(record), sink, i);
            record += sizeof(std::uint64_t);
        }
    }
    if (format.hasColor) {
        storeRgb(readRgb(record), sink, i);
        record += sizeof(Rgb);
    }
    if (format.hasNearInfrared) {
        storeIf(sink.nearInfrared, i, loadAt<std::uint16_t>(record));
        record += sizeof(std::uint16_t);
    }
    if (sink.extraBytes != nullptr) {
        std::memcpy(sink.extraBytes + i * format.extraByteCount, record, format.extraByteCount);
    }
}

}  // namespace Las
