#pragma once

#include <octree/copc/FileLocation.h>
#include <octree/tiles/TileTree.h>

#include <stop_token>

namespace Copc {

/// A COPC file on disk.
class Store final : public Tiles::TileTree {
public:
    /// Reads what stands before the points and the hierarchy's first page. Throws StoreError, and OpenStopped
    /// when stopped.
    explicit Store(const FileLocation& location, const std::stop_token& stop = {},
                   const Octree::Limits& limits = {});
    ~Store() override;
};

}  // namespace Copc
