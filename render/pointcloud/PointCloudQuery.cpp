#include <render/pointcloud/NodeLoads.h>
#include <render/pointcloud/PointCloudQuery.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace Render {

using Octree::Attribute;
using Octree::BoxTestResult;

namespace {

constexpr int ALL_HIDDEN = 2;  // NodeFacts::visibility
constexpr std::size_t MAX_BYTES_AHEAD = std::size_t{32} << 20;
/// For a node of which nothing is known before more of the hierarchy is read.
constexpr std::uint64_t TYPICAL_POINT_COUNT = 50000;
/// A point with all columns.
constexpr std::size_t POINT_BYTES = 48;

}  // namespace

PointCloudQuery::PointCloudQuery(std::shared_ptr<Octree::Octree> octree, std::shared_ptr<Cache> cache,
                                 const Eigen::Matrix4f& world, IFilter* filter, std::size_t maxLevel,
                                 float minSpacing, std::chrono::nanoseconds timeLimit)
    : mOctree(std::move(octree)),
      mCache(std::move(cache)),
      mFilter(maxLevel, minSpacing, filter),
      mRegion(dynamic_cast<const RegionFilter*>(filter)),
      mTimeLimit(timeLimit) {
    if (mOctree == nullptr) {
        throw std::invalid_argument("A query needs an octree");
    }
    setWorldMatrix(world);
}

PointCloudQuery::PointCloudQuery(PointCloudQuery&&) noexcept = default;
PointCloudQuery& PointCloudQuery::operator=(PointCloudQuery&&) noexcept = default;
PointCloudQuery::~PointCloudQuery() = default;

std::shared_ptr<PointCloudQuery::Cache> PointCloudQuery::createOrGetSharedCache(
    const Octree::Location& location, double unitScale, std::size_t capacity, std::size_t expectedEntries) {
    return createOrGetSharedPointDataCache(location, unitScale, capacity, expectedEntries);
}

void PointCloudQuery::setWorldMatrix(const Eigen::Matrix4f& world) {
    mWorld = world;
    mWorldScale = world.col(0).head<3>().norm();
    updateExactMatrix();
}

void PointCloudQuery::setAbsoluteCoordinates(bool isAbsolute) {
    if (isAbsolute && mRegion == nullptr && !mFilter.isEverywhere()) {
        throw std::invalid_argument("A query in absolute coordinates needs a RegionFilter");
    }
    mIsAbsolute = isAbsolute;
    updateExactMatrix();
}

void PointCloudQuery::updateExactMatrix() {
    mGrid = mIsAbsolute ? mOctree->positionGrid() : std::nullopt;
    mExactMatrix = mWorld.cast<double>();
    if (mIsAbsolute) {
        mExactMatrix.setIdentity();
        mExactMatrix.topLeftCorner<3, 3>() /= mOctree->unitScale();
        mExactMatrix.topRightCorner<3, 1>() = mOctree->referencePosition().vector();
    }
}

std::size_t PointCloudQuery::getNextPointChunk(VertexPosColor* out, std::size_t maxCount,
                                               const std::stop_token& stop) {
    return nextChunk(out, maxCount, stop);
}

std::size_t PointCloudQuery::getNextPointChunk(QueryPoint* out, std::size_t maxCount,
                                               const std::stop_token& stop) {
    return nextChunk(out, maxCount, stop);
}

bool PointCloudQuery::isExhausted() const {
    return mIsStarted && !mIsNodeLoaded && mPending.empty() && !mException;
}

template <class Point>
std::size_t PointCloudQuery::nextChunk(Point* out, std::size_t maxCount, const std::stop_token& stop) {
    using Clock = std::chrono::steady_clock;
    if (out == nullptr && maxCount > 0) {
        throw std::invalid_argument("A query needs room for its points");
    }
    const Clock::time_point begin = Clock::now();
    const auto isTimeUp = [&] {
        return mTimeLimit > std::chrono::nanoseconds(0) && Clock::now() - begin >= mTimeLimit;
    };
    if (!mIsStarted && maxCount > 0) {
        consider({}, BoxTestResult::Intersecting);
        mIsStarted = true;
    }
    std::size_t count = 0;
    while (count < maxCount && !isExhausted() && !mException && !stop.stop_requested()) {
        // Every call gets one step further, however little time it has.
        if (mIsNodeLoaded) {
            count += takePoints(out + count, maxCount - count);
        } else {
            loadNextNode(stop);
        }
        if (isTimeUp()) {
            break;
        }
    }
    if (count == 0 && maxCount > 0 && mException) {
        std::rethrow_exception(std::exchange(mException, nullptr));
    }
    return count;
}

