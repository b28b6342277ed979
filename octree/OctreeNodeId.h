#pragma once

#include <algorithm>
#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

namespace Octree {

/// The place of a node in an octree, as a location code: a leading 1 bit, then three bits a level (x, y, z
/// from high to low). Ordered level by level with siblings adjacent.
class OctreeNodeId {
public:
    /// The deepest level whose code fits into 64 bits; such a node has no child ids.
    static constexpr std::size_t MAX_REPRESENTABLE_LEVEL = 21;

    /// The root.
    constexpr OctreeNodeId() = default;

    constexpr std::size_t level() const { return (static_cast<std::size_t>(std::bit_width(mCode)) - 1) / 3; }
    constexpr bool isRoot() const { return mCode == 1; }
    constexpr std::uint64_t code() const { return mCode; }

    /// Child 4x + 2y + z for x, y, z in {0, 1}. Throws std::out_of_range below MAX_REPRESENTABLE_LEVEL and
    /// for an index above 7.
    constexpr OctreeNodeId child(std::size_t index) const {
        if (mCode >> (3 * MAX_REPRESENTABLE_LEVEL) != 0 || index > 7) {
            throw std::out_of_range("There is no such child node");
        }
        return OctreeNodeId(mCode << 3 | index);
    }
    /// The root is its own parent.
    constexpr OctreeNodeId parent() const { return isRoot() ? *this : OctreeNodeId(mCode >> 3); }
    /// Which child of its parent this node is; 0 for the root.
    constexpr std::size_t childIndex() const { return isRoot() ? 0 : mCode & 7; }

    /// "r" and one digit a level, as in "r0426".
    std::string name() const {
        std::string result;
        for (OctreeNodeId node = *this; !node.isRoot(); node = node.parent()) {
            result.push_back(static_cast<char>('0' + node.childIndex()));
        }
        result.push_back('r');
        std::reverse(result.begin(), result.end());
        return result;
    }

    constexpr auto operator<=>(const OctreeNodeId&) const = default;

private:
    constexpr explicit OctreeNodeId(std::uint64_t code) : mCode(code) {}

    std::uint64_t mCode = 1;
};

}  // namespace Octree

template <>
struct std::hash<Octree::OctreeNodeId> {
    std::size_t operator()(const Octree::OctreeNodeId& id) const noexcept {
        // Codes of one level differ in few bits: spread them over the whole word.
        const std::uint64_t mixed = id.code() * 0x9E3779B97F4A7C15u;
        return static_cast<std::size_t>(mixed ^ (mixed >> 32));
    }
};
