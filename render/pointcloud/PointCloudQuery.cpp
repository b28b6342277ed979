#include <render/pointcloud/PointCloudQuery.h>

#include <stdexcept>
#include <utility>

namespace Render {

using Octree::Attribute;
using Octree::BoxTestResult;

PointCloudQuery::PointCloudQuery(std::shared_ptr<Octree::Octree> octree, std::shared_ptr<Cache> cache,
                                 const Eigen::Matrix4f& world, IFilter* filter, std::size_t maxLevel,
                                 float minSpacing, std::chrono::nanoseconds timeLimit)
    : mOctree(std::move(octree)),
      mCache(std::move(cache)),
      mFilter(maxLevel, minSpacing, filter),
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
    mExactWorld = world.cast<double>();
    mWorldScale = world.col(0).head<3>().norm();
}

std::size_t PointCloudQuery::getNextPointChunk(VertexPosColor* out, std::size_t maxCount) {
    return nextChunk(out, maxCount);
}

std::size_t PointCloudQuery::getNextPointChunk(QueryPoint* out, std::size_t maxCount) {
    return nextChunk(out, maxCount);
}

template <class Point>
std::size_t PointCloudQuery::nextChunk(Point* out, std::size_t maxCount) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    const auto isTimeUp = [&] {
        return mTimeLimit > std::chrono::nanoseconds(0) && Clock::now() - begin >= mTimeLimit;
    };
    std::size_t count = 0;
    while (count < maxCount) {
        if (!mIsNodeLoaded) {
            if (!hasNextNode() || (count > 0 && isTimeUp())) {
                break;
            }
            loadNextNode();
        }
        count += takePoints(out + count, maxCount - count);
        mIsNodeLoaded = mCursor < mPoints.size();
    }
    return count;
}

// From the current node, of which the cursor passes every point that was looked at.
template <class Point>
std::size_t PointCloudQuery::takePoints(Point* out, std::size_t maxCount) {
    const bool hasPosition = mPoints.has(Attribute::Position);
    const bool hasVisibility = mPoints.has(Attribute::Visibility);
    const bool isTested = mCurrent.boxTestResult == BoxTestResult::Intersecting;
    std::size_t count = 0;
    for (; count < maxCount && mCursor < mPoints.size(); ++mCursor) {
        if (hasVisibility && mPoints.visibility(mCursor) != 0) {
            continue;
        }
        Math::Point<float, 3> position;
        if (hasPosition) {
            position = Math::transformPoint(mWorld, mPoints.position(mCursor).cast<float>());
        }
        if (!isTested || mFilter.testPosition(position)) {
            write(mCursor, position, out[count]);
            ++count;
        }
    }
    return count;
}

void PointCloudQuery::write(std::size_t index, const Math::Point<float, 3>& position,
                            VertexPosColor& out) const {
    if (mPoints.has(Attribute::Position)) {
        out.position = position;
    }
    if (mPoints.has(Attribute::Color)) {
        out.color = mPoints.color(index);
    }
}

void PointCloudQuery::write(std::size_t index, const Math::Point<float, 3>&, QueryPoint& out) const {
    out = QueryPoint();
    if (mPoints.has(Attribute::Position)) {
        out.position = Math::transformPoint(mExactWorld, mPoints.position(index));
    }
    if (mPoints.has(Attribute::Color)) {
        out.color = mPoints.color(index);
    }
    if (mPoints.has(Attribute::Intensity)) {
        out.intensity = mPoints.intensity(index);
    }
    if (mPoints.has(Attribute::Classification)) {
        out.classification = mPoints.classification(index);
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
        result = mFilter.testBox(mOctree->pointBounds(id).transformed(mWorld));
    }
    if (result != BoxTestResult::Outside) {
        mPending.push_back({id, level, spacing, result});
    }
}

// All of them or, when the filter throws, none.
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

bool PointCloudQuery::hasNextNode() {
    if (!mIsStarted) {
        consider({}, BoxTestResult::Intersecting);
        mIsStarted = true;
    }
    return !mPending.empty();
}

void PointCloudQuery::loadNextNode() {
    const PendingNode next = mPending.front();
    considerChildren(next, fetch(next.id));
    mPending.pop_front();
    mCurrent = next;
    mCursor = 0;
    mIsNodeLoaded = true;
}

Octree::NodeChildren PointCloudQuery::fetch(Octree::OctreeNodeId id) {
    constexpr int ALL_HIDDEN = 2;
    try {
        Octree::NodeFacts facts;
        mOctree->nodeFacts(id, facts);
        const auto load = [&](Octree::NodePointData& points) {
            return mOctree->getNodePointData(id, points);
        };
        mPoints = Octree::NodePointData();
        if (facts.visibility == ALL_HIDDEN ||
            (mCache ? mCache->getOrLoad(id, mPoints, load) : load(mPoints))) {
            return Octree::NodeChildren(id, facts.childMask);
        }
    } catch (...) {
        std::throw_with_nested(std::runtime_error("Querying node data failed"));
    }
    throw std::runtime_error("Querying node data failed");
}

}  // namespace Render
