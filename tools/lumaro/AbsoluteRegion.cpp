#include <tools/lumaro/AbsoluteRegion.h>

#include <algorithm>
#include <cmath>

namespace Tool {

Octree::BoxTestResult AbsoluteRegion::testBox(const Math::NBoundingBox<float, 3>& box) {
    constexpr double FLOAT_STEP = 1.2e-7;
    Math::NBoundingBox<double, 3> wider(box.min.cast<double>(), box.max.cast<double>());
    for (int axis = 0; axis < 3; ++axis) {
        const double farthest = std::max(std::abs(wider.min[axis]), std::abs(wider.max[axis]));
        const double margin = FLOAT_STEP * farthest;
        wider.min[axis] += mReference[axis] - margin;
        wider.max[axis] += mReference[axis] + margin;
    }
    return mRegion->classify(wider);
}

}  // namespace Tool
