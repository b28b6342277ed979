#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <octree/BoxTestResult.h>
#include <render/pointcloud/IFilter.h>

namespace Render {

/// A region that is kept and tested in double precision; a query's floats are widened, which is exact. The
/// one rounding left is that of a point to float before a query tests it: a point closer to the border than
/// half a float step may fall on either side. A caller that needs better tests contains() itself.
///
/// Immutable, so any number of queries on any threads may share one. Coordinates that are not numbers lie in
/// no region.
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
    /// As IFilter::testBox(). Agrees with contains() to the last bit; in between, near edges and corners, it
    /// may call a box intersecting that is not.
    virtual Octree::BoxTestResult classify(const Math::NBoundingBox<double, 3>& box) const = 0;

protected:
    RegionFilter() = default;
    ~RegionFilter() = default;
};

}  // namespace Render
