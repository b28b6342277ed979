#pragma once

#include <octree/OctreeNodeId.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Octree {

/// The name that files and hierarchies give a node: its depth and its place in the grid of that depth's
/// cubes, written "D-X-Y-Z".
struct NodeKey {
    /// Deeper keys are none.
    static constexpr std::uint64_t MAX_DEPTH = 63;

    NodeKey() = default;
    explicit NodeKey(OctreeNodeId id);
    /// Empty for anything but four decimal numbers, the last three of them below 2^D.
    static std::optional<NodeKey> parse(std::string_view text);

    std::string text() const;
    /// Of the node, or of its ancestor at OctreeNodeId::MAX_REPRESENTABLE_LEVEL when it lies deeper.
    OctreeNodeId id() const;

    std::uint64_t depth = 0;
    std::uint64_t x = 0;
    std::uint64_t y = 0;
    std::uint64_t z = 0;

    bool operator==(const NodeKey&) const = default;
};

}  // namespace Octree
