#pragma once

#include <core/Export.h>
#include <render/pointcloud/filters/CombinedFilter.h>

#include <memory>

namespace Render {

/// Everything that another filter rejects. As exact as that filter.
class LUMARO_API ComplementFilter final : public CombinedFilter {
public:
    /// Throws std::invalid_argument for null.
    explicit ComplementFilter(std::shared_ptr<IFilter> filter);

    bool contains(const Math::Point<double, 3>& position) const override;
    Octree::BoxTestResult classify(const Math::NBoundingBox<double, 3>& box) const override;
};

}  // namespace Render
