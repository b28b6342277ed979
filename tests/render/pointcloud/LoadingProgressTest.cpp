#include <core/LoadingPool.h>
#include <octree/StoreError.h>

#include <tests/render/pointcloud/StreamerFixture.h>

#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using Octree::OctreeNodeId;
using Render::LoadingProgress;
using TestSupport::SyntheticOctree;

/// What a host hears of the loader and how it bounds it. One node is read at a time.
class LoadingProgressTest : public TestSupport::StreamerFixture {
protected:
    LoadingProgressTest() { Core::LoadingPool::setSharedThreadCount(0); }
    ~LoadingProgressTest() override {
        Core::LoadingPool::setSharedThreadCount(Core::LoadingPool::defaultThreadCount());
    }

    static std::vector<std::size_t> numbers(const Streamer& streamer) {
        const LoadingProgress progress = streamer.loadingProgress();
        return {progress.residentNodes, progress.residentPoints, progress.wantedNodes, progress.wantedPoints};
    }
    using Numbers = std::vector<std::size_t>;
};

/// Keeps the loader in its read of one node.
class HeldRead {
public:
    HeldRead(SyntheticOctree& source, std::size_t number) {
        source.setReadHook([this, number, reads = std::size_t{0}](OctreeNodeId) mutable {
            if (++reads == number) {
                mReading.set_value();
                mGoOn.get_future().wait();
            }
        });
        mHeld = mReading.get_future();
    }
    void wait() { mHeld.wait(); }
    void release() { mGoOn.set_value(); }

private:
    std::promise<void> mReading;
    std::promise<void> mGoOn;
    std::future<void> mHeld;
};

TEST_F(LoadingProgressTest, CountsWhatIsThereAndWhatIsKnownToCome) {
    const auto source = sourceOf({.depth = 2, .pointsPerNode = 10});
    const auto streamer = streamerOf(source);
    std::vector<Numbers> seen;
    source->setReadHook([&](OctreeNodeId) { seen.push_back(numbers(*streamer)); });
    Numbers atTheEnd;
    streamer->reloadPoints([&] { atTheEnd = numbers(*streamer); }, 21, {});
    ASSERT_EQ(seen.size(), 73u);
    EXPECT_EQ(seen[0], (Numbers{0, 0, 1, 10}));
    EXPECT_EQ(seen[1], (Numbers{1, 10, 8, 80}));
    EXPECT_EQ(seen[2], (Numbers{2, 20, 15, 150}));
    EXPECT_EQ(seen[72], (Numbers{72, 720, 1, 10}));
    EXPECT_EQ(atTheEnd, (Numbers{73, 730, 0, 0}));
    // Resident nodes are not to come, and those out of view are of no use.
    streamer->setMaxLevelToKeep(0);
    walk(*streamer);
    EXPECT_EQ(numbers(*streamer), (Numbers{1, 10, 0, 0}));
    streamer->detach();
    EXPECT_EQ(numbers(*streamer), (Numbers{0, 0, 0, 0}));
}

TEST_F(LoadingProgressTest, TheBudgetBoundsWhatIsWanted) {
    const Streamer* reader = nullptr;
    std::size_t wantedAtRest = 0;
    const auto source = sourceOf({.depth = 3, .pointsPerNode = 10, .visibility = [&](OctreeNodeId) {
                                      wantedAtRest += reader ? reader->loadingProgress().wantedNodes : 0;
                                      return 1;
                                  }});
    const auto streamer = streamerOf(source, 1000);
    double share = 0.0;
    source->setReadHook([&](OctreeNodeId) {
        const LoadingProgress progress = streamer->loadingProgress();
        EXPECT_LE(progress.residentPoints + progress.wantedPoints, 1000u);
        EXPECT_LE(progress.residentNodes + progress.wantedNodes, 101u);
        EXPECT_GE(progress.share(), share - 0.03);
        share = progress.share();
    });
    walk(*streamer);
    EXPECT_GT(share, 0.95);
    EXPECT_EQ(numbers(*streamer), (Numbers{100, 1000, 0, 0}));
    // Candidates that will be refused are not to come.
    reader = streamer.get();
    walk(*streamer);
    EXPECT_EQ(wantedAtRest, 0u);
}

