#pragma once

#include <octree/HierarchyPage.h>
#include <octree/OctreeNodeId.h>
#include <octree/tiles/Tile.h>

#include <filesystem>
#include <stop_token>

namespace Tiles {

/// Reads the tiles of a store. Any number of threads at once.
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

}  // namespace Tiles
