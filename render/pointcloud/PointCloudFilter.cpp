#include <render/pointcloud/PointCloudFilter.h>

namespace Render {

Octree::BoxTestResult PointCloudFilter::testBox(const Math::NBoundingBox<float, 3>& box) const {
    return mFilter != nullptr ? mFilter->testBox(box) : Octree::BoxTestResult::Inside;
}

bool PointCloudFilter::testPosition(const Math::Point<float, 3>& position) const {
    return mFilter == nullptr || mFilter->testPosition(position);
}

}  // namespace Render
