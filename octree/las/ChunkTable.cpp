#include <octree/las/ChunkTable.h>
#include <octree/las/IntegerDecoder.h>
#include <octree/las/LittleEndian.h>

#include <algorithm>
#include <memory>
#include <string>

namespace Las {

namespace {

constexpr std::uint64_t AT_END = 0xFFFFFFFFFFFFFFFF;

/// Where the table lies; 0 when there is none.
std::uint64_t tableOffset(std::span<const std::byte> file, std::uint64_t pointOffset) {
    FieldReader reader(file.subspan(pointOffset), "the place of the chunk table");
    auto offset = reader.next<std::uint64_t>();
    if (offset == AT_END) {
        // The writer could not go back; it has put the place behind the table.
        offset = loadAt<std::uint64_t>(file.data() + file.size() - sizeof offset);
    }
    // A writer that was stopped leaves what it put there at first: nothing, or that place itself.
    return offset == pointOffset || offset == AT_END ? 0 : offset;
}

/// Sizes and, where they vary, point counts, one after another.
class EntryReader {
public:
    EntryReader(std::span<const std::byte> bytes, bool hasCounts)
        : mHasCounts(hasCounts), mIntegers(std::make_unique_for_overwrite<IntegerDecoder<32, 2>>()) {
        mDecoder.start(bytes);
        mIntegers->reset();
    }
    ChunkTable::Chunk next() {
        if (mHasCounts) {
            mCount = mIntegers->decode(mDecoder, mCount, 0);
        }
        mSize = mIntegers->decode(mDecoder, mSize, 1);
        return {0, static_cast<std::uint32_t>(mSize), static_cast<std::uint32_t>(mCount)};
    }

private:
    bool mHasCounts;
    ArithmeticDecoder mDecoder;
    std::unique_ptr<IntegerDecoder<32, 2>> mIntegers;
    std::int32_t mSize = 0, mCount = 0;
};

[[noreturn]] void fail(const std::string& problem) {
    throw DataError("the chunk table " + problem);
}

}  // namespace

ChunkTable ChunkTable::read(std::span<const std::byte> file, std::uint64_t pointOffset,
                            std::uint64_t pointCount, const PointFormat& format, const LazItems& items) {
    ChunkTable table;
    table.firstOffset = pointOffset + sizeof(std::uint64_t);
    if (pointCount == 0) {
        return table;
    }
    const std::uint64_t place = tableOffset(file, pointOffset);
    if (place == 0) {
        table.isComplete = false;
        return table;
    }
    if (place < table.firstOffset || place > file.size()) {
        fail("is said to begin at byte " + std::to_string(place) + " of " + std::to_string(file.size()));
    }
    FieldReader reader(file.subspan(place), "the chunk table");
    if (const auto version = reader.next<std::uint32_t>(); version != 0) {
        fail("is of version " + std::to_string(version));
    }
    const std::uint64_t chunkCount = reader.next<std::uint32_t>();
    const std::uint64_t space = place - table.firstOffset;
    // Each chunk begins with a whole record; some writers end with an empty chunk.
    if (chunkCount > space / format.recordLength + 1) {
        fail("lists " + std::to_string(chunkCount) + " chunks in " + std::to_string(space) + " bytes");
    }
    EntryReader entries(file.subspan(place + reader.offset()), !items.hasFixedChunks());
    std::uint64_t offset = table.firstOffset;
    std::uint64_t left = pointCount;
    for (std::uint64_t i = 0; i < chunkCount && left > 0; ++i) {
        Chunk chunk = entries.next();
        chunk.offset = offset;
        chunk.pointCount = std::min(left, items.hasFixedChunks() ? items.chunkSize : chunk.pointCount);
        if (chunk.size > place - offset) {
            fail("says that chunk " + std::to_string(i) + " has " + std::to_string(chunk.size) + " bytes");
        }
        offset += chunk.size;
        left -= chunk.pointCount;
        if (chunk.pointCount > 0) {
            table.chunks.push_back(chunk);
        }
    }
    if (left > 0) {
        fail("ends " + std::to_string(left) + " points before the " + std::to_string(pointCount) +
             " that the header says");
    }
    return table;
}

ChunkTable ChunkTable::ofRecords(std::uint64_t size, std::uint64_t pointOffset, std::uint64_t pointCount,
                                 const PointFormat& format) {
    constexpr std::uint64_t POINTS_PER_CHUNK = 65536;
    if (pointCount > size / format.recordLength) {
        throw DataError("the header says " + std::to_string(pointCount) + " points, there are bytes for " +
                        std::to_string(size / format.recordLength));
    }
    ChunkTable table;
    table.firstOffset = pointOffset;
    for (std::uint64_t first = 0; first < pointCount; first += POINTS_PER_CHUNK) {
        const std::uint64_t count = std::min(POINTS_PER_CHUNK, pointCount - first);
        table.chunks.push_back(
            {pointOffset + first * format.recordLength, count * format.recordLength, count});
    }
    return table;
}

}  // namespace Las
