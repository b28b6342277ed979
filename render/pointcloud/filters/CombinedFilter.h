#pragma once

#include <core/Export.h>
#include <render/pointcloud/filters/RegionFilter.h>

#include <memory>
#include <vector>

namespace Render {

/// What filters made of other filters have in common: they test those that are regions in double and the
/// others on floats. Shared and immutable as far as the others are.
class LUMARO_API CombinedFilter : public RegionFilter {
protected:
    using Filters = std::vector<std::shared_ptr<IFilter>>;

    class Member {
    public:
        explicit Member(std::shared_ptr<IFilter> filter);

        bool contains(const Math::Point<double, 3>& position) const;
        Octree::BoxTestResult classify(const Math::NBoundingBox<double, 3>& box) const;

    private:
        std::shared_ptr<IFilter> mFilter;
        const RegionFilter* mRegion;  ///< The same; null when it is none.
    };

    /// Throws std::invalid_argument for a null among them.
    explicit CombinedFilter(Filters filters);
    ~CombinedFilter() = default;

    const std::vector<Member>& members() const { return mMembers; }
    /// `decisive` when one member says so, `unanimous` when all do.
    Octree::BoxTestResult classifyAll(const Math::NBoundingBox<double, 3>& box,
                                      Octree::BoxTestResult decisive, Octree::BoxTestResult unanimous) const;

private:
    std::vector<Member> mMembers;
};

}  // namespace Render