TEST_F(LoadingProgressTest, StandsThroughARestartAndEndsWithTheWalk) {
    const auto source = sourceOf({.depth = 2, .pointsPerNode = 10});
    const auto streamer = streamerOf(source);
    HeldRead held(*source, 3);
    streamer->startAsyncReload(nullptr, 21);
    held.wait();
    streamer->restart();
    EXPECT_EQ(numbers(*streamer), (Numbers{2, 20, 15, 150}));
    streamer->clearVisibleOctreeNodes();
    EXPECT_EQ(numbers(*streamer), (Numbers{0, 0, 17, 170}));
    held.release();
    streamer->waitUntilIdle();
    EXPECT_EQ(numbers(*streamer), (Numbers{73, 730, 0, 0}));
    streamer->setVisible(false);
    EXPECT_EQ(numbers(*streamer), (Numbers{0, 0, 0, 0}));
    streamer->stopAsyncReload();

    // A walk that was stopped for good.
    streamer->setVisible(true);
    std::stop_source stop;
    source->setReadHook([&](OctreeNodeId) { throw std::runtime_error("not from the cache"); });
    streamer->reloadPoints([&] { stop.request_stop(); }, 21, stop.get_token());
    EXPECT_GT(streamer->loadingProgress().residentNodes, 0u);
    EXPECT_LT(streamer->loadingProgress().residentNodes, 73u);
    EXPECT_EQ(streamer->loadingProgress().wantedNodes, 0u);
}

TEST_F(LoadingProgressTest, ABudgetMayChangeAtAnyTime) {
    const auto streamer = streamerOf(sourceOf({.depth = 2, .pointsPerNode = 10}), 200);
    streamer->startAsyncReload(nullptr, 21);
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 20u);
    streamer->setBudget(1000);
    EXPECT_EQ(streamer->budget(), 1000u);
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 73u);
    streamer->setBudget(150);  // At once, with a loader or without.
    EXPECT_LE(streamer->publishedPointCount(), 150u);
    EXPECT_LE(streamer->prioritizer()->totalUsedPointCount(), 150u);
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 15u);
    streamer->stopAsyncReload();
    streamer->setBudget(55);
    EXPECT_EQ(numbers(*streamer), (Numbers{5, 50, 0, 0}));
    streamer->detach();
    streamer->setBudget(70);
    streamer->attach(nextId(), nextId(), camera, nullptr);
    walk(*streamer);
    EXPECT_EQ(published(*streamer).size(), 7u);
}

TEST_F(LoadingProgressTest, TheEndOfAWalkIsToldUnlessItIsCutShort) {
    const auto source = sourceOf({.depth = 1});
    const auto streamer = streamerOf(source);
    HeldRead held(*source, 2);
    std::vector<std::exception_ptr> ends;
    bool wasHealthy = true;
    streamer->startAsyncReload(nullptr, 21, [&](const std::exception_ptr& error) {
        ends.push_back(error);
        EXPECT_EQ(streamer->publishedNodeCount(), error ? 8u : 9u);
        EXPECT_EQ(streamer->loadingProgress().wantedNodes, 0u);
        wasHealthy = streamer->isAsyncReloadHealthy(false);
    });
    held.wait();
    streamer->restart();
    held.release();
    streamer->waitUntilIdle();
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0], nullptr);
    EXPECT_TRUE(wasHealthy);
    source->setReadHook([](OctreeNodeId id) {
        if (id.name() == "r3") {
            throw Octree::StoreError("damaged");
        }
    });
    streamer->vertexCache()->clear();
    streamer->clearVisibleOctreeNodes();
    streamer->waitUntilIdle();
    ASSERT_EQ(ends.size(), 2u);
    EXPECT_THROW(std::rethrow_exception(ends[1]), std::runtime_error);
    EXPECT_FALSE(wasHealthy);
}

TEST_F(LoadingProgressTest, WhoHearsOfTheEndMayDropTheLastReference) {
    const auto source = sourceOf({.depth = 1});
    for (int i = 0; i < 20; ++i) {
        auto streamer = std::make_shared<Streamer>(SyntheticOctree::open(source), 1000000);
        streamer->attach(nextId(), nextId(), camera, nullptr);
        const std::weak_ptr<Streamer> weak = streamer;
        const auto token = std::make_shared<int>();
        auto owner = std::make_shared<std::shared_ptr<Streamer>>(std::move(streamer));
        weak.lock()->startAsyncReload(nullptr, 21, [owner, token](const std::exception_ptr&) {
            owner->get()->detach();  // As the owner's destructor does.
            owner->reset();
            EXPECT_GE(token.use_count(), 2);  // This is still there.
        });
        while (!weak.expired() || token.use_count() > 1) {
            std::this_thread::yield();
        }
    }
}

}  // namespace