// Some of the current node, of which the cursor passes every point that was looked at.
template <class Point>
std::size_t PointCloudQuery::takePoints(Point* out, std::size_t maxCount) {
    constexpr std::size_t BATCH = 256;  // between two looks at the clock
    const bool hasPosition = mPoints.has(Attribute::Position);
    const bool isTested = mCurrent.boxTestResult == BoxTestResult::Intersecting;
    const bool isTestedExactly = isTested && mRegion != nullptr;
    constexpr bool WRITES_EXACT = std::is_same_v<Point, QueryPoint>;
    const bool needsExact = hasPosition && (WRITES_EXACT || isTestedExactly);
    const bool needsWorld = hasPosition && (!WRITES_EXACT || (isTested && !isTestedExactly));
    const std::size_t end = std::min(mPoints.size(), mCursor + BATCH);
    std::size_t count = 0;
    try {
        for (; count < maxCount && mCursor < end; ++mCursor) {
            if (!mIncludesHidden && isHidden(mCursor)) {
                continue;
            }
            Place place;
            if (needsExact) {
                place.exact = exactPosition(mCursor);
            }
            if (needsWorld) {
                place.world =
                    Math::transformPoint(Eigen::Matrix4f(mWorld), mPoints.position(mCursor).cast<float>());
            }
            if (!isTested ||
                (isTestedExactly ? mRegion->contains(place.exact) : mFilter.testPosition(place.world))) {
                write(mCursor, place, out[count]);
                ++count;
            }
        }
    } catch (...) {
        keepException();
        ++mCursor;
    }
    mIsNodeLoaded = mCursor < mPoints.size();
    return count;
}

bool PointCloudQuery::isHidden(std::size_t index) const {
    return mIsNodeHidden || (mPoints.has(Attribute::Visibility) && mPoints.visibility(index) != 0);
}

Math::Point<double, 3> PointCloudQuery::exactPosition(std::size_t index) const {
    const Math::Point<double, 3> position =
        Math::transformPoint(Eigen::Matrix4d(mExactMatrix), mPoints.position(index));
    return mGrid ? mGrid->snapped(position) : position;
}

void PointCloudQuery::write(std::size_t index, const Place& place, VertexPosColor& out) const {
    if (mPoints.has(Attribute::Position)) {
        out.position = place.world;
    }
    if (mPoints.has(Attribute::Color)) {
        out.color = mPoints.color(index);
    }
}

void PointCloudQuery::write(std::size_t index, const Place& place, QueryPoint& out) const {
    out = QueryPoint();
    out.position = place.exact;
    out.isHidden = isHidden(index);
    if (mPoints.has(Attribute::Color)) {
        out.color = mPoints.color(index);
    }
    if (mPoints.has(Attribute::Intensity)) {
        out.intensity = mPoints.intensity(index);
    }
    if (mPoints.has(Attribute::Classification)) {
        out.classification = mPoints.classification(index);
    }
    if (mPoints.has(Attribute::ScanIndex)) {
        out.scanIndex = mPoints.scanIndex(index);
    }
    if (mPoints.has(Attribute::Normal)) {
        out.normal = mPoints.normal(index);
    }
}

void PointCloudQuery::consider(Octree::OctreeNodeId id, BoxTestResult parentResult) {
    const std::size_t level = Octree::Octree::level(id);
    const float spacing = mOctree->spacing(level) * mWorldScale;
    if (!mFilter.testSpacing(spacing) || !mFilter.testLevel(level)) {
        return;
    }
    BoxTestResult result = parentResult;
    if (result != BoxTestResult::Inside) {
        try {
            result = testBox(id);
        } catch (...) {
            keepException();
            result = BoxTestResult::Intersecting;
        }
    }
    if (result != BoxTestResult::Outside) {
        mPending.push_back({id, level, spacing, result});
    }
}

// All of them or, without memory, none.
void PointCloudQuery::considerChildren(const PendingNode& parent, const Octree::NodeChildren& children) {
    const std::size_t before = mPending.size();
    try {
        for (const Octree::OctreeNodeId child : children) {
            consider(child, parent.boxTestResult);
        }
    } catch (...) {
        mPending.resize(before);
        throw;
    }
}

BoxTestResult PointCloudQuery::testBox(Octree::OctreeNodeId id) const {
    return mRegion != nullptr
               ? mRegion->classify(exactBounds(id))
               : mFilter.testBox(mOctree->pointBounds(id).transformed(Eigen::Matrix4f(mWorld)));
}

