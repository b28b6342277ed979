#pragma once

#include <octree/las/LazItems.h>
#include <octree/las/PointFormat.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Las {

/// Where the chunks of a file lie (LAZ specification, section on the chunk table).
struct ChunkTable {
    struct Chunk {
        std::uint64_t offset = 0, size = 0;
        std::uint64_t pointCount = 0;
    };

    /// Throws DataError when the table is damaged or does not cover the file's points. Chunks without points
    /// are left out.
    static ChunkTable read(std::span<const std::byte> file, std::uint64_t pointOffset,
                           std::uint64_t pointCount, const PointFormat& format, const LazItems& items);
    /// Uncompressed records, as many a chunk as are handy.
    static ChunkTable ofRecords(std::uint64_t size, std::uint64_t pointOffset, std::uint64_t pointCount,
                                const PointFormat& format);

    std::vector<Chunk> chunks;
    /// Whether there is a table: a writer that was stopped leaves none, and the chunks have to be read one
    /// after another from firstOffset on.
    bool isComplete = true;
    std::uint64_t firstOffset = 0;
};

/// No encoder says more points with so many bytes: each symbol of a point costs something.
constexpr bool isPlausible(std::uint64_t pointCount, std::uint64_t byteCount) {
    constexpr std::uint64_t MAX_POINTS_PER_BYTE = 2048;
    return pointCount / MAX_POINTS_PER_BYTE <= byteCount;
}

}  // namespace Las
