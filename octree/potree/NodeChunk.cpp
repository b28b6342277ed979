#include <brotli/decode.h>

#include <octree/StoreError.h>
#include <octree/potree/FetchCancelled.h>
#include <octree/potree/NodeChunk.h>
#include <octree/potree/PointColumns.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

namespace PoTree {

namespace {

/// No node of a sensible store comes near: nodes hold tens of thousands of points.
constexpr std::uint64_t MAX_CHUNK_SIZE = std::uint64_t{512} << 20;
/// A stop request is looked at after this much output.
constexpr std::size_t OUTPUT_STEP = std::size_t{4} << 20;

/// Output memory that starts with what a chunk usually needs and doubles up to the limit as output arrives,
/// so that a hostile size costs nothing.
class GrowingBuffer {
public:
    GrowingBuffer(std::size_t limit, std::size_t inputSize)
        : mLimit(limit), mCapacity(std::min(limit, 65536 + 32 * inputSize)), mBytes(allocate(mCapacity)) {}

    /// Where to write next and how much; nothing more once the limit is reached.
    std::uint8_t* next(std::size_t& available) {
        if (mUsed == mCapacity && mCapacity < mLimit) {
            const std::size_t capacity = std::min(mLimit, 2 * mCapacity);
            auto bigger = allocate(capacity);
            std::memcpy(bigger.get(), mBytes.get(), mUsed);
            mBytes = std::move(bigger);
            mCapacity = capacity;
        }
        available = std::min(OUTPUT_STEP, mCapacity - mUsed);
        return reinterpret_cast<std::uint8_t*>(mBytes.get()) + mUsed;
    }
    void wrote(std::size_t count) { mUsed += count; }
    std::size_t used() const { return mUsed; }
    std::unique_ptr<std::byte[]> take() { return std::move(mBytes); }

private:
    static std::unique_ptr<std::byte[]> allocate(std::size_t size) {
        return std::make_unique_for_overwrite<std::byte[]>(size);
    }

    std::size_t mLimit;
    std::size_t mCapacity;
    std::size_t mUsed = 0;
    std::unique_ptr<std::byte[]> mBytes;
};

struct DecoderDeleter {
    void operator()(BrotliDecoderState* state) const { BrotliDecoderDestroyInstance(state); }
};

class ChunkReader {
public:
    ChunkReader(const Node& node, const Metadata& metadata, const FileLoader& loader)
        : mNode(node),
          mLoader(loader),
          mBytesPerPoint(metadata.bytesPerPoint),
          mExpected(std::uint64_t{node.pointCount} * metadata.bytesPerPoint) {}

    DecompressedChunk read(const std::stop_token& stop) const {
        if (mExpected > MAX_CHUNK_SIZE) {
            fail("its " + claim() + " are more than a node may have");
        }
        // Brotli adds a few bytes to what it cannot compress: anything longer is damaged.
        if (mNode.byteSize > 2 * mExpected + 1024) {
            fail(std::to_string(mNode.byteSize) + " bytes are too many for " + claim());
        }
        return {decompress(fetch(stop), stop), mNode.pointCount};
    }

private:
    [[noreturn]] void fail(const std::string& problem) const {
        throw Octree::StoreError(mLoader.octreeFile(), mNode.id.name(), problem);
    }

    std::string claim() const {
        return std::to_string(mNode.pointCount) + " points of " + std::to_string(mBytesPerPoint) + " bytes";
    }

    std::string fetch(const std::stop_token& stop) const {
        try {
            return mLoader.fetchOctreeChunk(mNode.byteOffset, mNode.byteSize, stop).get();
        } catch (const Octree::StoreError&) {
            std::throw_with_nested(
                Octree::StoreError(mLoader.octreeFile(), mNode.id.name(), "its points cannot be read"));
        }
    }

    std::unique_ptr<std::byte[]> decompress(const std::string& input, const std::stop_token& stop) const {
        const std::unique_ptr<BrotliDecoderState, DecoderDeleter> decoder(
            BrotliDecoderCreateInstance(nullptr, nullptr, nullptr));
        if (decoder == nullptr) {
            throw std::bad_alloc();
        }
        GrowingBuffer output(static_cast<std::size_t>(mExpected), input.size());
        std::size_t inputLeft = input.size();
        const auto* nextInput = reinterpret_cast<const std::uint8_t*>(input.data());
        for (;;) {
            std::size_t available = 0;
            std::uint8_t* next = output.next(available);
            const std::size_t offered = available;
            const BrotliDecoderResult result = BrotliDecoderDecompressStream(
                decoder.get(), &inputLeft, &nextInput, &available, &next, nullptr);
            output.wrote(offered - available);
            if (result == BROTLI_DECODER_RESULT_SUCCESS) {
                checkEnd(output.used(), inputLeft);
                return output.take();
            }
            checkProgress(result, decoder.get(), output.used());
            if (stop.stop_requested()) {
                throw FetchCancelled();
            }
        }
    }

    void checkEnd(std::size_t produced, std::size_t inputLeft) const {
        if (produced != mExpected) {
            fail("its chunk decompresses to " + std::to_string(produced) + " bytes, its " + claim() +
                 " take " + std::to_string(mExpected));
        }
        if (inputLeft != 0) {
            fail("its chunk ends " + std::to_string(inputLeft) + " bytes before its end");
        }
    }

