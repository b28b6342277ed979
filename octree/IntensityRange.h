#pragma once

#include <cstdint>

namespace Octree {

/// The range that intensities up to the largest one belong to: 255, 511 and so on up to 65535, so that stores
/// of 8, 12 and 16 bits each keep their own whatever their brightest point is. 65535 for no number.
inline std::uint16_t intensityRangeOf(double largest) {
    constexpr unsigned HIGHEST = 65535;
    unsigned range = 255;
    while (range < HIGHEST && !(largest <= range)) {
        range = 2 * range + 1;
    }
    return static_cast<std::uint16_t>(range);
}

}  // namespace Octree
