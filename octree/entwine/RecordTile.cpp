#include <octree/NodeKey.h>
#include <octree/StoreError.h>
#include <octree/entwine/TileFiles.h>
#include <octree/entwine/Zstandard.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <utility>

namespace Entwine {

namespace {

using Octree::NodeKey;
using Octree::OctreeNodeId;
using Octree::StoreError;

class RecordTileReader final : public Tiles::TileReader {
public:
    RecordTileReader(const Metadata& metadata, const std::filesystem::path& folder,
                     const Octree::MemoryBudget& budget)
        : mMetadata(metadata),
          mBudget(budget),
          mIsCompressed(metadata.dataType == "zstandard"),
          mFolder(folder / "ept-data") {}

    std::filesystem::path fileOf(OctreeNodeId id) const override {
        return mFolder / (NodeKey(id).text() + (mIsCompressed ? ".zst" : ".bin"));
    }

    bool read(OctreeNodeId id, const Octree::HierarchyNode& node, const Octree::ByteRange&, Tiles::Tile& tile,
              const std::stop_token& stop) const override {
        const std::uint64_t expectedCount = node.pointCount;
        // What cannot be compressed grows by less than a tenth.
        const std::uint64_t most = sizeOf(maxPointCount(expectedCount));
        std::size_t size = 0;
        std::unique_ptr<std::byte[]> bytes =
            readTileFile(fileOf(id), id, mIsCompressed ? most + most / 8 + 1024 : most, mBudget, size, stop);
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
        tile = Tiles::makeRecordTile(mMetadata, std::move(bytes), size);
        tile.memorySize = size;
        return true;
    }

private:
    [[noreturn]] void fail(OctreeNodeId id, const std::string& problem) const {
        throw StoreError(fileOf(id), NodeKey(id).text(), problem);
    }

    std::uint64_t sizeOf(std::uint64_t pointCount) const {
        return std::min(pointCount * mMetadata.recordSize, MAX_TILE_SIZE);
    }

    // Replaces size by what comes out; nullptr when stopped.
    std::unique_ptr<std::byte[]> decompress(OctreeNodeId id, std::uint64_t expectedCount,
                                            const std::byte* bytes, std::size_t& size,
                                            const std::stop_token& stop) const {
        const std::uint64_t limit =
            std::min(sizeOf(maxPointCount(expectedCount)), Octree::maxDecodedSize(size));
        mBudget.require(size + 2 * limit, fileOf(id), NodeKey(id).text());
        try {
            return decompressFrame(std::span(bytes, size), std::min(sizeOf(expectedCount), limit), limit,
                                   size, stop);
        } catch (const FrameError& error) {
            fail(id, std::string("its tile ") + error.what());
        }
    }

    const Metadata& mMetadata;
    const Octree::MemoryBudget& mBudget;
    const bool mIsCompressed;
    const std::filesystem::path mFolder;
};

}  // namespace

std::unique_ptr<Tiles::TileReader> makeRecordTileReader(const Metadata& metadata,
                                                        const std::filesystem::path& folder,
                                                        const Octree::MemoryBudget& budget) {
    return std::make_unique<RecordTileReader>(metadata, folder, budget);
}

}  // namespace Entwine
