#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <octree/BoxTestResult.h>

namespace Render {

/// A region that a host wants points from, in world coordinates. The host owns it. Ready-made ones are in
/// render/pointcloud/filters.
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
