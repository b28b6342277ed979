#include <tools/lumaro/LasGrid.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace Tool {

namespace {

constexpr double LOWEST = std::numeric_limits<int32_t>::min();
constexpr double HIGHEST = std::numeric_limits<int32_t>::max();

double finestDecimal(double length) {
    return std::pow(10.0, std::clamp(std::ceil(std::log10(length / HIGHEST)), -12.0, 300.0));
}

}  // namespace

Octree::PositionGrid gridFor32Bits(const std::optional<Octree::PositionGrid>& grid,
                                   const Math::NBoundingBox<double, 3>& box) {
    Math::Point<double, 3> scales(1.0, 1.0, 1.0);
    Math::Point<double, 3> offsets;
    for (int axis = 0; axis < 3; ++axis) {
        double& scale = scales[axis];
        double& offset = offsets[axis];
        if (grid) {
            scale = grid->scale(axis);
            offset = grid->offset(axis);
        }
        if (box.isEmpty()) {
            continue;
        }
        const double middle = (box.min[axis] + box.max[axis]) * 0.5;
        // A little more than the box, for points just outside it.
        const double needed = box.size()[axis] * 1.01;
        if (!grid) {
            scale = finestDecimal(std::max(needed, 1e-3));
            offset = std::round(middle);
        }
        if ((box.min[axis] - offset) / scale >= LOWEST && (box.max[axis] - offset) / scale <= HIGHEST) {
            continue;
        }
        while (needed * 0.5 / scale > HIGHEST) {
            scale *= 10.0;
        }
        offset += std::round((middle - offset) / scale) * scale;
    }
    return {scales, offsets};
}

}  // namespace Tool
