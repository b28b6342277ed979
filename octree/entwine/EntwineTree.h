#pragma once

#include <octree/entwine/FileSystemLocation.h>
#include <octree/tiles/TileTree.h>

#include <stop_token>

namespace Entwine {

/// An Entwine Point Tile store on disk: ept.json, one file a tile, and files of the hierarchy.
class EntwineTree final : public Tiles::TileTree {
public:
    /// Reads ept.json and the hierarchy's first file. Throws StoreError, and OpenStopped when stopped.
    explicit EntwineTree(const FileSystemLocation& location, const std::stop_token& stop = {},
                         const Octree::Limits& limits = {});
    ~EntwineTree() override;
};

}  // namespace Entwine
