#include <render/pointcloud/PointCloudQuery.h>

#include <stdexcept>
#include <utility>

namespace Render {

using Octree::BoxTestResult;

PointCloudQuery::PointCloudQuery(std::shared_ptr<Octree::Octree> octree, std::shared_ptr<Cache> cache,
                                 const Eigen::Matrix4f& world, IFilter* filter, std::size_t maxLevel,
                                 float minSpacing, std::chrono::nanoseconds timeLimit)
    : mOctree(std::move(octree)),
      mCache(std::move(cache)),
      mFilter(maxLevel, minSpacing, filter),
      mTimeLimit(timeLimit) {
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
}

std::size_t PointCloudQuery::getNextPointChunk(VertexPosColor* out, std::size_t maxCount) {
    std::size_t count = 0;
    while (count < maxCount) {
        if (!mIsNodeLoaded && !loadNextNode()) {
            break;
        }
        while (count < maxCount && mCursor < mPoints.size()) {
            if (takePoint(out[count])) {
                ++count;
            }
        }
        mIsNodeLoaded = mCursor < mPoints.size();
    }
    return count;
}

bool PointCloudQuery::takePoint(VertexPosColor& out) {
    const std::size_t i = mCursor++;
    Math::Point<float, 3> position;
    const bool hasPosition = mPoints.has(Octree::Attribute::Position);
    if (hasPosition) {
        position = Math::transformPoint(mWorld, mPoints.position(i).cast<float>());
    }
    if (mCurrent.boxTestResult == BoxTestResult::Intersecting && !mFilter.testPosition(position)) {
        return false;
    }
    if (hasPosition) {
        out.position = position;
    }
    if (mPoints.has(Octree::Attribute::Color)) {
        out.color = mPoints.color(i);
    }
    return true;
}

void PointCloudQuery::consider(Octree::OctreeNodeId id, BoxTestResult parentResult) {
    const std::size_t level = Octree::Octree::level(id);
    const float spacing = mOctree->spacing(level) * mWorldScale;
    if (!mFilter.testSpacing(spacing) || !mFilter.testLevel(level)) {
        return;
    }
    BoxTestResult result = parentResult;
    if (result != BoxTestResult::Inside) {
        result = mFilter.testBox(mOctree->boundingCube(id).transformed(mWorld));
    }
    if (result != BoxTestResult::Outside) {
        mPending.push_back({id, level, spacing, result});
    }
}

bool PointCloudQuery::loadNextNode() {
    if (!mIsStarted) {
        mIsStarted = true;
        consider({}, BoxTestResult::Intersecting);
    }
    if (mPending.empty()) {
        return false;
    }
    const PendingNode next = mPending.front();
    const Octree::NodeChildren children = fetch(next.id);
    mCurrent = next;
    mPending.pop_front();
    mCursor = 0;
    mIsNodeLoaded = true;
    for (const Octree::OctreeNodeId child : children) {
        consider(child, mCurrent.boxTestResult);
    }
    return true;
}

Octree::NodeChildren PointCloudQuery::fetch(Octree::OctreeNodeId id) {
    try {
        const auto load = [&](Octree::NodePointData& points) {
            return mOctree->getNodePointData(id, points);
        };
        mPoints = Octree::NodePointData();
        if (mCache ? mCache->getOrLoad(id, mPoints, load) : load(mPoints)) {
            return mOctree->children(id);
        }
    } catch (...) {
        std::throw_with_nested(std::runtime_error("Querying node data failed"));
    }
    throw std::runtime_error("Querying node data failed");
}

}  // namespace Render
