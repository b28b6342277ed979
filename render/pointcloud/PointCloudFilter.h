#pragma once

#include <core/Export.h>
#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <octree/BoxTestResult.h>
#include <render/pointcloud/IFilter.h>

#include <cstddef>

namespace Render {

/// What bounds a query: a deepest level, a least spacing in world units and a region. The region is the
/// caller's and must outlive this; null stands for all of space.
class LUMARO_API PointCloudFilter {
public:
    PointCloudFilter(std::size_t maxLevel, float minSpacing, IFilter* filter)
        : mMaxLevel(maxLevel), mMinSpacing(minSpacing), mFilter(filter) {}
    PointCloudFilter(PointCloudFilter&&) noexcept = default;
    PointCloudFilter& operator=(PointCloudFilter&&) noexcept = default;

    /// Whether there is no region, which stands for all of space.
    bool isEverywhere() const { return mFilter == nullptr; }
    bool testLevel(std::size_t level) const { return level <= mMaxLevel; }
    /// Strict: a spacing equal to the least one fails.
    bool testSpacing(float spacing) const { return spacing > mMinSpacing; }
    Octree::BoxTestResult testBox(const Math::NBoundingBox<float, 3>& box) const;
    bool testPosition(const Math::Point<float, 3>& position) const;

private:
    std::size_t mMaxLevel;
    float mMinSpacing;
    IFilter* mFilter;
};

}  // namespace Render
