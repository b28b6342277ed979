#pragma once

#include <octree/HierarchyPage.h>
#include <octree/MemoryBudget.h>
#include <octree/NodeLimits.h>
#include <octree/OctreeNodeId.h>
#include <octree/entwine/Metadata.h>
#include <octree/entwine/Tile.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stop_token>

namespace Entwine {

/// No node of a sensible store comes near: nodes hold tens of thousands of points.
constexpr std::uint64_t MAX_TILE_SIZE = std::uint64_t{512} << 20;
/// What a tile may hold where the hierarchy says so many points: hierarchies err.
constexpr std::uint64_t maxPointCount(std::uint64_t expectedCount) {
    return std::min(2 * expectedCount + 65536, Octree::MAX_NODE_POINTS);
}

/// Reads the tiles of one data type. Any number of threads at once.
class TileReader {
public:
    TileReader() = default;
    TileReader(const TileReader&) = delete;
    TileReader& operator=(const TileReader&) = delete;
    virtual ~TileReader();

    virtual std::filesystem::path fileOf(Octree::OctreeNodeId id) const = 0;

    /// Reads the points of a node that has some, which lie at range where the hierarchy has such. The tile
    /// itself may say how many there are; the node's count then only bounds the memory it may take. False
    /// when stopped. Throws StoreError naming the file and the node when the tile is not to be had, has no
    /// points or is damaged.
    virtual bool read(Octree::OctreeNodeId id, const Octree::HierarchyNode& node,
                      const Octree::ByteRange& range, Tile& tile, const std::stop_token& stop) const = 0;
};

/// For the store's data type. Throws StoreError for one that cannot be read. The metadata and the budget must
/// outlive the reader.
std::unique_ptr<TileReader> makeTileReader(const Metadata& metadata, const std::filesystem::path& folder,
                                           const Octree::MemoryBudget& budget);

/// A tile's file as it is; nullptr when stopped. Throws StoreError naming the node as well, and before it
/// reads anything for a file of more than maxSize bytes or than the budget holds.
std::unique_ptr<std::byte[]> readTileFile(const std::filesystem::path& path, Octree::OctreeNodeId id,
                                          std::uint64_t maxSize, const Octree::MemoryBudget& budget,
                                          std::size_t& size, const std::stop_token& stop);

/// For "binary" and "zstandard", and for "laszip".
std::unique_ptr<TileReader> makeRecordTileReader(const Metadata& metadata,
                                                 const std::filesystem::path& folder,
                                                 const Octree::MemoryBudget& budget);
std::unique_ptr<TileReader> makeLaszipTileReader(const Metadata& metadata,
                                                 const std::filesystem::path& folder,
                                                 const Octree::MemoryBudget& budget);

}  // namespace Entwine
