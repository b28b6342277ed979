#include <core/LoadingPool.h>
#include <octree/StoreError.h>
#include <render/pointcloud/NodeLoads.h>
#include <render/pointcloud/PointCloudQuery.h>

#include <tests/render/pointcloud/StreamerFixture.h>
#include <tests/support/RealData.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <limits>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using Core::LoadingPool;
using Octree::OctreeNodeId;
using TestSupport::realData;
using TestSupport::SyntheticOctree;

constexpr std::size_t THREAD_COUNTS[] = {0, 1, 2, 4, 16};
constexpr std::size_t MAX_BUDGET = 150000;  // For the sake of time.

class LoadingAheadTest : public TestSupport::StreamerFixture {
protected:
    ~LoadingAheadTest() override { LoadingPool::setSharedThreadCount(LoadingPool::defaultThreadCount()); }

    /// What is published from two views of the same cloud, one after the other.
    std::vector<std::set<std::string>> residents(const std::shared_ptr<Octree::Octree>& octree,
                                                 std::size_t budget) {
        const Math::NBoundingBox<float, 3> box = octree->boundingCube();
        const Math::Point<float, 3> center = box.center();
        const float edge = box.size().x();
        Streamer streamer(octree, budget);
        camera->setPerspective(60.0f, edge / 100, edge * 10, 0, 0);
        look(center + Math::Point<float, 3>(0, 0, edge * 1.3f));
        streamer.attach(nextId(), nextId(), camera, nullptr);
        streamer.setPriorityThreshold(20.0f);
        std::vector<std::set<std::string>> result;
        for (const float away : {1.3f, 0.6f}) {
            look(center + Math::Point<float, 3>(edge * (1.3f - away), 0, edge * away));
            streamer.onViewChanged();
            try {
                walk(streamer);
            } catch (const std::runtime_error&) {  // Some of the stores are damaged.
                result.push_back({"error"});
            }
            result.push_back(published(streamer));
        }
        return result;
    }

    /// And gives the number of nodes.
    template <class Open>
    std::size_t expectTheSameWithAnyThreads(Open&& open, std::size_t budget) {
        std::vector<std::set<std::string>> alone;
        for (const std::size_t threads : THREAD_COUNTS) {
            LoadingPool::setSharedThreadCount(threads);
            const auto found = residents(open(), budget);
            if (alone.empty()) {
                alone = found;
            }
            EXPECT_EQ(found, alone) << threads << " threads, " << budget << " points";
        }
        return alone.back().size();
    }
};

/// Says of no node how many points it has.
class TaciturnOctree : public SyntheticOctree {
public:
    using SyntheticOctree::SyntheticOctree;
    std::optional<std::uint64_t> knownPointCount(OctreeNodeId, const std::stop_token&) override { return 0; }
};

TEST_F(LoadingAheadTest, NodesWithoutPointsAreReadByTheWalkIfTheirStoreTellsThemApart) {
    LoadingPool::setSharedThreadCount(2);
    const auto readByTheWalk = [this](const std::shared_ptr<SyntheticOctree>& source) {
        std::mutex mutex;
        std::set<OctreeNodeId> here;
        source->setReadHook([&, self = std::this_thread::get_id()](OctreeNodeId id) {
            const std::lock_guard lock(mutex);
            if (std::this_thread::get_id() == self) {
                here.insert(id);
            }
        });
        Streamer streamer(SyntheticOctree::open(source), MAX_BUDGET);
        streamer.attach(nextId(), nextId(), camera, nullptr);
        streamer.setPriorityThreshold(0.001f);
        walk(streamer);
        EXPECT_EQ(source->readCount(), source->allNodes().size());
        return here;
    };
    const TestSupport::SyntheticOctreeShape shape{
        .depth = 3, .childMask = 0x5b, .pointCount = [](OctreeNodeId id) {
            return std::size_t{id.level() < 2 ? 0u : 5u + id.code() % 37};
        }};
    for (const OctreeNodeId id : readByTheWalk(sourceOf(shape))) {
        EXPECT_LT(id.level(), 2u);
    }
    auto tacit = shape;
    tacit.pointCount = nullptr;
    EXPECT_EQ(readByTheWalk(std::make_shared<TaciturnOctree>(tacit)), std::set{OctreeNodeId()});
    EXPECT_EQ(readByTheWalk(sourceOf(shape)).size(), 1 + 5u);
}

TEST_F(LoadingAheadTest, WhatIsResidentAtRestDoesNotDependOnThreadsOrDelays) {
    const auto source = sourceOf({.depth = 4, .childMask = 0x5b, .pointCount = [](OctreeNodeId id) {
                                      return std::size_t{5 + id.code() % 37};
                                  }});
    source->setReadHook([](OctreeNodeId id) {
        std::this_thread::sleep_for(std::chrono::microseconds(id.code() * 0x9E37u % 400));
    });
    const auto open = [&] { return SyntheticOctree::open(source); };
    const std::size_t all = expectTheSameWithAnyThreads(open, 1000000);
    EXPECT_GT(all, 150u);
    EXPECT_LT(expectTheSameWithAnyThreads(open, 1500), all);
}

TEST_F(LoadingAheadTest, WhatIsResidentOfRealStoresDoesNotDependOnThreads) {
    if (!std::filesystem::exists(realData() / "potree")) {
        GTEST_SKIP() << "the real stores are not here: " << realData();
    }
    std::size_t stores = 0;
    std::size_t nodes = 0;
    for (const char* const kind : {"potree", "ept"}) {
        for (const auto& entry : std::filesystem::directory_iterator(realData() / kind)) {
            const Octree::Location location = Octree::Location::fromPath(entry.path());
            SCOPED_TRACE(entry.path().string());
            std::size_t points = 0;
            try {
                points = Octree::Octree(location).totalPointCount();
            } catch (const Octree::StoreError&) {
                continue;
            }
            const auto open = [&] { return std::make_shared<Octree::Octree>(location); };
            nodes += expectTheSameWithAnyThreads(open, std::min(points / 2 + 1, MAX_BUDGET));
            ++stores;
        }
    }
    EXPECT_GT(stores, 20u);
    EXPECT_GT(nodes, 200u);
}

