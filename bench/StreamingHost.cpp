#include <bench/StreamingHost.h>

#include <core/BlockingSection.h>

#include <algorithm>
#include <cstring>
#include <thread>

using Octree::OctreeNodeId;

namespace {

constexpr size_t VERTEX = sizeof(Render::VertexContainer::Vertex);

void wait(std::chrono::milliseconds delay) {
    if (delay.count() > 0) {
        const Core::BlockingSection waiting;
        std::this_thread::sleep_for(delay);
    }
}

OctreeNodeId partOf(OctreeNodeId id) {
    while (id.level() % 4 != 0) {
        id = id.parent();
    }
    return id;
}

}  // namespace

SlowSource::SlowSource(std::shared_ptr<Octree::NodeSource> source, Delays delays)
    : mSource(std::move(source)), mDelays(delays) {}

bool SlowSource::nodeFacts(OctreeNodeId id, Octree::NodeFacts& facts, const std::stop_token& stop) {
    if (mDelays.hierarchy.count() > 0 && !knowsPartOf(id)) {
        wait(mDelays.hierarchy);
        const std::lock_guard lock(mMutex);
        mKnownParts.insert(partOf(id));
    }
    return !stop.stop_requested() && mSource->nodeFacts(id, facts, stop);
}

bool SlowSource::knowsPartOf(OctreeNodeId id) const {
    const std::lock_guard lock(mMutex);
    return mKnownParts.contains(partOf(id));
}

bool SlowSource::readNode(OctreeNodeId id, double unitScale, Octree::NodePointData& data,
                          const std::stop_token& stop) {
    {
        const std::lock_guard lock(mMutex);
        mReads.push_back(id);
    }
    ++mUnderWay;
    ++mReadCount;
    wait(mDelays.node);
    const bool read = !stop.stop_requested() && mSource->readNode(id, unitScale, data, stop);
    --mUnderWay;
    return read;
}

std::vector<OctreeNodeId> SlowSource::reads() const {
    const std::lock_guard lock(mMutex);
    return mReads;
}

StreamingHost::StreamingHost(std::shared_ptr<Octree::NodeSource> source, size_t budget,
                             std::shared_ptr<Render::Camera> camera, size_t rendererId)
    : mOctree(std::make_shared<Octree::Octree>(std::move(source), Octree::Location())),
      mCamera(std::move(camera)),
      mInstanceId(newId()),
      mAllowance(Render::UploadAllowance::shared(rendererId)),
      mStreamer(mOctree, budget) {
    mStreamer.attach(rendererId, mInstanceId, mCamera, [] {});
    mStreamer.setUpdateInterval(std::chrono::milliseconds(2));
}

size_t StreamingHost::newId() {
    static std::atomic<size_t> next = 100000;
    return next++;
}

void StreamingHost::seeAll() {
    const Math::NBoundingBox<float, 3> cube = mOctree->boundingCube();
    mStreamer.setPriorityThreshold(0.001f);
    mCamera->setPerspective(60.0f, 0.01f, 10.0f * cube.size().x(), 0.0f, 0.0f);
    lookAt(cube.center() + Math::Point<float, 3>(1.9f, 2.0f, 2.1f) * cube.size().x(), cube.center());
}

void StreamingHost::lookAt(const Math::Point<float, 3>& eye, const Math::Point<float, 3>& target) {
    mCamera->setPose(eye, target, Eigen::Vector3f::UnitZ());
    mStreamer.onViewChanged();
}

void StreamingHost::complete() {
    start();
    mStreamer.waitUntilIdle();
    mStreamer.isAsyncReloadHealthy(true);
    takeNews();
}

bool StreamingHost::takeNews() {
    if (!mStreamer.acquirePublication() && !mHasMoreToSend) {
        return false;
    }
    Render::PublishedNodes& published = mStreamer.publication();
    send(published);
    std::vector<OctreeNodeId> shown;
    shown.reserve(published.nodes.size());
    mShownPoints = 0;
    for (size_t i = 0; i < published.nodes.size(); ++i) {
        const size_t points = mPool.ranges()[i].count;
        if (points > 0 || published.nodes[i].pointCount == 0) {
            shown.push_back(published.nodes[i].id);
            mShownPoints += points;
        }
    }
    const bool isNews = !std::includes(mShown.begin(), mShown.end(), shown.begin(), shown.end());
    mShown.swap(shown);
    return isNews;
}

void StreamingHost::send(Render::PublishedNodes& published) {
    const Render::UploadAllowance::Share share = mAllowance->share(mInstanceId);
    mPool.update(published.nodes, {share.bytes / VERTEX, share.isOneAllowed});
    mPages.resize(mPool.pageCount());
    for (size_t page = 0; page < mPages.size(); ++page) {
        const size_t capacity = mPool.pageCapacity(page);
        if (capacity != mPages[page].capacity) {
            mPages[page] = {capacity, std::make_unique_for_overwrite<std::byte[]>(capacity * VERTEX)};
        }
    }
    size_t sent = 0;
    for (const size_t node : mPool.uploads()) {
        const Render::PointPool::Range range = mPool.ranges()[node];
        const Render::VertexContainer& vertices = published.nodes[node].vertices->vertices;
        std::memcpy(mPages[range.page].memory.get() + range.first * VERTEX, vertices.data(),
                    vertices.size() * VERTEX);
        sent += vertices.size() * VERTEX;
    }
    mAllowance->report(mInstanceId, sent, mPool.pointsLeft() * VERTEX);
    mHasMoreToSend = !mPool.isSettled();
    if (!mHasMoreToSend) {
        published.dropVertices();
    }
}

bool StreamingHost::waitForNews() {
    for (;;) {
        const bool isLast = !mStreamer.isLoading();
        if (takeNews()) {
            return true;
        }
        if (isLast) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

bool StreamingHost::wants(OctreeNodeId id) const {
    return mStreamer.boundingBoxPriority(id.level(), mOctree->boundingCube(id)) >
           Render::NodePriority::discard();
}
