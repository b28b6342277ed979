#pragma once

#include <render/pointcloud/PublishedNodes.h>

#include <memory>
#include <vector>

namespace Render {

struct BrightnessAndContrast {
    float brightness = 0.0f;
    float contrast = 1.0f;
};

/// Brightness and contrast that stretch the grey values of points over the full range by
/// rgb' = contrast · (rgb + brightness − 0.5) + 0.5, of which the shares `darkest` and `brightest` (0 … 1) of
/// the points may end up clipped. Without points, or when their greys span no range, nothing is changed.
BrightnessAndContrast stretchColors(const std::vector<std::shared_ptr<const NodeVertices>>& nodes,
                                    float darkest, float brightest);

}  // namespace Render
