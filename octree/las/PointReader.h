#pragma once

#include <octree/las/ChunkDecoder.h>
#include <octree/las/Columns.h>
#include <octree/las/LasFile.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace Las {

/// Reads the points of a file from the first to the last. Not synchronised; several readers may share a file.
class PointReader {
public:
    /// Most points that one read appends.
    static constexpr std::size_t BLOCK = 4096;

    /// The fields or Field values. The file must outlive the reader.
    PointReader(const LasFile& file, unsigned fields);
    /// Reads one chunk of a file, of which the head is enough, by itself.
    PointReader(const LasFile& file, std::span<const std::byte> chunk, std::uint64_t pointCount,
                unsigned fields);

    /// Appends the next points; false when there are none left. Throws Octree::StoreError naming file, chunk
    /// and point when they cannot be decoded; the columns then end in points of no meaning.
    bool read(Columns& columns);
    std::uint64_t pointsLeft() const { return mPointsLeft; }
    /// Of the chunks begun so far.
    std::uint64_t chunkIndex() const { return mNextChunk == 0 ? 0 : mNextChunk - 1; }

private:
    void startChunk();
    ChunkTable::Chunk untabledChunk() const;
    [[noreturn]] void fail(const std::string& problem) const;

    const LasFile& mFile;
    const std::span<const std::byte> mBytes;
    const ChunkTable mTable;
    unsigned mFields;
    std::unique_ptr<ChunkDecoder> mDecoder;
    std::uint64_t mPointsLeft;
    std::uint64_t mNextChunk = 0;
    ChunkTable::Chunk mChunk;
    std::uint64_t mDecodedOfChunk = 0;
};

}  // namespace Las
