#pragma once

#include <octree/MemoryBudget.h>
#include <octree/NodeSource.h>
#include <octree/StoppableMutex.h>
#include <octree/potree/FileLoader.h>
#include <octree/potree/FileSystemLocation.h>
#include <octree/potree/Metadata.h>
#include <octree/potree/Node.h>
#include <octree/potree/NodeChunk.h>
#include <octree/potree/NodeTable.h>
#include <octree/potree/PointColumns.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace PoTree {

/// A Potree 2.0 store on disk. Hierarchy chunks are loaded one at a time as nodes below a proxy are asked
/// for; each part of hierarchy.bin is read at most once, so that a damaged file cannot make it grow without
/// end.
class Store final : public Octree::NodeSource {
public:
    /// Reads the metadata and the first hierarchy chunk. Throws StoreError, and OpenStopped when stopped.
    explicit Store(const FileSystemLocation& location, StoreRole role = StoreRole::Cloud,
                   const std::stop_token& stop = {}, const Octree::Limits& limits = {});
    ~Store() override;

    const Octree::StoreFacts& storeFacts() const override { return mFacts; }
    bool nodeFacts(Octree::OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) override;
    /// A proxy's own record answers for its node.
    int nodeVisibility(Octree::OctreeNodeId id) override { return nodeVisibility(id, {}); }
    int nodeVisibility(Octree::OctreeNodeId id, const std::stop_token& stop) override;
    /// What a proxy's record says, unless that is nothing.
    std::optional<std::uint64_t> knownPointCount(Octree::OctreeNodeId id,
                                                 const std::stop_token& stop) override;
    bool readNode(Octree::OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                  const std::stop_token& stop) override;

private:
    const Node* find(Octree::OctreeNodeId id, const std::stop_token& stop);
    const Node* findLoaded(Octree::OctreeNodeId id, const std::stop_token& stop);
    bool loadChunkOf(const Node& proxy, const std::stop_token& stop);
    bool insertPending(const std::stop_token& stop);
    bool loadChunk(const std::shared_ptr<Node>& root, std::uint64_t offset, std::uint64_t size,
                   const std::stop_token& stop);
    void checkRange(const Node& root, std::uint64_t offset, std::uint64_t size) const;
    int visibilityOf(const Node& node) const;
    static std::size_t pointCountOf(const Node& node);
    void checkPointCount(const Node& node) const;
    bool needsBytes(const Node& node) const;
    void checkTotals(const Node& node) const;
    void checkMemory(const Node& node, const Octree::NodePointData& data) const;
    void addToTotals(const Node& node);
    void fill(const Node& node, double unitScale, Octree::NodePointData& data,
              const std::stop_token& stop) const;
    void fillFromCodes(const Node& node, const PointChunk& chunk, double unitScale,
                       Octree::NodePointData& data) const;

    [[noreturn]] void failInHierarchy(Octree::OctreeNodeId id, const std::string& problem) const;

    const std::shared_ptr<Octree::MemoryBudget> mBudget;
    const Metadata mMetadata;
    const FileLoader mLoader;
    const ColumnPlaces mPlaces;
    const CoordinateGrid mGrid;
    const ColorDepth mColorDepth;
    const std::uint16_t mIntensityRange;
    Octree::StoreFacts mFacts;

    /// Of the nodes read well so far, each once: what lies in the file but once is not given out twice.
    std::atomic<std::uint64_t> mReadPoints{0}, mReadBytes{0};

    /// Read without mLoading, written under it.
    NodeTable mNodes;
    Octree::StoppableMutex mLoading;
    /// Loaded ranges of hierarchy.bin, end by beginning; guarded by mLoading.
    std::map<std::uint64_t, std::uint64_t> mLoadedRanges;
    /// Of a loaded chunk: still to be inserted, from the last to the first; guarded by mLoading.
    std::vector<std::shared_ptr<Node>> mPending;
};

}  // namespace PoTree
