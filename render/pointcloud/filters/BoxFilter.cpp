#include <render/pointcloud/filters/BoxFilter.h>

#include <stdexcept>

namespace Render {

using Octree::BoxTestResult;

BoxFilter::BoxFilter(const Math::NBoundingBox<double, 3>& box) : mBox(box) {
    for (int axis = 0; axis < 3; ++axis) {
        if (!(box.min[axis] <= box.max[axis])) {
            throw std::invalid_argument("A box needs corners with min <= max on every axis");
        }
    }
}

BoxTestResult BoxFilter::classify(const Math::NBoundingBox<double, 3>& box) const {
    for (int axis = 0; axis < 3; ++axis) {
        if (box.max[axis] < mBox.min[axis] || box.min[axis] > mBox.max[axis]) {
            return BoxTestResult::Outside;
        }
    }
    const bool isInside = mBox.contains(box.min) && mBox.contains(box.max);
    return isInside ? BoxTestResult::Inside : BoxTestResult::Intersecting;
}

}  // namespace Render
