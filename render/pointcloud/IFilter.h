#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <octree/BoxTestResult.h>

namespace Render {

/// A region that a host wants points from, in world coordinates and floats. The host owns it. A RegionFilter
/// is tested in double instead, and may be absolute; the ready-made ones in render/pointcloud/filters all
/// are.
class IFilter {
public:
    /// True keeps the point.
    virtual bool testPosition(const Math::Point<float, 3>& position) = 0;
    /// Inside only when every point of the box passes testPosition(), outside only when none does.
    virtual Octree::BoxTestResult testBox(const Math::NBoundingBox<float, 3>& box) = 0;

protected:
    ~IFilter() = default;
};

}  // namespace Render
