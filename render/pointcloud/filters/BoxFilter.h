#pragma once

#include <core/Export.h>
#include <render/pointcloud/filters/RegionFilter.h>

namespace Render {

/// A box along the axes, its faces included.
class LUMARO_API BoxFilter final : public RegionFilter {
public:
    /// Corners may be infinite. Throws std::invalid_argument for NaN and where min > max.
    explicit BoxFilter(const Math::NBoundingBox<double, 3>& box);

    bool contains(const Math::Point<double, 3>& position) const override { return mBox.contains(position); }
    /// Never looser than need be.
    Octree::BoxTestResult classify(const Math::NBoundingBox<double, 3>& box) const override;

private:
    Math::NBoundingBox<double, 3> mBox;
};

}  // namespace Render
