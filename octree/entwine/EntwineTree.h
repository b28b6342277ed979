#pragma once

#include <octree/MemoryBudget.h>
#include <octree/NodeSource.h>
#include <octree/entwine/FileSystemLocation.h>
#include <octree/entwine/Hierarchy.h>
#include <octree/entwine/Metadata.h>
#include <octree/entwine/Tile.h>
#include <octree/entwine/TileColumns.h>
#include <octree/entwine/TileReader.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>

namespace Entwine {

/// An Entwine Point Tile store on disk. Hierarchy files are loaded one at a time as nodes in them are asked
/// for, each once. A node's point count is what the hierarchy says; its tile may hold fewer or more.
class EntwineTree final : public Octree::NodeSource {
public:
    /// Reads ept.json and the hierarchy's first file. Throws StoreError, and OpenStopped when stopped.
    explicit EntwineTree(const FileSystemLocation& location, const std::stop_token& stop = {},
                         const Octree::Limits& limits = {});
    ~EntwineTree() override;

    const Octree::StoreFacts& storeFacts() const override { return mFacts; }
    bool nodeFacts(Octree::OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) override;
    /// Always 0: the format hides no points.
    int nodeVisibility(Octree::OctreeNodeId id) override { return nodeVisibility(id, {}); }
    int nodeVisibility(Octree::OctreeNodeId id, const std::stop_token& stop) override;
    std::optional<std::uint64_t> knownPointCount(Octree::OctreeNodeId id,
                                                 const std::stop_token& stop) override;
    bool readNode(Octree::OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                  const std::stop_token& stop) override;

private:
    /// Of the values of colours and intensities.
    struct Depths {
        ColorDepth color = ColorDepth::Sixteen;
        std::uint16_t intensityRange = Octree::NodePointData::HIGHEST_INTENSITY;

        std::uint32_t packed() const;
        static Depths unpacked(std::uint32_t bits);
    };

    Math::NBoundingBox<double, 3> pointBounds(Octree::OctreeNodeId id) const;
    /// With otherwise for what neither ept.json nor the tile says.
    Depths depthsOf(const Tile& tile, const Depths& otherwise) const;
    bool findDepths(Octree::OctreeNodeId id, const Tile& tile, Depths& depths, const std::stop_token& stop);

    Octree::MemoryBudget mBudget;
    const Metadata mMetadata;
    const std::unique_ptr<const TileReader> mReader;
    const Octree::StoreFacts mFacts;
    Hierarchy mHierarchy;
    const std::optional<ColorDepth> mDeclaredColorDepth;
    const std::optional<std::uint16_t> mDeclaredIntensityRange;
    /// What ept.json does not say: Depths as packed() makes them, 0 until the first node is read. Every
    /// thread that finds out finds the same.
    std::atomic<std::uint32_t> mObserved{0};
};

}  // namespace Entwine
