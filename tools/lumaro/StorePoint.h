#pragma once

#include <array>
#include <compare>
#include <cstdint>

namespace Tool {

/// One point as a store keeps it; the position is in steps of the store's scale above its offset.
struct StorePoint {
    std::array<int32_t, 3> position{};
    std::array<uint16_t, 3> color{};
    uint16_t intensity = 0;
    uint16_t sourceId = 0;
    uint8_t returnNumber = 1;
    uint8_t numberOfReturns = 1;
    uint8_t classification = 0;
    int8_t scanAngle = 0;
    uint8_t userData = 0;

    auto operator<=>(const StorePoint&) const = default;
};

}  // namespace Tool
