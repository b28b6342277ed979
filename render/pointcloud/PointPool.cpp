#include <render/pointcloud/PointPool.h>

#include <algorithm>
#include <iterator>

namespace Render {

void PointPool::update(const std::vector<PublishedNode>& nodes, const Limit& limit) {
    mUploads.clear();
    mPending.clear();
    mPointsLeft = 0;
    keepPlaces(nodes);
    chooseUploads(nodes, limit);
    placeUploads(nodes);
    if (mPending.empty()) {
        moveOutOfSparsePages(nodes, limit);
    }
    // Only now, so that what was freed could be used by what is new.
    for (Page& page : mPages) {
        if (page.used == 0) {
            page = Page();
        }
    }
    mRanges.clear();
    for (const Placed& placed : mPlaced) {
        mRanges.push_back(placed.range);
    }
}

void PointPool::clear() {
    mPointCount = 0;
    mPages.clear();
    mPlaced.clear();
    mRanges.clear();
    mUploads.clear();
    mPending.clear();
    mPointsLeft = 0;
}

// Both lists are in order, so one sweep over each finds what stays.
void PointPool::keepPlaces(const std::vector<PublishedNode>& nodes) {
    std::vector<Placed> kept;
    kept.reserve(nodes.size());
    auto old = mPlaced.begin();
    for (const PublishedNode& node : nodes) {
        for (; old != mPlaced.end() && old->id < node.id; ++old) {
            release(*old);
        }
        if (old == mPlaced.end() || old->id != node.id) {
            kept.push_back({.id = node.id, .serial = node.serial, .cube = node.cube, .range = {}});
            continue;
        }
        if (old->serial == node.serial || (old->cube == node.cube && node.pointCount > 0)) {
            kept.push_back(*old);
        } else {
            release(*old);
            kept.push_back({.id = node.id, .serial = node.serial, .cube = node.cube, .range = {}});
        }
        ++old;
    }
    for (; old != mPlaced.end(); ++old) {
        release(*old);
    }
    mPlaced.swap(kept);
}

void PointPool::chooseUploads(const std::vector<PublishedNode>& nodes, const Limit& limit) {
    std::size_t points = 0;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const std::size_t count = nodes[i].pointCount;
        if (count == 0 || (mPlaced[i].range.count > 0 && mPlaced[i].serial == nodes[i].serial)) {
            continue;
        }
        const bool fits = points + count <= limit.points || (mUploads.empty() && limit.isOneAllowed);
        if (mPending.empty() && fits) {
            mUploads.push_back(i);
            points += count;
        } else {
            mPending.push_back(i);
            mPointsLeft += count;
        }
    }
}

void PointPool::placeUploads(const std::vector<PublishedNode>& nodes) {
    mPointCount = 0;
    for (const std::size_t i : mUploads) {
        release(mPlaced[i]);
        mPointCount += nodes[i].pointCount;
    }
    mPointCount += pointsInPages();
    for (const std::size_t i : mUploads) {
        mPlaced[i].serial = nodes[i].serial;
        mPlaced[i].cube = nodes[i].cube;
        mPlaced[i].range = allocate(nodes[i].pointCount);
    }
}

std::size_t PointPool::pointsInPages() const {
    std::size_t points = 0;
    for (const Page& page : mPages) {
        points += page.used;
    }
    return points;
}

void PointPool::moveOutOfSparsePages(const std::vector<PublishedNode>& nodes, const Limit& limit) {
    const auto newCount = static_cast<std::ptrdiff_t>(mUploads.size());
    std::size_t points = 0;
    for (const std::size_t i : mUploads) {
        points += nodes[i].pointCount;
    }
    const std::size_t maxPoints = (std::min)(limit.points, points + mPointsPerPage / 4);
    while (isSparse()) {
        const std::size_t source = sparsestPage();
        if (source == mPages.size()) {
            return;
        }
        for (std::size_t i = 0; i < mPlaced.size(); ++i) {
            Placed& placed = mPlaced[i];
            const std::size_t count = placed.range.count;
            if (count == 0 || placed.range.page != source || !nodes[i].vertices) {
                continue;
            }
            const bool isNew = std::binary_search(mUploads.begin(), mUploads.begin() + newCount, i);
            const bool fits = points + count <= maxPoints || (mUploads.empty() && limit.isOneAllowed);
            if (isNew || !fits) {
                mPointsLeft += count;
                continue;
            }
            const Range target = allocateForMove(count);
            release(placed);
            placed.range = target;
            mUploads.push_back(i);
            points += count;
        }
        if (mPages[source].used > 0) {
            return;
        }
    }
}

bool PointPool::isSparse() const {
    std::size_t capacity = 0;
    for (const Page& page : mPages) {
        capacity += page.used > 0 ? page.capacity : 0;
    }
    return capacity > 2 * mPointCount;
}

// Not those that moved nodes go to: each move then takes a node to where it stays.
bool PointPool::mayBeEmptied(const Page& page) const {
    return page.used > 0 && (page.hasLostNodes || page.capacity > 2 * mPointCount);
}

std::size_t PointPool::sparsestPage() const {
    std::size_t sparsest = mPages.size();
    double least = 1.0;
    for (std::size_t i = 0; i < mPages.size(); ++i) {
        const Page& page = mPages[i];
        if (!mayBeEmptied(page)) {
            continue;
        }
        const double share = static_cast<double>(page.used) / static_cast<double>(page.capacity);
        if (share < least) {
            sparsest = i;
            least = share;
        }
    }
    return sparsest;
}

PointPool::Range PointPool::allocate(std::size_t count) {
    Range range{.count = count};
    for (range.page = 0; range.page < mPages.size(); ++range.page) {
        if (takeGap(mPages[range.page], count, range.first)) {
            return range;
        }
    }
    // A pool with few points gets small pages.
    return addPage(count, (std::min)(mPointsPerPage, mPointCount));
}

PointPool::Range PointPool::allocateForMove(std::size_t count) {
    Range range{.count = count};
    std::size_t toMove = 0;
    for (range.page = 0; range.page < mPages.size(); ++range.page) {
        if (mayBeEmptied(mPages[range.page])) {
            toMove += mPages[range.page].used;
        } else if (mPages[range.page].used > 0 && takeGap(mPages[range.page], count, range.first)) {
            return range;
        }
    }
    return addPage(count, (std::min)(mPointsPerPage, toMove));
}

PointPool::Range PointPool::addPage(std::size_t count, std::size_t capacity) {
    const auto unused =
        std::find_if(mPages.begin(), mPages.end(), [](const Page& page) { return page.capacity == 0; });
    Range range{.count = count};
    range.page = static_cast<std::size_t>(unused - mPages.begin());
    if (unused == mPages.end()) {
        mPages.emplace_back();
    }
    Page& page = mPages[range.page];
    page.capacity = (std::max)(capacity, count);
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
    page.used += count;
    return true;
}

void PointPool::release(const Placed& placed) {
    if (placed.range.count == 0) {
        return;
    }
    Page& page = mPages[placed.range.page];
    page.used -= placed.range.count;
    page.hasLostNodes = page.used > 0;
    auto gap = page.gaps.emplace(placed.range.first, placed.range.count).first;
    const auto next = std::next(gap);
    if (next != page.gaps.end() && gap->first + gap->second == next->first) {
        gap->second += next->second;
        page.gaps.erase(next);
    }
    if (gap != page.gaps.begin()) {
        const auto previous = std::prev(gap);
        if (previous->first + previous->second == gap->first) {
            previous->second += gap->second;
            page.gaps.erase(gap);
        }
    }
}

}  // namespace Render
