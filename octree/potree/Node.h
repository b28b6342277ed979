#pragma once

#include <math/NBoundingBox.h>
#include <octree/OctreeNodeId.h>

#include <atomic>
#include <cstdint>

namespace PoTree {

enum class NodeType : std::uint8_t { Normal = 0, Leaf = 1, Proxy = 2 };

/// How many of a node's points are visible; every value but these two means that each point says so itself.
enum class VisibilityType : std::uint8_t { AllVisible = 1, AllHidden = 2 };

/// One node as its hierarchy record has it. Immutable once it is shared, but for what is mutable.
struct Node {
    Node(Octree::OctreeNodeId nodeId, const Math::NBoundingBox<double, 3>& box)
        : id(nodeId), boundingBox(box) {}

    bool isProxy() const { return type == NodeType::Proxy; }

    Octree::OctreeNodeId id;
    Math::NBoundingBox<double, 3> boundingBox;
    /// Where the points are in octree.bin; for a proxy, where its chunk is in hierarchy.bin.
    std::uint64_t byteOffset = 0;
    std::uint64_t byteSize = 0;
    std::uint32_t pointCount = 0;
    /// Stores mark inner nodes as leaves and leaves as normal: trust the child mask.
    NodeType type = NodeType::Normal;
    VisibilityType visibility{};
    std::uint8_t childMask = 0;
    /// Whether its points are among those that the store has given out.
    mutable std::atomic<bool> isCounted{false};
};

}  // namespace PoTree
