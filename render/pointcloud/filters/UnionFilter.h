#pragma once

#include <core/Export.h>
#include <render/pointcloud/filters/CombinedFilter.h>

#include <memory>
#include <vector>
namespace Render {

/// What at least one of several filters accepts; without filters nothing. As exact as they are.
class LUMARO_API UnionFilter final : public CombinedFilter {
public:
    /// Throws std::invalid_argument for a null among them.
    explicit UnionFilter(std::vector<std::shared_ptr<IFilter>> filters);

    bool contains(const Math::Point<double, 3>& position) const override;
    /// A box that no one filter accepts whole, but all together do, counts as intersecting.
    Octree::BoxTestResult classify(const Math::NBoundingBox<double, 3>& box) const override;
};

}  // namespace Render
