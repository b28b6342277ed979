#pragma once

#include <octree/OctreeNodeId.h>
#include <tools/lumaro/StorePoint.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <stop_token>
#include <vector>

namespace Tool {

/// An octree over integer positions whose inner nodes hold an evenly spaced subset of what lies below them.
///
/// A node of at most `maxLeafPoints` points is a leaf and keeps them all. Any other node keeps points that
/// are at least its spacing (cube side / 128, halved per level) apart and hands the rest to its children, so
/// every point stands in exactly one node. The result depends on the points and their order alone.
class SampledOctree {
public:
    /// Positions lie in [0, cubeSide) on every axis, and `cubeSide` is a multiple of 2^MAX_LEVEL: all node
    /// borders are whole steps. Throws std::invalid_argument otherwise. A stop leaves the tree incomplete.
    SampledOctree(const std::vector<StorePoint>& points, int32_t cubeSide, size_t maxLeafPoints,
                  std::stop_token stop = {});

    static constexpr unsigned MAX_LEVEL = 14;

    /// Indices of the points of each node, in level order.
    const std::map<Octree::OctreeNodeId, std::vector<uint32_t>>& nodes() const { return mNodes; }

    /// Bit i is set when child i exists.
    unsigned childMask(Octree::OctreeNodeId id) const;

private:
    struct Cell;
    class SpacingGrid;

    void split(const Cell& cell, std::vector<uint32_t> indices, SpacingGrid& grid);

    const std::vector<StorePoint>& mPoints;
    int32_t mCubeSide;
    size_t mMaxLeafPoints;
    std::stop_token mStop;
    std::map<Octree::OctreeNodeId, std::vector<uint32_t>> mNodes;
};

}  // namespace Tool
