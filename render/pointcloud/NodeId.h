#pragma once

#include <octree/OctreeNodeId.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace Render {

/// A node among those of all point clouds that share one prioritizer.
struct NodeId {
    std::uint64_t instanceId = 0;  ///< Of the point cloud that the node belongs to.
    Octree::OctreeNodeId octreeNodeId;

    bool operator==(const NodeId&) const = default;
};

static_assert(sizeof(NodeId) == 16);

}  // namespace Render

/// Maps every node to 0 or 1, so that a hash table searches all its nodes one after another. Not noexcept:
/// the standard library then keeps the result beside each node instead of computing it anew at every step of
/// a search.
template <>
struct std::hash<Render::NodeId> {
    bool operator()(const Render::NodeId& id) const {
        const auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof(Render::NodeId)>>(id);
        const std::uint64_t h1 = fnv1a(&bytes[0]) + 0x9e3779b9u;
        const std::uint64_t h2 = fnv1a(&bytes[8]);
        const std::uint64_t combined = (h1 << 6) + h2 + 0x9e3779b9u + (h1 >> 2);
        return combined != h1;
    }

private:
    static std::uint64_t fnv1a(const std::uint8_t* bytes) {
        std::uint64_t hash = 0xcbf29ce484222325u;
        for (int i = 0; i < 8; ++i) {
            hash = (hash ^ bytes[i]) * 0x100000001b3u;
        }
        return hash;
    }
};
