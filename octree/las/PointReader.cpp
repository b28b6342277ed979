#include <octree/StoreError.h>
#include <octree/las/LittleEndian.h>
#include <octree/las/PointReader.h>

#include <algorithm>
#include <string>

namespace Las {

namespace {

std::unique_ptr<ChunkDecoder> decoderFor(const LasFile& file, unsigned fields) {
    if (!file.items()) {
        return makeRecordDecoder(file.format());
    }
    return file.format().isLayered() ? makeLayeredDecoder(file.format(), file.items()->layerVersion, fields)
                                     : makePointwiseDecoder(file.format());
}

}  // namespace

PointReader::PointReader(const LasFile& file, unsigned fields)
    : mFile(file),
      mBytes(file.bytes()),
      mTable(file.chunks()),
      mFields(file.format().fieldsOf(fields)),
      mDecoder(decoderFor(file, mFields)),
      mPointsLeft(file.header().pointCount) {}

PointReader::PointReader(const LasFile& file, std::span<const std::byte> chunk, std::uint64_t pointCount,
                         unsigned fields)
    : mFile(file),
      mBytes(chunk),
      mTable{{{0, chunk.size(), pointCount}}, true, 0},
      mFields(file.format().fieldsOf(fields)),
      mDecoder(decoderFor(file, mFields)),
      mPointsLeft(pointCount) {}

bool PointReader::read(Columns& columns) {
    if (mPointsLeft == 0) {
        return false;
    }
    try {
        if (mDecodedOfChunk == mChunk.pointCount) {
            startChunk();
        }
        const std::uint64_t left = mChunk.pointCount - mDecodedOfChunk;
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(BLOCK, left));
        mDecoder->next(columns.append(count, mFields, mFile.format().extraByteCount), count);
        mDecodedOfChunk += count;
        mPointsLeft -= count;
    } catch (const DataError& error) {
        fail(error.what());
    } catch (const ChunkDecoder::PointError& error) {
        fail("point " + std::to_string(mDecodedOfChunk + error.index) + " of " +
             std::to_string(mChunk.pointCount) + ": " + error.what());
    }
    return true;
}

void PointReader::startChunk() {
    mChunk = mTable.isComplete ? mTable.chunks[static_cast<std::size_t>(mNextChunk)] : untabledChunk();
    ++mNextChunk;
    mDecodedOfChunk = 0;
    if (!isPlausible(mChunk.pointCount, mChunk.size)) {
        throw DataError(std::to_string(mChunk.size) + " bytes are too few for " +
                        std::to_string(mChunk.pointCount) + " points");
    }
    mDecoder->start(mBytes.subspan(mChunk.offset, mChunk.size), mChunk.pointCount);
}

/// Without a table a chunk begins where the one before ended, and may take the rest of the file.
ChunkTable::Chunk PointReader::untabledChunk() const {
    const std::uint64_t offset = mNextChunk == 0 ? mTable.firstOffset : mChunk.offset + mDecoder->consumed();
    ChunkTable::Chunk chunk{offset, mBytes.size() - offset, 0};
    if (mFile.items()->hasFixedChunks()) {
        chunk.pointCount = mFile.items()->chunkSize;
    } else if (mFile.format().isLayered()) {
        // Layered chunks tell their own number of points, after the first record.
        FieldReader reader(mBytes.subspan(offset), "the chunk");
        reader.skip(mFile.format().recordLength);
        chunk.pointCount = reader.next<std::uint32_t>();
        if (chunk.pointCount == 0) {
            throw DataError("a chunk without points");
        }
    } else {
        throw DataError("the table of its chunks is missing, whose sizes vary");
    }
    chunk.pointCount = std::min(chunk.pointCount, mPointsLeft);
    return chunk;
}

void PointReader::fail(const std::string& problem) const {
    throw Octree::StoreError(mFile.name() + ": chunk " + std::to_string(chunkIndex()) + ": " + problem);
}

}  // namespace Las
