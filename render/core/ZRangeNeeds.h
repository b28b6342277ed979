#pragma once

#include <limits>

namespace Render {

/// What automatic near and far planes must leave room for besides the scene's bounding box. Distances are in
/// world units, from the eye along the view direction. Renderable::addZRangeNeeds() fills it.
struct ZRangeNeeds {
    float nearest = (std::numeric_limits<float>::max)();    ///< What lies nearer may be cut off.
    float farthest = std::numeric_limits<float>::lowest();  ///< What lies farther away may be cut off.
    float room = 0.0f;  ///< How far the far plane stays behind the box and `farthest`.
};

}  // namespace Render
