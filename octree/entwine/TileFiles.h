#pragma once

#include <octree/MemoryBudget.h>
#include <octree/NodeLimits.h>
#include <octree/OctreeNodeId.h>
#include <octree/entwine/Metadata.h>
#include <octree/tiles/TileReader.h>

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

/// For the store's data type. Throws StoreError for one that cannot be read. The metadata and the budget must
/// outlive the reader.
std::unique_ptr<Tiles::TileReader> makeTileReader(const Metadata& metadata,
                                                  const std::filesystem::path& folder,
                                                  const Octree::MemoryBudget& budget);

/// A tile's file as it is; nullptr when stopped. Throws StoreError naming the node as well, and before it
/// reads anything for a file of more than maxSize bytes or than the budget holds.
std::unique_ptr<std::byte[]> readTileFile(const std::filesystem::path& path, Octree::OctreeNodeId id,
                                          std::uint64_t maxSize, const Octree::MemoryBudget& budget,
                                          std::size_t& size, const std::stop_token& stop);

/// For "binary" and "zstandard", and for "laszip".
std::unique_ptr<Tiles::TileReader> makeRecordTileReader(const Metadata& metadata,
                                                        const std::filesystem::path& folder,
                                                        const Octree::MemoryBudget& budget);
std::unique_ptr<Tiles::TileReader> makeLaszipTileReader(const Metadata& metadata,
                                                        const std::filesystem::path& folder,
                                                        const Octree::MemoryBudget& budget);

}  // namespace Entwine
