#pragma once

#include <octree/NodeSource.h>
#include <octree/entwine/FileSystemLocation.h>
#include <octree/entwine/Hierarchy.h>
#include <octree/entwine/Metadata.h>
#include <octree/entwine/Tile.h>
#include <octree/entwine/TileColumns.h>
#include <octree/entwine/TileReader.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stop_token>

namespace Entwine {

/// An Entwine Point Tile store on disk. Hierarchy files are loaded one at a time as nodes in them are asked
/// for, each once. A node's point count is what the hierarchy says; its tile may hold fewer or more.
class EntwineTree final : public Octree::NodeSource {
public:
    /// Reads ept.json and the hierarchy's first file. Throws StoreError.
    explicit EntwineTree(const FileSystemLocation& location);
    ~EntwineTree() override;

    const Octree::StoreFacts& storeFacts() const override { return mFacts; }
    bool nodeFacts(Octree::OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) override;
    /// Always 0: the format hides no points.
    int nodeVisibility(Octree::OctreeNodeId id) override;
    bool readNode(Octree::OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                  const std::stop_token& stop) override;

private:
    bool fillColors(Octree::OctreeNodeId id, const Tile& tile, Octree::NodePointData& data,
                    const std::stop_token& stop);
    std::optional<ColorDepth> colorDepth(Octree::OctreeNodeId id, const Tile& tile,
                                         const std::stop_token& stop);

    const Metadata mMetadata;
    const std::unique_ptr<const TileReader> mReader;
    const Octree::StoreFacts mFacts;
    Hierarchy mHierarchy;
    /// UNKNOWN_DEPTH until the first node with colours is read, where ept.json does not say; every thread
    /// that finds out finds the same.
    std::atomic<int> mColorDepth;
};

}  // namespace Entwine
