#include <render/renderables/PolygonCutter.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

namespace Render {

PolygonCutter::PolygonCutter(const std::vector<Corner>& corners)
    : mPlaces(corners.size()),
      mNext(corners.size()),
      mPrevious(corners.size()),
      mIsClipped(corners.size()),
      mIsQueued(corners.size()),
      mQueue(corners.size()),
      mFirstWaiting(corners.size(), none),
      mNextWaiting(corners.size(), none),
      mPreviousWaiting(corners.size(), none),
      mBlocker(corners.size(), none),
      mRemaining(corners.size()) {
    constexpr std::size_t stepsPerComparison = 64;
    mMaxSteps = stepsPerComparison * corners.size() *
                static_cast<std::size_t>(std::ceil(std::log2(static_cast<double>(corners.size() + 2))));
    for (std::uint32_t i = 0; i < corners.size(); ++i) {
        mNext[i] = i + 1 < corners.size() ? i + 1 : 0;
        mPrevious[mNext[i]] = i;
    }
    project(corners);
    for (std::uint32_t i = 0; i < mPlaces.size(); ++i) {
        if (!(turn(i) > 0.0)) {
            mInner.push_back(i);
        }
    }
    if (!mInner.empty()) {
        addNode(0, static_cast<std::uint32_t>(mInner.size()));
    }
}

/// Along the axis that the polygon faces most.
void PolygonCutter::project(const std::vector<Corner>& corners) {
    Corner normal(0, 0, 0);
    for (std::size_t i = 0; i < corners.size(); ++i) {
        normal = normal + (corners[i] - corners[0]).cross(corners[mNext[i]] - corners[0]);
    }
    int axis = 2;
    for (const int other : {0, 1}) {
        axis = std::abs(normal[other]) > std::abs(normal[axis]) ? other : axis;
    }
    int u = (axis + 1) % 3;
    int v = (axis + 2) % 3;
    if (normal[axis] < 0.0) {
        std::swap(u, v);
    }
    for (std::size_t i = 0; i < corners.size(); ++i) {
        mPlaces[i] = {corners[i][u] - corners[0][u], corners[i][v] - corners[0][v]};
    }
}

std::uint32_t PolygonCutter::addNode(std::uint32_t begin, std::uint32_t end) {
    constexpr std::uint32_t leafSize = 8;
    const auto number = static_cast<std::uint32_t>(mNodes.size());
    Node node{mPlaces[mInner[begin]], mPlaces[mInner[begin]], begin, end, 0};
    for (std::uint32_t i = begin; i < end; ++i) {
        for (std::size_t axis = 0; axis < 2; ++axis) {
            node.min[axis] = std::min(node.min[axis], mPlaces[mInner[i]][axis]);
            node.max[axis] = std::max(node.max[axis], mPlaces[mInner[i]][axis]);
        }
    }
    mNodes.push_back(node);
    if (end - begin > leafSize) {
        const std::size_t axis = node.max[0] - node.min[0] > node.max[1] - node.min[1] ? 0 : 1;
        const std::uint32_t middle = begin + (end - begin) / 2;
        std::nth_element(
            mInner.begin() + begin, mInner.begin() + middle, mInner.begin() + end,
            [&](std::uint32_t a, std::uint32_t b) { return mPlaces[a][axis] < mPlaces[b][axis]; });
        addNode(begin, middle);
        const std::uint32_t second = addNode(middle, end);
        mNodes[number].secondChild = second;
    }
    return number;
}

std::vector<PolygonCutter::Triangle> PolygonCutter::cut(const std::stop_token& stop) {
    mTriangles.reserve(mRemaining);
    for (const bool mayTouch : {false, true}) {
        mMayTouch = mayTouch;
        clipEars(stop);
    }
    if (mRemaining == 3) {
        clip(static_cast<std::uint32_t>(std::find(mIsClipped.begin(), mIsClipped.end(), false) -
                                        mIsClipped.begin()));
    }
    return std::move(mTriangles);
}

void PolygonCutter::clipEars(const std::stop_token& stop) {
    // Every second one first: else a round polygon would become a fan of slivers.
    for (const std::uint32_t first : {0U, 1U}) {
        for (std::uint32_t i = first; i < mPlaces.size(); i += 2) {
            enqueue(i);
        }
    }
    while (mQueueSize > 0 && mRemaining > 3 && !stop.stop_requested()) {
        const std::uint32_t corner = mQueue[mQueueBegin];
        mQueueBegin = (mQueueBegin + 1) % mQueue.size();
        --mQueueSize;
        mIsQueued[corner] = false;
        if (!mIsClipped[corner] && isEar(corner)) {
            clip(corner);
        }
    }
}

bool PolygonCutter::isEar(std::uint32_t corner) {
    work(1);
    stopWaiting(corner);
    const double angle = turn(corner);
    if (!(angle > 0.0) || mNodes.empty()) {
        return angle >= 0.0;  // What has no area can go anywhere.
    }
    const std::uint32_t blocker = findWithin({mPrevious[corner], corner, mNext[corner]}, 0);
    if (blocker != none) {
        wait(corner, blocker);
    }
    return blocker == none;
}

/// A corner of the node that lies in the ear, or none.
std::uint32_t PolygonCutter::findWithin(const Triangle& ear, std::uint32_t node) {
    work(1);
    if (isApart(ear, node)) {
        return none;
    }
    if (const std::uint32_t second = mNodes[node].secondChild; second != 0) {
        const std::uint32_t found = findWithin(ear, node + 1);
        return found != none ? found : findWithin(ear, second);
    }
    for (std::uint32_t i = mNodes[node].begin; i < mNodes[node].end; ++i) {
        if (!mIsClipped[mInner[i]] && contains(ear, mInner[i])) {
            return mInner[i];
        }
    }
    return none;
}

/// Whether one of the ear's sides or of the box's separates them.
bool PolygonCutter::isApart(const Triangle& ear, std::uint32_t node) const {
    const auto& [min, max, begin, end, secondChild] = mNodes[node];
    const Place &a = mPlaces[ear[0]], &b = mPlaces[ear[1]], &c = mPlaces[ear[2]];
    for (std::size_t axis = 0; axis < 2; ++axis) {
        if (std::max({a[axis], b[axis], c[axis]}) < min[axis] ||
            std::min({a[axis], b[axis], c[axis]}) > max[axis]) {
            return true;
        }
    }
    for (const auto& [from, to] : {std::pair(&a, &b), std::pair(&b, &c), std::pair(&c, &a)}) {
        // The box's corner that lies farthest to the left.
        const Place farthest{(*to)[1] > (*from)[1] ? min[0] : max[0],
                             (*to)[0] > (*from)[0] ? max[1] : min[1]};
        if (turn(*from, *to, farthest) < 0.0) {
            return true;
        }
    }
    return false;
}

bool PolygonCutter::contains(const Triangle& ear, std::uint32_t corner) const {
    const Place& place = mPlaces[corner];
    for (std::size_t i = 0; i < 3; ++i) {
        const Place& a = mPlaces[ear[i]];
        const double side = turn(a, mPlaces[ear[(i + 1) % 3]], place);
        if (place == a || side < 0.0 || (mMayTouch && side == 0.0)) {
            return false;
        }
    }
    return true;
}

/// Above 0 to the left.
double PolygonCutter::turn(const Place& a, const Place& b, const Place& c) const {
    return (b[0] - a[0]) * (c[1] - b[1]) - (b[1] - a[1]) * (c[0] - b[0]);
}

double PolygonCutter::turn(std::uint32_t corner) const {
    return turn(mPlaces[mPrevious[corner]], mPlaces[corner], mPlaces[mNext[corner]]);
}

void PolygonCutter::wait(std::uint32_t corner, std::uint32_t blocker) {
    mBlocker[corner] = blocker;
    mPreviousWaiting[corner] = none;
    mNextWaiting[corner] = std::exchange(mFirstWaiting[blocker], corner);
    if (mNextWaiting[corner] != none) {
        mPreviousWaiting[mNextWaiting[corner]] = corner;
    }
}

void PolygonCutter::stopWaiting(std::uint32_t corner) {
    const std::uint32_t blocker = std::exchange(mBlocker[corner], none);
    if (blocker == none) {
        return;
    }
    const std::uint32_t previous = mPreviousWaiting[corner];
    const std::uint32_t next = mNextWaiting[corner];
    (previous != none ? mNextWaiting[previous] : mFirstWaiting[blocker]) = next;
    if (next != none) {
        mPreviousWaiting[next] = previous;
    }
}

void PolygonCutter::clip(std::uint32_t corner) {
    const std::uint32_t previous = mPrevious[corner];
    const std::uint32_t next = mNext[corner];
    mTriangles.push_back({previous, corner, next});
    mNext[previous] = next;
    mPrevious[next] = previous;
    mIsClipped[corner] = true;
    --mRemaining;
    enqueue(previous);
    enqueue(next);
    for (std::uint32_t waiting = mFirstWaiting[corner]; waiting != none; waiting = mNextWaiting[waiting]) {
        work(1);
        enqueue(waiting);
    }
}

void PolygonCutter::enqueue(std::uint32_t corner) {
    if (!mIsQueued[corner]) {
        mIsQueued[corner] = true;
        mQueue[(mQueueBegin + mQueueSize++) % mQueue.size()] = corner;
    }
}

void PolygonCutter::work(std::size_t steps) {
    mSteps += steps;
    if (mSteps > mMaxSteps) {
        throw std::runtime_error("a face of " + std::to_string(mPlaces.size()) +
                                 " corners is too intricate to be cut into triangles");
    }
}

}  // namespace Render
