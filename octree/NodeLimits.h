#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Octree {

/// Twenty times the points of the largest nodes that converters write.
constexpr std::uint64_t MAX_NODE_POINTS = std::uint64_t{1} << 21;

/// The most bytes that a node's points may take in memory, as decompressed from so many stored bytes. Nodes
/// of tens of megabytes are unheard of, and so are larger ones that shrink to a 256th.
constexpr std::uint64_t maxDecodedSize(std::uint64_t storedSize) {
    constexpr std::uint64_t ALWAYS = std::uint64_t{64} << 20;
    constexpr std::uint64_t NEVER = std::uint64_t{512} << 20;
    constexpr std::uint64_t RATIO = 256;
    return storedSize > NEVER / RATIO ? NEVER : std::min(NEVER, ALWAYS + RATIO * storedSize);
}

/// "12 points of 26 bytes"
inline std::string pointsText(std::uint64_t count, std::uint64_t bytesPerPoint) {
    return std::to_string(count) + " points of " + std::to_string(bytesPerPoint) + " bytes";
}

}  // namespace Octree