// Around the exact positions of the node's points, which pointBounds() holds only as floats.
Math::NBoundingBox<double, 3> PointCloudQuery::exactBounds(Octree::OctreeNodeId id) const {
    constexpr double ROUNDING = 1e-14;  // more than that of a few products and sums
    constexpr double SNAP = 1e-3;       // steps that a point moves at most onto the grid
    constexpr float FARTHEST = std::numeric_limits<float>::infinity();
    const Math::NBoundingBox<float, 3> narrow = mOctree->pointBounds(id);
    Math::NBoundingBox<double, 3> box;
    for (int axis = 0; axis < 3; ++axis) {
        box.min[axis] = double{std::nextafter(narrow.min[axis], -FARTHEST)};
        box.max[axis] = double{std::nextafter(narrow.max[axis], FARTHEST)};
    }
    Math::NBoundingBox<double, 3> result = box.transformed(Eigen::Matrix4d(mExactMatrix));
    for (int row = 0; row < 3; ++row) {
        double margin = ROUNDING * std::abs(mExactMatrix(row, 3)) + (mGrid ? SNAP * mGrid->scale(row) : 0.0);
        for (int axis = 0; axis < 3; ++axis) {
            margin += ROUNDING * std::abs(mExactMatrix(row, axis)) *
                      std::fmax(std::abs(box.min[axis]), std::abs(box.max[axis]));
        }
        result.min[row] -= margin;
        result.max[row] += margin;
    }
    return result;
}

// Makes the next node the current one; leaves it where it is when stopped.
void PointCloudQuery::loadNextNode(const std::stop_token& stop) {
    const PendingNode next = mPending.front();
    Octree::NodeFacts facts;
    bool isFetched = false;
    try {
        isFetched = fetch(next.id, facts, stop);
    } catch (...) {
        if (!stop.stop_requested()) {
            keepException();
        }
    }
    if (!isFetched && !mException) {
        return;
    }
    // Facts may be readable though points are not.
    considerChildren(next, Octree::NodeChildren(next.id, facts.childMask));
    mPending.pop_front();
    mCurrent = next;
    mCursor = 0;
    mIsNodeHidden = facts.visibility == ALL_HIDDEN;
    mIsNodeLoaded = isFetched && !mPoints.empty();
}

// Reads the points that count; false when stopped.
bool PointCloudQuery::fetch(Octree::OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) {
    try {
        mPoints = Octree::NodePointData();
        if (mOctree->nodeFacts(id, facts, stop) &&
            ((facts.visibility == ALL_HIDDEN && !mIncludesHidden) || fetchPoints(id, stop))) {
            return true;
        }
    } catch (...) {
        std::throw_with_nested(std::runtime_error("Querying node data failed"));
    }
    if (!stop.stop_requested()) {
        throw std::runtime_error("Querying node data failed");
    }
    return false;
}

bool PointCloudQuery::fetchPoints(Octree::OctreeNodeId id, const std::stop_token& stop) {
    if (mCache && !mCache->contains(id)) {
        if (!mLoads) {
            mLoads =
                std::make_unique<NodeLoads>(std::min(MAX_BYTES_AHEAD, mCache->capacity() / 2 * POINT_BYTES));
            mLoads->setLoad([octree = mOctree, cache = mCache](Octree::OctreeNodeId ahead,
                                                               const std::stop_token& loadStop) {
                cache->getOrLoadShared(ahead, [&](Octree::NodePointData& points) {
                    return octree->getNodePointData(ahead, points, loadStop);
                });
            });
        }
        if (mLoads->hasThreads()) {
            loadAhead(id);
            if (!mLoads->take(id, stop)) {
                return false;
            }
        }
    }
    if (mLoads) {
        mLoads->remove(id);
    }
    ++mNodesFetched;
    const auto load = [&](Octree::NodePointData& points) {
        return mOctree->getNodePointData(id, points, stop);
    };
    return mCache ? mCache->getOrLoad(id, mPoints, load, stop) : load(mPoints);
}

// Who wants few points has few nodes read that it does not come to.
void PointCloudQuery::loadAhead(Octree::OctreeNodeId id) {
    mLoads->add(id, 1.0f, 0);
    if (!mLoads->isLow()) {
        return;
    }
    const std::size_t end = std::min(mPending.size(), 1 + mNodesFetched);
    for (std::size_t i = 1; i < end && mLoads->hasRoom(); ++i) {
        const Octree::OctreeNodeId ahead = mPending[i].id;
        if (!mLoads->contains(ahead) && !mCache->contains(ahead)) {
            const std::size_t bytes = bytesToLoadAhead(ahead);
            if (bytes > 0 && !mLoads->add(ahead, 0.0f, bytes)) {
                return;
            }
        }
    }
}

// 0 for a node that the query will not read, or that cannot be read.
std::size_t PointCloudQuery::bytesToLoadAhead(Octree::OctreeNodeId id) const {
    try {
        if (!mIncludesHidden && mOctree->nodeVisibility(id) == ALL_HIDDEN) {
            return 0;
        }
        const auto count = mOctree->knownPointCount(id).value_or(TYPICAL_POINT_COUNT);
        return static_cast<std::size_t>(count) * POINT_BYTES;
    } catch (...) {
        return 0;
    }
}

// The first one: the caller has not heard of it yet.
void PointCloudQuery::keepException() {
    if (!mException) {
        mException = std::current_exception();
    }
}

}  // namespace Render
