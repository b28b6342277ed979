#pragma once

#include <octree/Hierarchy.h>
#include <octree/MemoryBudget.h>
#include <octree/NodeSource.h>
#include <octree/tiles/StoreDescription.h>
#include <octree/tiles/Tile.h>
#include <octree/tiles/TileColumns.h>
#include <octree/tiles/TileReader.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>

namespace Tiles {

/// What a kind of store adds to TileTree. Members that refer to others are made after them.
struct TileStore {
    std::shared_ptr<Octree::MemoryBudget> budget;
    std::unique_ptr<const StoreDescription> description;
    std::unique_ptr<const TileReader> reader;
    /// See Octree::Hierarchy.
    std::filesystem::path hierarchyPlace;
    bool hasRanges = false;
    Octree::Hierarchy::ReadPage readPage;
    Octree::ByteRange rootPage{};
};

/// A store whose nodes are tiles: what the hierarchy, the tiles and the columns of Entwine and COPC have in
/// common. Pages of the hierarchy are loaded one at a time as nodes in them are asked for, each once. A
/// node's point count is what the hierarchy says; its tile may hold fewer or more.
class TileTree : public Octree::NodeSource {
public:
    ~TileTree() override;

    const Octree::StoreFacts& storeFacts() const override { return mFacts; }
    bool nodeFacts(Octree::OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) override;
    /// Always 0: the format hides no points.
    int nodeVisibility(Octree::OctreeNodeId id) override { return nodeVisibility(id, {}); }
    int nodeVisibility(Octree::OctreeNodeId id, const std::stop_token& stop) override;
    std::optional<std::uint64_t> knownPointCount(Octree::OctreeNodeId id,
                                                 const std::stop_token& stop) override;
    bool readNode(Octree::OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                  const std::stop_token& stop) override;

protected:
    /// Reads the hierarchy's first page. Throws StoreError, and OpenStopped when stopped.
    TileTree(TileStore store, const std::stop_token& stop);

private:
    /// Of the values of colours and intensities.
    struct Depths {
        ColorDepth color = ColorDepth::Sixteen;
        std::uint16_t intensityRange = Octree::NodePointData::HIGHEST_INTENSITY;

        std::uint32_t packed() const;
        static Depths unpacked(std::uint32_t bits);
    };

    bool readTile(Octree::OctreeNodeId id, const Octree::Hierarchy::Found& found, Tile& tile,
                  const std::stop_token& stop) const;
    Math::NBoundingBox<double, 3> pointBounds(Octree::OctreeNodeId id) const;
    /// With otherwise for what neither the store nor the tile says.
    Depths depthsOf(const Tile& tile, const Depths& otherwise) const;
    bool findDepths(Octree::OctreeNodeId id, const Tile& tile, Depths& depths, const std::stop_token& stop);

    const TileStore mStore;
    const Octree::StoreFacts mFacts;
    Octree::Hierarchy mHierarchy;
    const std::optional<ColorDepth> mDeclaredColorDepth;
    const std::optional<std::uint16_t> mDeclaredIntensityRange;
    /// What the store does not say: Depths as packed() makes them, 0 until the first node is read. Every
    /// thread that finds out finds the same.
    std::atomic<std::uint32_t> mObserved{0};
};

}  // namespace Tiles
