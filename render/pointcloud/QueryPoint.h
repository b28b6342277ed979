#pragma once

#include <math/Color.h>
#include <math/Point.h>

#include <cstdint>

namespace Render {

/// A point as a query hands it out with every digit and all that its store says of it.
struct QueryPoint {
    /// World coordinates, computed in double, or absolute ones, as the query has it.
    Math::Point<double, 3> position;
    /// White where the store has no colours; all below is 0 where it has no such column.
    Math::Color color = Math::Color::white();
    std::uint16_t intensity = 0;
    std::uint8_t classification = 0;
    /// Only a query that includes hidden points has any.
    bool isHidden = false;
    std::uint32_t scanIndex = 0;
    /// As the store has it: no matrix has turned it.
    Math::Point<float, 3> normal{0.0f, 0.0f, 0.0f};
};

}  // namespace Render
