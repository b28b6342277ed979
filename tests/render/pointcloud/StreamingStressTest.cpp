#include <core/LoadingPool.h>
#include <render/pointcloud/PointCloudQuery.h>

#include <tests/render/pointcloud/StreamerFixture.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using Octree::OctreeNodeId;
using TestSupport::SyntheticOctree;

/// A host's thread with one cloud at a time, of which it does whatever it likes. All hosts share a renderer,
/// the caches and the loading pool.
class Host {
public:
    Host(std::shared_ptr<SyntheticOctree> source, std::size_t rendererId, unsigned seed)
        : mSource(std::move(source)), mRendererId(rendererId), mRandom(seed) {}

    void runUntil(std::chrono::steady_clock::time_point end, std::size_t (*nextId)()) {
        while (std::chrono::steady_clock::now() < end) {
            if (!mStreamer) {
                attach(nextId());
            }
            act();
            look();
        }
        drop();
    }

private:
    void attach(std::size_t id) {
        mInstanceId = id;
        mStreamer =
            std::make_shared<Render::PointCloudStreamer>(SyntheticOctree::open(mSource, mLocation), 9000);
        mStreamer->attach(mRendererId, id, mCamera, [] {});
        mStreamer->setPriorityThreshold(2.0f);
        mStreamer->setUpdateInterval(std::chrono::milliseconds(1));
        mStreamer->startAsyncReload(nullptr, 21);
    }

    void act() {
        switch (mRandom() % 14) {
            case 0:
                mStreamer->stopAsyncReload();
                break;
            case 1:
                mStreamer->startAsyncReload(nullptr, 21);
                break;
            case 2:
                mStreamer->setVisible(mRandom() % 3 != 0);
                break;
            case 3:
                mStreamer->clearVisibleOctreeNodes();
                break;
            case 4:
                mStreamer->prioritizer()->setUserBudget(mInstanceId, 4000 + mRandom() % 9000);
                break;
            case 5:
                mStreamer->vertexCache()->clear();
                break;
            case 6:
                query();
                break;
            case 7:
                Core::LoadingPool::setSharedThreadCount(mRandom() % 5);
                break;
            case 8:
                reloadHere();
                break;
            case 9:
                dropInCallback();
                break;
            case 10:
                drop();
                break;
            default:
                moveCamera();
        }
    }

    /// As the destructor of its owner does.
    void drop() {
        if (mStreamer) {
            mStreamer->detach();
            mStreamer.reset();
        }
    }

    void look() {
        if (mStreamer && mStreamer->acquirePublication()) {
            for (Render::PublishedNode& node : mStreamer->publication().nodes) {
                EXPECT_LE(node.vertices->vertices.size(), 100u);
                node.vertices.reset();
            }
        }
    }

    void moveCamera() {
        const auto any = [this] { return std::uniform_real_distribution<float>(-30, 30)(mRandom); };
        const Math::Point<float, 3> eye(any(), any(), any());
        mCamera->setPose(eye, Eigen::Vector3f(-eye.x(), -eye.y(), -eye.z()), Eigen::Vector3f(0, 1, 0));
        mStreamer->onViewChanged();
    }

    void query() {
        const auto access = mStreamer->queryAccess();
        Render::PointCloudQuery query(access.octree, access.cache, Eigen::Matrix4f::Identity(), nullptr, 21,
                                      0.0f, {});
        std::vector<Render::QueryPoint> points(1 + mRandom() % 500);
        query.getNextPointChunk(points.data(), points.size());
    }

    void reloadHere() {
        std::stop_source stop;
        try {
            mStreamer->reloadPoints(
                [&] {
                    if (mRandom() % 3 == 0) {
                        stop.request_stop();
                    }
                },
                21, stop.get_token());
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "Error loading point data");
        }
    }

    void dropInCallback() {
        mStreamer->stopAsyncReload();
        const std::weak_ptr<Render::PointCloudStreamer> weak = mStreamer;
        auto owner = std::make_shared<std::shared_ptr<Render::PointCloudStreamer>>(mStreamer);
        mStreamer->clearVisibleOctreeNodes();
        std::shared_ptr<Render::PointCloudStreamer> streamer = std::move(mStreamer);
        streamer->setVisible(true);
        streamer->startAsyncReload(
            [owner] {
                if (*owner) {
                    owner->get()->detach();
                    owner->reset();
                }
            },
            21);
        owner.reset();
        streamer.reset();
        while (!weak.expired()) {
            std::this_thread::yield();
        }
    }

    const Octree::Location mLocation{PoTree::FileSystemLocation("stress")};
    const std::shared_ptr<SyntheticOctree> mSource;
    const std::size_t mRendererId;
    std::mt19937 mRandom;
    std::size_t mInstanceId = 0;
    std::shared_ptr<Render::Camera> mCamera = std::make_shared<Render::Camera>(true);
    std::shared_ptr<Render::PointCloudStreamer> mStreamer;
};

class StreamingStressTest : public TestSupport::StreamerFixture {};

// LUMARO_STRESS_SECONDS makes it longer.
TEST_F(StreamingStressTest, HostsDoWhatTheyLikeAtTheSameTime) {
    const char* const wanted = std::getenv("LUMARO_STRESS_SECONDS");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(wanted ? std::atoi(wanted) : 5);
    const auto source = sourceOf({.depth = 3, .childMask = 0x6f});
    source->setReadHook([](OctreeNodeId id) {
        if (id.code() % 61 == 7) {
            throw std::runtime_error("disk gone");
        }
        if (id.code() % 16 == 3) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    const std::size_t renderer = nextId();
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        threads.emplace_back([&, seed] { Host(source, renderer, seed).runUntil(end, &nextId); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    Core::LoadingPool::setSharedThreadCount(Core::LoadingPool::defaultThreadCount());
    const auto last = streamerOf(source, 1000000, renderer);
    last->startAsyncReload(nullptr, 21);
    last->waitUntilIdle();
    EXPECT_FALSE(last->isAsyncReloadHealthy(false))  // Of the nodes that cannot be read.
        << published(*last).size() << " nodes, budget " << last->prioritizer()->totalMaxPointCount();
    EXPECT_EQ(published(*last).size() * 100, last->prioritizer()->totalUsedPointCount());
}

}  // namespace
