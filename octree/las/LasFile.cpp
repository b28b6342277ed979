#include <octree/StoreError.h>
#include <octree/las/LasFile.h>
#include <octree/las/LittleEndian.h>

#include <array>
#include <cmath>
#include <string_view>

namespace Las {

namespace {

/// Set in the point format of compressed files.
constexpr unsigned COMPRESSED_BIT = 0x80;
constexpr unsigned EXTRA_BYTES_RECORD = 4;
constexpr unsigned LAZ_RECORD = 22204;

std::string versionName(const Header& header) {
    return std::to_string(header.versionMajor) + "." + std::to_string(header.versionMinor);
}

std::size_t minHeaderSize(const Header& header) {
    if (header.versionMajor != 1 || header.versionMinor > 4) {
        throw DataError("LAS version " + versionName(header) + " is not supported");
    }
    return header.versionMinor == 4 ? 375 : header.versionMinor == 3 ? 235 : 227;
}

Math::Point<double, 3> nextPoint(FieldReader& reader) {
    const auto x = reader.next<double>();
    const auto y = reader.next<double>();
    const auto z = reader.next<double>();
    return {x, y, z};
}

void checkGrid(const Header& header) {
    for (int axis = 0; axis < 3; ++axis) {
        // Of the outermost integers, which a subnormal scale would blur.
        const double reach = std::ldexp(header.scale[axis], 31);
        if (!std::isnormal(header.scale[axis]) || !std::isfinite(header.offset[axis] + reach) ||
            !std::isfinite(header.offset[axis] - reach)) {
            throw DataError("scale and offset are not usable");
        }
    }
}

}  // namespace

LasFile::LasFile(std::string name, std::span<const std::byte> bytes)
    : LasFile(std::move(name), bytes, Extent::Whole) {}

LasFile LasFile::head(std::string name, std::span<const std::byte> bytes) {
    return LasFile(std::move(name), bytes, Extent::Head);
}

LasFile::LasFile(std::string name, std::span<const std::byte> bytes, Extent extent)
    : mName(std::move(name)), mBytes(bytes) {
    try {
        readHeader(extent);
        readItems();
        if (extent == Extent::Head) {
            return;
        }
        const std::span<const std::byte> points = mBytes.subspan(mPointOffset);
        mChunks = mItems ? ChunkTable::read(mBytes, mPointOffset, mHeader.pointCount, *mFormat, *mItems)
                         : ChunkTable::ofRecords(points.size(), mPointOffset, mHeader.pointCount, *mFormat);
    } catch (const DataError& error) {
        throw Octree::StoreError(mName + ": " + error.what());
    }
}

void LasFile::readHeader(Extent extent) {
    FieldReader reader(mBytes, "the header");
    if (mBytes.size() < 4 || reader.text(4) != "LASF") {
        throw DataError("is not a LAS file");
    }
    reader.skip(20);  // source, encoding, project
    mHeader.versionMajor = reader.next<std::uint8_t>();
    mHeader.versionMinor = reader.next<std::uint8_t>();
    const std::size_t minSize = minHeaderSize(mHeader);
    reader.skip(68);  // system, software, day
    const std::size_t headerSize = reader.next<std::uint16_t>();
    mPointOffset = reader.next<std::uint32_t>();
    const std::uint32_t recordCount = reader.next<std::uint32_t>();
    mHeader.pointFormat = reader.next<std::uint8_t>();
    mHeader.isCompressed = (mHeader.pointFormat & COMPRESSED_BIT) != 0;
    mHeader.pointFormat &= ~COMPRESSED_BIT;
    mHeader.recordLength = reader.next<std::uint16_t>();
    mHeader.pointCount = reader.next<std::uint32_t>();
    reader.skip(20);  // points by return
    mHeader.scale = nextPoint(reader);
    mHeader.offset = nextPoint(reader);
    for (int axis = 0; axis < 3; ++axis) {
        mHeader.max[axis] = reader.next<double>();
        mHeader.min[axis] = reader.next<double>();
    }
    if (headerSize < minSize || mPointOffset < headerSize || mPointOffset > mBytes.size()) {
        throw DataError("the header says that the header ends at byte " + std::to_string(headerSize) +
                        " and the points begin at byte " + std::to_string(mPointOffset) + " of " +
                        std::to_string(mBytes.size()));
    }
    checkGrid(mHeader);
    mFormat.emplace(mHeader.pointFormat, mHeader.recordLength);
    readRecords(headerSize, recordCount, false);
    if (mHeader.versionMinor >= 4) {
        reader.skip(8);  // waveforms
        const auto extendedOffset = reader.next<std::uint64_t>();
        const auto extendedCount = reader.next<std::uint32_t>();
        if (const auto count = reader.next<std::uint64_t>(); count != 0) {
            mHeader.pointCount = count;
        }
        if (extent == Extent::Whole) {
            readRecords(extendedOffset, extendedCount, true);
        }
    }
}

void LasFile::readRecords(std::uint64_t offset, std::uint64_t count, bool isExtended) {
    if (count == 0) {
        return;
    }
    if (offset > mBytes.size()) {
        throw DataError("records begin at byte " + std::to_string(offset) + " of " +
                        std::to_string(mBytes.size()));
    }
    FieldReader reader(mBytes.subspan(offset), "the list of records");
    for (std::uint64_t i = 0; i < count; ++i) {
        VariableRecord record;
        reader.skip(2);  // reserved
        record.userId = reader.text(16);
        record.recordId = reader.next<std::uint16_t>();
        const std::uint64_t size =
            isExtended ? reader.next<std::uint64_t>() : std::uint64_t{reader.next<std::uint16_t>()};
        record.description = reader.text(32);
        record.data = reader.take(size);
        mRecords.push_back(std::move(record));
    }
}

void LasFile::readItems() {
    if (!mHeader.isCompressed) {
        return;
    }
    const VariableRecord* record = findRecord("laszip encoded", LAZ_RECORD);
    if (record == nullptr) {
        throw DataError("is compressed, but its record \"laszip encoded\" is missing");
    }
    mItems = LazItems::read(record->data, *mFormat);
}

const VariableRecord* LasFile::findRecord(const std::string& userId, unsigned recordId) const {
    for (const VariableRecord& record : mRecords) {
        if (record.recordId == recordId && record.userId == userId) {
            return &record;
        }
    }
    return nullptr;
}

std::vector<ExtraAttribute> LasFile::extraAttributes() const {
    constexpr std::size_t DESCRIPTION_SIZE = 192;
    static constexpr std::array<std::size_t, 11> SIZES{0, 1, 1, 2, 2, 4, 4, 8, 8, 4, 8};
    std::vector<ExtraAttribute> attributes;
    const VariableRecord* record = findRecord("LASF_Spec", EXTRA_BYTES_RECORD);
    if (record == nullptr) {
        return attributes;
    }
    FieldReader reader(record->data, "the description of the extra bytes");
    std::size_t offset = 0;
    for (std::size_t i = 0; i < record->data.size() / DESCRIPTION_SIZE; ++i) {
        FieldReader description(reader.take(DESCRIPTION_SIZE), "the description of the extra bytes");
        ExtraAttribute attribute;
        description.skip(2);  // reserved
        attribute.type = description.next<std::uint8_t>();
        const std::size_t options = description.next<std::uint8_t>();
        attribute.name = description.text(32);
        attribute.offset = offset;
        // Without a type the options are the number of bytes.
        attribute.size = attribute.type < SIZES.size() ? SIZES[attribute.type] : 0;
        if (attribute.type == 0) {
            attribute.size = options;
        }
        if (attribute.size == 0 || attribute.size > mFormat->extraByteCount - offset) {
            break;
        }
        offset += attribute.size;
        attributes.push_back(std::move(attribute));
    }
    return attributes;
}

}  // namespace Las
