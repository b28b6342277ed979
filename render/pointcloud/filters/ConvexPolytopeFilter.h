#pragma once

#include <core/Export.h>
#include <math/ConvexPolytope.h>
#include <render/pointcloud/filters/RegionFilter.h>

namespace Render {

/// The points that lie in every half-space, on the borders too; bounded or not. Without half-spaces it is
/// all of space.
class LUMARO_API ConvexPolytopeFilter final : public RegionFilter {
public:
    /// Throws std::invalid_argument for a plane that is not finite.
    explicit ConvexPolytopeFilter(Math::ConvexPolytope<double, 3> polytope);

    bool contains(const Math::Point<double, 3>& position) const override {
        return mPolytope.contains(position);
    }
    /// A box that is outside through several half-spaces together, near an edge, counts as intersecting.
    Octree::BoxTestResult classify(const Math::NBoundingBox<double, 3>& box) const override;

private:
    Math::ConvexPolytope<double, 3> mPolytope;
};

}  // namespace Render
