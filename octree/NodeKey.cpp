#include <octree/NodeKey.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>

namespace Octree {

NodeKey::NodeKey(OctreeNodeId id) : depth(id.level()) {
    for (std::uint64_t bit = 0; !id.isRoot(); ++bit, id = id.parent()) {
        const std::uint64_t child = id.childIndex();
        x |= (child >> 2 & 1) << bit;
        y |= (child >> 1 & 1) << bit;
        z |= (child & 1) << bit;
    }
}

std::optional<NodeKey> NodeKey::parse(std::string_view text) {
    std::array<std::uint64_t, 4> numbers{};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < 4; ++i) {
        if (i > 0 && (at == end || *at++ != '-')) {
            return std::nullopt;
        }
        const auto [next, error] = std::from_chars(at, end, numbers[i]);
        // One spelling a key: the files are found by it.
        if (error != std::errc() || (*at == '0' && next - at > 1)) {
            return std::nullopt;
        }
        at = next;
    }
    NodeKey key;
    key.depth = numbers[0];
    key.x = numbers[1];
    key.y = numbers[2];
    key.z = numbers[3];
    if (at != end || key.depth > MAX_DEPTH || std::max({key.x, key.y, key.z}) >> key.depth != 0) {
        return std::nullopt;
    }
    return key;
}

std::string NodeKey::text() const {
    return std::to_string(depth) + "-" + std::to_string(x) + "-" + std::to_string(y) + "-" +
           std::to_string(z);
}

OctreeNodeId NodeKey::id() const {
    OctreeNodeId result;
    const std::uint64_t levels = std::min<std::uint64_t>(depth, OctreeNodeId::MAX_REPRESENTABLE_LEVEL);
    for (std::uint64_t bit = depth; bit > depth - levels;) {
        --bit;
        result =
            result.child(static_cast<std::size_t>((x >> bit & 1) * 4 + (y >> bit & 1) * 2 + (z >> bit & 1)));
    }
    return result;
}

}  // namespace Octree
