#pragma once

#include <math/Color.h>
#include <math/Point.h>

#include <cstdint>

namespace Render {

/// A point as a query hands it out with every digit.
struct QueryPoint {
    /// World coordinates, computed in double.
    Math::Point<double, 3> position;
    /// White, 0 and 0 where the store has no such column.
    Math::Color color = Math::Color::white();
    std::uint16_t intensity = 0;
    std::uint8_t classification = 0;
};

}  // namespace Render
