#pragma once

#include <octree/NodeSource.h>
#include <octree/Octree.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace TestSupport {

/// Shape of a SyntheticOctree. The cube's minimum corner is the origin of absolute coordinates, its centre
/// the origin of model coordinates.
struct SyntheticOctreeShape {
    std::size_t depth = 3;          ///< Level of the leaves.
    std::uint8_t childMask = 0xff;  ///< Of every node above them.
    std::size_t pointsPerNode = 100;
    double edge = 16.0;
    double spacing = 1.0;
    /// Per node instead of pointsPerNode, when set.
    std::function<std::size_t(Octree::OctreeNodeId)> pointCount = nullptr;
    /// As NodeFacts::visibility, 1 unless set.
    std::function<int(Octree::OctreeNodeId)> visibility = nullptr;
};

/// A point cloud without a store: nodes and points are computed from their ids, so that it may be as large as
/// a test likes and any reader of it knows what to expect. Thread-safe as every node source.
class SyntheticOctree : public Octree::NodeSource {
public:
    explicit SyntheticOctree(SyntheticOctreeShape shape);

    static std::shared_ptr<Octree::Octree> open(const std::shared_ptr<SyntheticOctree>& source,
                                                const Octree::Location& location = {},
                                                double unitScale = 1.0);

    const Octree::StoreFacts& storeFacts() const override { return mFacts; }
    bool nodeFacts(Octree::OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) override;
    bool readNode(Octree::OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                  const std::stop_token& stop) override;

    /// All node ids, level by level.
    std::vector<Octree::OctreeNodeId> allNodes() const;
    std::size_t pointCount(Octree::OctreeNodeId id) const;
    /// Position of point i of a node relative to the reference position, at unit scale 1: inside the node's
    /// cube.
    Math::Point<double, 3> position(Octree::OctreeNodeId id, std::size_t i) const;
    /// A colour that tells nodes of one level apart.
    static Math::Color color(Octree::OctreeNodeId id);

    /// Called at the start of each readNode, on the reading thread; may throw or block.
    void setReadHook(std::function<void(Octree::OctreeNodeId)> hook);
    std::size_t readCount() const { return mReadCount; }

private:
    const SyntheticOctreeShape mShape;
    Octree::StoreFacts mFacts;
    std::atomic<std::size_t> mReadCount{0};
    std::mutex mHookMutex;
    std::shared_ptr<std::function<void(Octree::OctreeNodeId)>> mReadHook;
};

}  // namespace TestSupport
