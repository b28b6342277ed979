#pragma once

#include <math/Point.h>
#include <render/pointcloud/IFilter.h>
#include <render/pointcloud/filters/RegionFilter.h>

#include <memory>
#include <utility>

namespace Tool {

/// Leads a query to the nodes that may have points in a region of absolute coordinates, and lets through all
/// of their points: contains() then decides with every digit, which a query's floats do not have.
class AbsoluteRegion final : public Render::IFilter {
public:
    AbsoluteRegion(std::shared_ptr<const Render::RegionFilter> region,
                   const Math::Point<double, 3>& reference)
        : mRegion(std::move(region)), mReference(reference) {}

    bool contains(const Math::Point<double, 3>& position) const { return mRegion->contains(position); }

    bool testPosition(const Math::Point<float, 3>&) override { return true; }
    Octree::BoxTestResult testBox(const Math::NBoundingBox<float, 3>& box) override;

private:
    std::shared_ptr<const Render::RegionFilter> mRegion;
    Math::Point<double, 3> mReference;
};

}  // namespace Tool
