#pragma once

#include <math/NBoundingBox.h>
#include <octree/OctreeNodeId.h>
#include <render/gpu/VertexContainer.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Render {

/// The vertices of a node, shared between prioritizer and publications. The serial number is unique in the
/// process, so that it tells one load of a node from another even after memory was used again.
struct NodeVertices {
    std::uint64_t serial = 0;
    VertexContainer vertices;
};

/// One node of a publication.
struct PublishedNode {
    Octree::OctreeNodeId id;
    Math::NBoundingBox<float, 3> cube;  ///< Model coordinates.
    std::size_t pointCount = 0;
    std::uint64_t serial = 0;  ///< Of the vertices.
    std::shared_ptr<const NodeVertices> vertices;
};

/// One publication: the nodes to draw of one point cloud and the table in which the shader looks up which of
/// them have children there. Plain data in main memory; the render thread makes GPU resources of it.
struct PublishedNodes {
    /// One texel of a Texture1D, R8G8B8A8_UNORM: the mask of the node's children in the table (bit i for
    /// child i), then the distance in texels to the first of them, high byte before low byte, then nothing.
    using Texel = std::array<std::uint8_t, 4>;

    /// Width of that texture, and the most nodes in a publication.
    static constexpr std::size_t maxNodes = 4096;

    std::vector<Texel> nodeTable;
    std::vector<PublishedNode> nodes;  ///< Node i belongs to texel i: level by level, siblings side by side.
    std::size_t pointCount = 0;
    bool hasVertices = false;  ///< While false, all vertices are null.

    /// For the reader that needs them no more, as they must not outlive their nodes.
    void dropVertices();
    /// Fills nodeTable from nodes, which are in order. A node whose parent is missing appears in no mask.
    void buildNodeTable();
    /// The table of only some of the nodes, given by their indices in order; node indices[i] belongs to
    /// texel i.
    std::vector<Texel> nodeTableOf(const std::vector<std::size_t>& indices) const;
};

}  // namespace Render
