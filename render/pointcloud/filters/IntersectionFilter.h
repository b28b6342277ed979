#pragma once

#include <core/Export.h>
#include <render/pointcloud/filters/CombinedFilter.h>

#include <memory>
#include <vector>
namespace Render {

/// What all of several filters accept; without filters all of space. As exact as they are.
class LUMARO_API IntersectionFilter final : public CombinedFilter {
public:
    /// Throws std::invalid_argument for a null among them.
    explicit IntersectionFilter(std::vector<std::shared_ptr<IFilter>> filters);

    bool contains(const Math::Point<double, 3>& position) const override;
    /// A box that no one filter rejects whole, but all together do, counts as intersecting.
    Octree::BoxTestResult classify(const Math::NBoundingBox<double, 3>& box) const override;
};

}  // namespace Render
