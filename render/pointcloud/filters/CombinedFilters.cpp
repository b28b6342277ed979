#include <render/pointcloud/filters/ComplementFilter.h>
#include <render/pointcloud/filters/IntersectionFilter.h>
#include <render/pointcloud/filters/UnionFilter.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Render {

namespace {

using Octree::BoxTestResult;
using Filters = std::vector<std::shared_ptr<IFilter>>;

void requireFilter(const std::shared_ptr<IFilter>& filter) {
    if (filter == nullptr) {
        throw std::invalid_argument("A combination of filters needs filters that are not null");
    }
}

/// `decisive` when one filter says so, `unanimous` when all do.
BoxTestResult testAll(const Filters& filters, const Math::NBoundingBox<float, 3>& box, BoxTestResult decisive,
                      BoxTestResult unanimous) {
    BoxTestResult result = unanimous;
    for (const std::shared_ptr<IFilter>& filter : filters) {
        const BoxTestResult one = filter->testBox(box);
        if (one == decisive) {
            return decisive;
        }
        if (one != unanimous) {
            result = BoxTestResult::Intersecting;
        }
    }
    return result;
}

}  // namespace

ComplementFilter::ComplementFilter(std::shared_ptr<IFilter> filter) : mFilter(std::move(filter)) {
    requireFilter(mFilter);
}

bool ComplementFilter::testPosition(const Math::Point<float, 3>& position) {
    return !mFilter->testPosition(position);
}

BoxTestResult ComplementFilter::testBox(const Math::NBoundingBox<float, 3>& box) {
    switch (mFilter->testBox(box)) {
        case BoxTestResult::Inside:
            return BoxTestResult::Outside;
        case BoxTestResult::Outside:
            return BoxTestResult::Inside;
        case BoxTestResult::Intersecting:
            break;
    }
    return BoxTestResult::Intersecting;
}

IntersectionFilter::IntersectionFilter(Filters filters) : mFilters(std::move(filters)) {
    std::for_each(mFilters.begin(), mFilters.end(), requireFilter);
}

bool IntersectionFilter::testPosition(const Math::Point<float, 3>& position) {
    return std::all_of(mFilters.begin(), mFilters.end(),
                       [&](const auto& filter) { return filter->testPosition(position); });
}

BoxTestResult IntersectionFilter::testBox(const Math::NBoundingBox<float, 3>& box) {
    return testAll(mFilters, box, BoxTestResult::Outside, BoxTestResult::Inside);
}

UnionFilter::UnionFilter(Filters filters) : mFilters(std::move(filters)) {
    std::for_each(mFilters.begin(), mFilters.end(), requireFilter);
}

bool UnionFilter::testPosition(const Math::Point<float, 3>& position) {
    return std::any_of(mFilters.begin(), mFilters.end(),
                       [&](const auto& filter) { return filter->testPosition(position); });
}

BoxTestResult UnionFilter::testBox(const Math::NBoundingBox<float, 3>& box) {
    return testAll(mFilters, box, BoxTestResult::Inside, BoxTestResult::Outside);
}

}  // namespace Render
