#include <render/pointcloud/PointPool.h>

#include <algorithm>

namespace Render {

void PointPool::update(const std::vector<PublishedNode>& nodes) {
    ++mUpdateCount;
    mUploads.clear();
    mRanges.assign(nodes.size(), Range{});
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const auto placed = mPlaced.find(nodes[i].id);
        if (placed != mPlaced.end() && placed->second.serial == nodes[i].serial) {
            placed->second.update = mUpdateCount;
            mRanges[i] = placed->second.range;
        } else if (nodes[i].pointCount > 0) {
            mUploads.push_back(i);
        }
    }
    std::erase_if(mPlaced, [this](const auto& entry) {
        const Placed& placed = entry.second;
        if (placed.update == mUpdateCount) {
            return false;
        }
        release(placed.range, placed.count);
        return true;
    });
    for (const std::size_t i : mUploads) {
        mRanges[i] = allocate(nodes[i].pointCount);
        mPlaced[nodes[i].id] = {mRanges[i], nodes[i].pointCount, nodes[i].serial, mUpdateCount};
    }
    // Only now, so that what was freed could be used by what is new.
    for (Page& page : mPages) {
        if (page.capacity > 0 && !page.gaps.empty() && page.gaps.begin()->second == page.capacity) {
            page = Page();
        }
    }
}

void PointPool::clear() {
    mPages.clear();
    mPlaced.clear();
    mRanges.clear();
    mUploads.clear();
}

PointPool::Range PointPool::allocate(std::size_t count) {
    Range range;
    for (range.page = 0; range.page < mPages.size(); ++range.page) {
        if (takeGap(mPages[range.page], count, range.first)) {
            return range;
        }
    }
    const auto unused =
        std::find_if(mPages.begin(), mPages.end(), [](const Page& page) { return page.capacity == 0; });
    range.page = static_cast<std::size_t>(unused - mPages.begin());
    if (unused == mPages.end()) {
        mPages.emplace_back();
    }
    Page& page = mPages[range.page];
    page.capacity = (std::max)(mPointsPerPage, count);
    page.gaps.emplace(0, page.capacity);
    takeGap(page, count, range.first);
    return range;
}

bool PointPool::takeGap(Page& page, std::size_t count, std::size_t& first) {
    const auto gap = std::find_if(page.gaps.begin(), page.gaps.end(),
                                  [&](const auto& each) { return each.second >= count; });
    if (gap == page.gaps.end()) {
        return false;
    }
    first = gap->first;
    const std::size_t rest = gap->second - count;
    page.gaps.erase(gap);
    if (rest > 0) {
        page.gaps.emplace(first + count, rest);
    }
    return true;
}

void PointPool::release(const Range& range, std::size_t count) {
    auto& gaps = mPages[range.page].gaps;
    auto gap = gaps.emplace(range.first, count).first;
    const auto next = std::next(gap);
    if (next != gaps.end() && gap->first + gap->second == next->first) {
        gap->second += next->second;
        gaps.erase(next);
    }
    if (gap != gaps.begin()) {
        const auto previous = std::prev(gap);
        if (previous->first + previous->second == gap->first) {
            previous->second += gap->second;
            gaps.erase(gap);
        }
    }
}

}  // namespace Render
