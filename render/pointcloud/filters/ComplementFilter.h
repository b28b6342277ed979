#pragma once

#include <core/Export.h>
#include <render/pointcloud/IFilter.h>

#include <memory>

namespace Render {

/// Everything that another filter rejects. As exact as that filter.
class LUMARO_API ComplementFilter final : public IFilter {
public:
    /// Throws std::invalid_argument for null.
    explicit ComplementFilter(std::shared_ptr<IFilter> filter);

    bool testPosition(const Math::Point<float, 3>& position) override;
    Octree::BoxTestResult testBox(const Math::NBoundingBox<float, 3>& box) override;

private:
    std::shared_ptr<IFilter> mFilter;
};

}  // namespace Render
