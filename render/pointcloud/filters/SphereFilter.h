#pragma once

#include <core/Export.h>
#include <render/pointcloud/filters/RegionFilter.h>

namespace Render {

/// A ball with its surface.
class LUMARO_API SphereFilter final : public RegionFilter {
public:
    /// Throws std::invalid_argument for a centre or radius that is not finite and for a negative radius.
    SphereFilter(const Math::Point<double, 3>& center, double radius);

    bool contains(const Math::Point<double, 3>& position) const override;
    /// Never looser than need be.
    Octree::BoxTestResult classify(const Math::NBoundingBox<double, 3>& box) const override;

private:
    Math::Point<double, 3> mCenter;
    double mSquaredRadius;
};

}  // namespace Render
