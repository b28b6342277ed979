#pragma once

#include <octree/MemoryBudget.h>
#include <octree/RandomAccessFile.h>
#include <octree/copc/Head.h>
#include <octree/tiles/LasTile.h>
#include <octree/tiles/TileReader.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <stop_token>

namespace Copc {

/// Reads the points of nodes, each a chunk of LAZ. Any number of threads at once.
class ChunkReader final : public Tiles::TileReader {
public:
    ChunkReader(std::shared_ptr<const Octree::RandomAccessFile> file, std::shared_ptr<const Head> head,
                std::shared_ptr<const Octree::MemoryBudget> budget);

    std::filesystem::path fileOf(Octree::OctreeNodeId) const override { return mFile->path(); }

    /// Throws StoreError also for more bytes than the file has, all nodes read well counted once, and for a
    /// chunk of another number of points than the node's.
    bool read(Octree::OctreeNodeId id, const Octree::HierarchyNode& node, const Octree::ByteRange& range,
              Tiles::Tile& tile, const std::stop_token& stop) const override;

private:
    void check(Octree::OctreeNodeId id, const Octree::HierarchyNode& node,
               const Octree::ByteRange& range) const;
    bool decode(const Octree::HierarchyNode& node, std::span<const std::byte> bytes, Las::Columns& points,
                const std::stop_token& stop) const;
    [[noreturn]] void fail(Octree::OctreeNodeId id, const std::string& problem) const;

    const std::shared_ptr<const Octree::RandomAccessFile> mFile;
    const std::shared_ptr<const Head> mHead;
    const std::shared_ptr<const Octree::MemoryBudget> mBudget;
    const Tiles::ExtraBytes mExtraBytes;
    const unsigned mFields;
    const std::uint64_t mBytesPerPoint;
    /// Of the nodes read well so far, each once: chunks may be given out to many nodes that each look sound.
    mutable std::atomic<std::uint64_t> mReadBytes{0};
};

}  // namespace Copc
