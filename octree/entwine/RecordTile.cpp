#include <octree/GrowingBuffer.h>
#include <octree/StoreError.h>
#include <octree/entwine/NodeKey.h>
#include <octree/entwine/TileReader.h>

#include <zstd.h>
#include <algorithm>
#include <new>
#include <string>
#include <utility>

namespace Entwine {

namespace {

using Octree::OctreeNodeId;
using Octree::StoreError;

struct ContextDeleter {
    void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
};

class RecordTileReader final : public TileReader {
public:
    RecordTileReader(const Metadata& metadata, const std::filesystem::path& folder)
        : mMetadata(metadata),
          mIsCompressed(metadata.dataType == "zstandard"),
          mFolder(folder / "ept-data") {}

    std::filesystem::path fileOf(OctreeNodeId id) const override {
        return mFolder / (NodeKey(id).text() + (mIsCompressed ? ".zst" : ".bin"));
    }

    bool read(OctreeNodeId id, std::uint64_t expectedCount, Tile& tile,
              const std::stop_token& stop) const override {
        std::size_t size = 0;
        std::unique_ptr<std::byte[]> bytes = readTileFile(fileOf(id), id, size, stop);
        if (bytes != nullptr && mIsCompressed) {
            bytes = decompress(id, expectedCount, bytes.get(), size, stop);
        }
        if (bytes == nullptr) {
            return false;
        }
        if (size == 0 || size % mMetadata.recordSize != 0) {
            fail(id, "its tile holds " + std::to_string(size) + " bytes, which are not points of " +
                         std::to_string(mMetadata.recordSize) + " bytes");
        }
        tile = makeRecordTile(mMetadata, std::move(bytes), size);
        return true;
    }

private:
    [[noreturn]] void fail(OctreeNodeId id, const std::string& problem) const {
        throw StoreError(fileOf(id), NodeKey(id).text(), problem);
    }

    // Replaces size by what comes out; nullptr when stopped.
    std::unique_ptr<std::byte[]> decompress(OctreeNodeId id, std::uint64_t expectedCount,
                                            const std::byte* bytes, std::size_t& size,
                                            const std::stop_token& stop) const {
        const std::unique_ptr<ZSTD_DCtx, ContextDeleter> context(ZSTD_createDCtx());
        if (context == nullptr) {
            throw std::bad_alloc();
        }
        const auto limit = static_cast<std::size_t>(
            std::min(maxPointCount(expectedCount) * mMetadata.recordSize, MAX_TILE_SIZE));
        Octree::GrowingBuffer output(limit, size);
        ZSTD_inBuffer input{bytes, size, 0};
        for (;;) {
            std::size_t available = 0;
            std::byte* const next = output.next(available);
            ZSTD_outBuffer step{next, available, 0};
            const std::size_t left = ZSTD_decompressStream(context.get(), &step, &input);
            output.wrote(step.pos);
            if (ZSTD_isError(left) != 0) {
                fail(id, std::string("its tile is damaged: ") + ZSTD_getErrorName(left));
            }
            if (left == 0) {
                break;
            }
            if (input.pos == input.size && step.pos < step.size) {
                fail(id, "its tile is cut short");
            }
            if (output.used() == limit) {
                fail(id, "its tile decompresses to more than " + std::to_string(limit) + " bytes, for " +
                             std::to_string(expectedCount) + " points of " +
                             std::to_string(mMetadata.recordSize) + " bytes");
            }
            if (stop.stop_requested()) {
                return nullptr;
            }
        }
        if (input.pos != input.size) {
            fail(id, "its tile ends " + std::to_string(input.size - input.pos) + " bytes before its end");
        }
        size = output.used();
        return output.take();
    }

    const Metadata& mMetadata;
    const bool mIsCompressed;
    const std::filesystem::path mFolder;
};

}  // namespace

std::unique_ptr<TileReader> makeRecordTileReader(const Metadata& metadata,
                                                 const std::filesystem::path& folder) {
    return std::make_unique<RecordTileReader>(metadata, folder);
}

}  // namespace Entwine