    void checkProgress(BrotliDecoderResult result, const BrotliDecoderState* decoder,
                       std::size_t produced) const {
        if (result == BROTLI_DECODER_RESULT_ERROR) {
            fail(std::string("its chunk is damaged: ") +
                 BrotliDecoderErrorString(BrotliDecoderGetErrorCode(decoder)));
        }
        if (result == BROTLI_DECODER_RESULT_NEEDS_MORE_INPUT) {
            fail("its chunk is cut short after " + std::to_string(produced) + " of " +
                 std::to_string(mExpected) + " decompressed bytes");
        }
        if (produced == mExpected) {
            fail("its chunk decompresses to more than the " + std::to_string(mExpected) + " bytes that its " +
                 claim() + " take");
        }
    }

    const Node& mNode;
    const FileLoader& mLoader;
    const std::size_t mBytesPerPoint;
    const std::uint64_t mExpected;
};

template <class T>
void copyColumn(const DecompressedChunk& chunk, const std::optional<std::size_t>& offset,
                std::vector<T>* column) {
    if (column != nullptr && offset) {
        column->resize(chunk.pointCount);
        std::memcpy(static_cast<void*>(column->data()), chunk.column(*offset), chunk.pointCount * sizeof(T));
    }
}

template <class T>
T elementAt(const std::byte* column, std::size_t index) {
    T value;
    std::memcpy(&value, column + index * sizeof(T), sizeof(T));
    return value;
}

void copyNormals(const DecompressedChunk& chunk, const ColumnOffsets& offsets,
                 std::vector<Math::Point<float, 3>>& normals) {
    if (offsets.normalOct16) {
        const std::byte* codes = chunk.column(*offsets.normalOct16);
        normals.resize(chunk.pointCount);
        for (std::size_t i = 0; i < chunk.pointCount; ++i) {
            normals[i] = decodeOct16(elementAt<std::uint16_t>(codes, i));
        }
    } else if (offsets.normalX && offsets.normalY && offsets.normalZ) {
        const std::byte* x = chunk.column(*offsets.normalX);
        const std::byte* y = chunk.column(*offsets.normalY);
        const std::byte* z = chunk.column(*offsets.normalZ);
        normals.resize(chunk.pointCount);
        for (std::size_t i = 0; i < chunk.pointCount; ++i) {
            normals[i] = {static_cast<float>(elementAt<double>(x, i)),
                          static_cast<float>(elementAt<double>(y, i)),
                          static_cast<float>(elementAt<double>(z, i))};
        }
    }
}

void clearColumns(const RawColumns& columns) {
    const auto clear = [](auto* column) {
        if (column != nullptr) {
            column->clear();
        }
    };
    clear(columns.positions);
    clear(columns.colors);
    clear(columns.intensities);
    clear(columns.scanIndices);
    clear(columns.classifications);
    clear(columns.visibilities);
    clear(columns.normals);
}

}  // namespace

ColumnOffsets::ColumnOffsets(const Metadata& metadata) {
    struct Known {
        const char* name;
        std::size_t size;
        std::optional<std::size_t>* offset;
    };
    const Known known[] = {{"position", 16, &position},
                           {"rgb", 8, &color},
                           {"intensity", 2, &intensity},
                           {"ScanIndex", 4, &scanIndex},
                           {"classification", 1, &classification},
                           {"visibility", 1, &visibility},
                           {"normal_oct16", 2, &normalOct16},
                           {"NormalX", 8, &normalX},
                           {"NormalY", 8, &normalY},
                           {"NormalZ", 8, &normalZ}};
    std::size_t offset = 0;
    for (const Octree::AttributeInfo& attribute : metadata.attributes) {
        const std::size_t size = Metadata::encodedSize(attribute);
        for (const Known& column : known) {
            if (attribute.name == column.name && size == column.size) {
                *column.offset = offset;
            }
        }
        offset += size;
    }
}

DecompressedChunk readNodeChunk(const Node& node, const Metadata& metadata, const FileLoader& loader,
                                const std::stop_token& stop) {
    return ChunkReader(node, metadata, loader).read(stop);
}

void copyColumns(const DecompressedChunk& chunk, const ColumnOffsets& offsets, const RawColumns& columns) {
    copyColumn(chunk, offsets.position, columns.positions);
    copyColumn(chunk, offsets.color, columns.colors);
    copyColumn(chunk, offsets.intensity, columns.intensities);
    copyColumn(chunk, offsets.scanIndex, columns.scanIndices);
    copyColumn(chunk, offsets.classification, columns.classifications);
    copyColumn(chunk, offsets.visibility, columns.visibilities);
    if (columns.normals != nullptr) {
        copyNormals(chunk, offsets, *columns.normals);
    }
}

bool decodeNodeChunk(const Node& node, const Metadata& metadata, const FileLoader& loader,
                     const std::stop_token& stop, const RawColumns& columns, std::size_t& count) {
    if (node.pointCount == 0 || node.byteSize == 0) {
        clearColumns(columns);
        count = 0;
        return true;
    }
    const bool isUniform =
        node.visibility == VisibilityType::AllVisible || node.visibility == VisibilityType::AllHidden;
    if (columns.visibilities != nullptr && metadata.hasNodeVisibility && metadata.attributes.size() == 1 &&
        isUniform) {
        columns.visibilities->assign(count, node.visibility == VisibilityType::AllHidden ? 1 : 0);
        return true;
    }
    const DecompressedChunk chunk = readNodeChunk(node, metadata, loader, stop);
    copyColumns(chunk, ColumnOffsets(metadata), columns);
    count = chunk.pointCount;
    return true;
}

}  // namespace PoTree
