#pragma once

#include <core/Export.h>
#include <render/pointcloud/IFilter.h>

#include <memory>
#include <vector>

namespace Render {

/// What all of several filters accept; without filters all of space.
class LUMARO_API IntersectionFilter final : public IFilter {
public:
    /// Throws std::invalid_argument for a null among them.
    explicit IntersectionFilter(std::vector<std::shared_ptr<IFilter>> filters);

    bool testPosition(const Math::Point<float, 3>& position) override;
    /// A box that no one filter rejects whole, but all together do, counts as intersecting.
    Octree::BoxTestResult testBox(const Math::NBoundingBox<float, 3>& box) override;

private:
    std::vector<std::shared_ptr<IFilter>> mFilters;
};

}  // namespace Render
