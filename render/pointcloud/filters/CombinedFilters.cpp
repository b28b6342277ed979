#include <render/pointcloud/filters/ComplementFilter.h>
#include <render/pointcloud/filters/IntersectionFilter.h>
#include <render/pointcloud/filters/UnionFilter.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Render {

using Octree::BoxTestResult;
using Place = Math::Point<double, 3>;
using Box = Math::NBoundingBox<double, 3>;

CombinedFilter::Member::Member(std::shared_ptr<IFilter> filter)
    : mFilter(std::move(filter)), mRegion(dynamic_cast<const RegionFilter*>(mFilter.get())) {
    if (mFilter == nullptr) {
        throw std::invalid_argument("A combination of filters needs filters that are not null");
    }
}

bool CombinedFilter::Member::contains(const Place& position) const {
    return mRegion != nullptr ? mRegion->contains(position) : mFilter->testPosition(position.cast<float>());
}

// Rounding to the nearest float keeps order, so a narrowed box holds what the box holds, narrowed.
BoxTestResult CombinedFilter::Member::classify(const Box& box) const {
    return mRegion != nullptr ? mRegion->classify(box)
                              : mFilter->testBox({box.min.cast<float>(), box.max.cast<float>()});
}

CombinedFilter::CombinedFilter(Filters filters) {
    mMembers.reserve(filters.size());
    for (std::shared_ptr<IFilter>& filter : filters) {
        mMembers.emplace_back(std::move(filter));
    }
}

BoxTestResult CombinedFilter::classifyAll(const Box& box, BoxTestResult decisive,
                                          BoxTestResult unanimous) const {
    BoxTestResult result = unanimous;
    for (const Member& member : mMembers) {
        const BoxTestResult one = member.classify(box);
        if (one == decisive) {
            return decisive;
        }
        if (one != unanimous) {
            result = BoxTestResult::Intersecting;
        }
    }
    return result;
}

ComplementFilter::ComplementFilter(std::shared_ptr<IFilter> filter)
    : CombinedFilter(Filters{std::move(filter)}) {}

bool ComplementFilter::contains(const Place& position) const {
    return !members().front().contains(position);
}

BoxTestResult ComplementFilter::classify(const Box& box) const {
    switch (members().front().classify(box)) {
        case BoxTestResult::Inside:
            return BoxTestResult::Outside;
        case BoxTestResult::Outside:
            return BoxTestResult::Inside;
        case BoxTestResult::Intersecting:
            break;
    }
    return BoxTestResult::Intersecting;
}

IntersectionFilter::IntersectionFilter(Filters filters) : CombinedFilter(std::move(filters)) {}

bool IntersectionFilter::contains(const Place& position) const {
    return std::all_of(members().begin(), members().end(),
                       [&](const Member& member) { return member.contains(position); });
}

BoxTestResult IntersectionFilter::classify(const Box& box) const {
    return classifyAll(box, BoxTestResult::Outside, BoxTestResult::Inside);
}

UnionFilter::UnionFilter(Filters filters) : CombinedFilter(std::move(filters)) {}

bool UnionFilter::contains(const Place& position) const {
    return std::any_of(members().begin(), members().end(),
                       [&](const Member& member) { return member.contains(position); });
}

BoxTestResult UnionFilter::classify(const Box& box) const {
    return classifyAll(box, BoxTestResult::Inside, BoxTestResult::Outside);
}

}  // namespace Render
