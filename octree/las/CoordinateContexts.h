#pragma once

#include <cstdint>

/// What the coordinates of all point formats have in common.
namespace Las {

inline constexpr unsigned Y_CONTEXT_LIMIT = 20, Z_CONTEXT_LIMIT = 18;

/// The context of y, and of z, by the number of bits that the coordinates before took.
constexpr unsigned coordinateContext(unsigned bits, unsigned limit, bool isOnlyReturn) {
    return (bits < limit ? bits & ~1U : limit) + (isOnlyReturn ? 1 : 0);
}

/// Coordinates wrap around.
constexpr std::int32_t wrappedSum(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

}  // namespace Las
