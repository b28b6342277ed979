#pragma once

#include <core/Export.h>
#include <render/pointcloud/filters/RegionFilter.h>

#include <Eigen/Core>
#include <array>

namespace Render {

/// A box in any direction, its faces included.
class LUMARO_API OrientedBoxFilter final : public RegionFilter {
public:
    /// The columns of `axes` are the box's directions, of unit length and perpendicular; `halfSizes` are its
    /// extents from the centre along each. Throws std::invalid_argument for axes that are not (to 1e-6), for
    /// anything not finite and for negative half sizes.
    OrientedBoxFilter(const Math::Point<double, 3>& center, const Eigen::Matrix3d& axes,
                      const Math::Point<double, 3>& halfSizes);

    bool contains(const Math::Point<double, 3>& position) const override;
    /// Looser than need be only by rounding.
    Octree::BoxTestResult classify(const Math::NBoundingBox<double, 3>& box) const override;

private:
    bool isApartAlong(const Math::Point<double, 3>& direction, const Math::Point<double, 3>& offset,
                      const Math::Point<double, 3>& half) const;

    Math::Point<double, 3> mCenter;
    std::array<Math::Point<double, 3>, 3> mAxes;
    Math::Point<double, 3> mHalfSizes;
};

}  // namespace Render
