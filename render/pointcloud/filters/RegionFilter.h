#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <octree/BoxTestResult.h>
#include <render/pointcloud/IFilter.h>

namespace Render {

/// A region that is kept and tested in double precision. A PointCloudQuery knows it and asks contains() about
/// the very positions that it hands out as QueryPoint, so a point on a face that belongs to the region is in
/// it, at any distance from the origin. Whoever else has floats gets them widened, which is exact.
///
/// Immutable, so any number of queries on any threads may share one. Coordinates that are not numbers lie in
/// no region, so they do lie in its complement.
class RegionFilter : public IFilter {
public:
    RegionFilter(const RegionFilter&) = delete;
    RegionFilter& operator=(const RegionFilter&) = delete;

    bool testPosition(const Math::Point<float, 3>& position) final {
        return contains(position.cast<double>());
    }
    Octree::BoxTestResult testBox(const Math::NBoundingBox<float, 3>& box) final {
        return classify({box.min.cast<double>(), box.max.cast<double>()});
    }

    virtual bool contains(const Math::Point<double, 3>& position) const = 0;
    /// As IFilter::testBox(). Agrees with contains() to the last bit, but near edges and corners it
    /// may call a box intersecting that is not.
    virtual Octree::BoxTestResult classify(const Math::NBoundingBox<double, 3>& box) const = 0;

protected:
    RegionFilter() = default;
    ~RegionFilter() = default;
};

}  // namespace Render