TEST_F(LoadingAheadTest, ALoadUnderWayOutlivesTheWalkAndStaleOnesAreDropped) {
    LoadingPool::setSharedThreadCount(2);
    const auto source = sourceOf({.depth = 2});
    const auto streamer = streamerOf(source);
    std::promise<void> goOn;
    const std::shared_future<void> mayGoOn = goOn.get_future().share();
    std::promise<void> reading;
    std::atomic<bool> isHeld{false};
    std::mutex mutex;
    std::multiset<std::string> read;
    source->setReadHook([&, mayGoOn](OctreeNodeId id) {
        {
            const std::lock_guard lock(mutex);
            read.insert(id.name());
        }
        if (id.level() == 1 && !isHeld.exchange(true)) {
            reading.set_value();
        }
        if (id.level() == 1) {
            mayGoOn.wait();
        }
    });
    streamer->startAsyncReload(nullptr, 21);
    reading.get_future().wait();
    for (int i = 0; i < 20; ++i) {
        streamer->restart();  // As a view that keeps moving does.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::size_t before = 0;
    {
        const std::lock_guard lock(mutex);
        before = read.size();
    }
    EXPECT_LE(before, 1u + 3u);   // The pool's two threads and the place of the waiting walk.
    look({0, 0, 60}, {0, 0, 1});  // Nothing is in view any more.
    streamer->onViewChanged();
    goOn.set_value();
    streamer->waitUntilIdle();
    EXPECT_EQ(read.size(), before);
    look({0, 0, 60});
    streamer->onViewChanged();
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 73u);
    EXPECT_EQ(read.count("r"), 1u);
}

TEST_F(LoadingAheadTest, AViewThatMovesFasterThanNodesComeStillGetsThem) {
    const auto source = sourceOf({.depth = 1});
    const auto streamer = streamerOf(source);
    source->setReadHook([](OctreeNodeId) { std::this_thread::sleep_for(std::chrono::milliseconds(20)); });
    streamer->startAsyncReload(nullptr, 21);
    while (streamer->publishedNodeCount() < 9) {
        streamer->restart();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    streamer->stopAsyncReload();
    EXPECT_EQ(source->readCount(), 9u);
}

TEST_F(LoadingAheadTest, WhatIsAskedForIsBoundedInBytes) {
    LoadingPool::setSharedThreadCount(1);
    Render::NodeLoads loads(1000);
    std::promise<void> goOn;
    const std::shared_future<void> mayGoOn = goOn.get_future().share();
    loads.setLoad(
        [mayGoOn](OctreeNodeId id, const std::stop_token&) {
            mayGoOn.wait();
            if (id.isRoot()) {
                throw std::runtime_error("disk gone");
            }
        },
        std::stop_token());
    const OctreeNodeId root;
    EXPECT_TRUE(loads.add(root, 2.0f, 600));
    EXPECT_FALSE(loads.add(root, 2.0f, 0));
    EXPECT_FALSE(loads.add(root.child(0), 1.0f, (std::numeric_limits<std::size_t>::max)()));
    EXPECT_FALSE(loads.add(root.child(0), 1.0f, 401));
    EXPECT_TRUE(loads.add(root.child(1), 1.0f, 400));
    EXPECT_FALSE(loads.hasRoom());
    loads.remove(root.child(1));
    EXPECT_TRUE(loads.hasRoom());
    std::stop_source stop;
    stop.request_stop();
    EXPECT_FALSE(loads.take(root, stop.get_token()));
    goOn.set_value();
    EXPECT_THROW(loads.take(root, {}), std::runtime_error);
    EXPECT_TRUE(loads.add(root.child(0), 1.0f, 1000));
    EXPECT_TRUE(loads.take(root.child(0), {}));
}

TEST_F(LoadingAheadTest, QueriesGiveTheirPointsInTheSameOrder) {
    const auto source = sourceOf({.depth = 3, .childMask = 0x5b, .pointsPerNode = 20});
    source->setReadHook([](OctreeNodeId id) {
        std::this_thread::sleep_for(std::chrono::microseconds(id.code() * 0x9E37u % 400));
        if (id.level() == 2 && id.code() % 8 == 3) {
            throw std::runtime_error("disk gone");
        }
    });
    std::vector<Math::Point<double, 3>> alone;
    for (const std::size_t threads : THREAD_COUNTS) {
        LoadingPool::setSharedThreadCount(threads);
        Render::PointCloudQuery query(SyntheticOctree::open(source),
                                      std::make_shared<Render::PointDataCache>(100000, 100),
                                      Eigen::Matrix4f::Identity(), nullptr, 21, 0.0f, {});
        std::vector<Math::Point<double, 3>> positions;
        std::vector<Render::QueryPoint> chunk(33);
        std::size_t errors = 0;
        while (!query.isExhausted()) {
            try {
                const std::size_t count = query.getNextPointChunk(chunk.data(), chunk.size());
                for (std::size_t i = 0; i < count; ++i) {
                    positions.push_back(chunk[i].position);
                }
            } catch (const std::runtime_error&) {
                ++errors;
            }
        }
        EXPECT_GT(errors, 0u);
        if (alone.empty()) {
            alone = positions;
        }
        EXPECT_TRUE(positions == alone) << threads;
    }
    EXPECT_GT(alone.size(), 1000u);
}

}  // namespace
