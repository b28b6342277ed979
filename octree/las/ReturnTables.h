#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

/// Which context the number of returns n and the return number r of a point put its coordinates in. Valid
/// pairs (1 <= r <= n) are told apart as long as they are few; swapped and zero numbers have contexts as
/// well.
namespace Las {

template <std::size_t SIZE>
using ReturnTable = std::array<std::array<std::uint8_t, SIZE>, SIZE>;

namespace ReturnTables {

template <std::size_t SIZE, class Function>
constexpr ReturnTable<SIZE> make(Function function) {
    ReturnTable<SIZE> table{};
    for (unsigned n = 0; n < SIZE; ++n) {
        for (unsigned r = 0; r < SIZE; ++r) {
            table[n][r] = static_cast<std::uint8_t>(function(std::min(n, r), std::max(n, r)));
        }
    }
    return table;
}

/// Formats 0 to 5 (LAZ specification, POINT10 version 2): the pairs up to five returns, then what is left
/// of 16.
constexpr unsigned sixteenMaps(unsigned low, unsigned high) {
    if (low == 0) {
        return 15 - high;
    }
    if (high <= 5) {
        return high * (high - 1) / 2 + low - 1;
    }
    return high == 6 ? 9 + low : 8 + low;
}

/// Formats 6 and up (LASzip for LAS 1.4, the simplified table of return maps).
constexpr unsigned sixMaps(unsigned low, unsigned high) {
    if (low == 0) {
        constexpr unsigned ONLY_ONE_NUMBER[] = {0, 1, 2, 3, 4, 5, 3, 4, 4};
        return high < 9 ? ONLY_ONE_NUMBER[high] : 5;
    }
    if (high <= 2) {
        return low + high - 2;
    }
    if (low == 1 || (low == 2 && high > 10)) {
        return 3;
    }
    return low == high || (low > 10 && high - low == 1) ? 5 : 4;
}

/// Returns that came before.
constexpr unsigned eightLevels(unsigned low, unsigned high) {
    return std::min(high - low, 7U);
}

}  // namespace ReturnTables

inline constexpr ReturnTable<8> RETURN_MAP_10 = ReturnTables::make<8>(ReturnTables::sixteenMaps);
inline constexpr ReturnTable<8> RETURN_LEVEL_10 = ReturnTables::make<8>(ReturnTables::eightLevels);
inline constexpr ReturnTable<16> RETURN_MAP_14 = ReturnTables::make<16>(ReturnTables::sixMaps);
inline constexpr ReturnTable<16> RETURN_LEVEL_14 = ReturnTables::make<16>(ReturnTables::eightLevels);

}  // namespace Las
