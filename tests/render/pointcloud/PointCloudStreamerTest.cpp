#include <core/ExceptionChain.h>
#include <core/LoadingPool.h>
#include <octree/StoreError.h>

#include <tests/render/pointcloud/StreamerFixture.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <limits>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using Octree::OctreeNodeId;
using Render::NodePriority;
using TestSupport::SyntheticOctree;

class PointCloudStreamerTest : public TestSupport::StreamerFixture {
protected:
    using Names = std::set<std::string>;
};

TEST_F(PointCloudStreamerTest, AWalkPublishesWhatIsWorthLoadingOnce) {
    const auto source = sourceOf({.depth = 2, .pointsPerNode = 10});
    const auto streamer = streamerOf(source);
    int progress = 0;
    publications = 0;
    streamer->reloadPoints([&] { ++progress; }, 21, {});
    EXPECT_EQ(published(*streamer).size(), 73u);
    EXPECT_EQ(streamer->publishedPointCount(), 730u);
    EXPECT_EQ(publications, 2);  // The first change at once, the rest at the end.
    EXPECT_EQ(progress, 2);
    const auto& node = streamer->publication().nodes[5];
    EXPECT_EQ(node.id.name(), "r4");
    EXPECT_EQ(node.vertices->vertices.size(), 10u);
    EXPECT_EQ(node.vertices->vertices.position(3), source->position(node.id, 3).cast<float>());
    EXPECT_EQ(node.vertices->vertices.data()[3].color, SyntheticOctree::color(node.id));
    EXPECT_EQ(node.vertices->vertices.data()[3].classIndex, 1);
    EXPECT_EQ(node.cube.min, (Math::Point<float, 3>(0, -8, -8)));

    streamer->reloadPoints([&] { ++progress; }, 21, {});  // Nothing new.
    EXPECT_EQ(publications, 2);
    EXPECT_EQ(source->readCount(), 73u);
}

TEST_F(PointCloudStreamerTest, VerticesThatTheReaderHasNotTakenGoWithTheirPublication) {
    const auto streamer = streamerOf(sourceOf({.depth = 0}));
    walk(*streamer);
    published(*streamer);
    const std::weak_ptr<const Render::NodeVertices> vertices = streamer->publication().nodes[0].vertices;
    streamer->clearVisibleOctreeNodes();
    EXPECT_FALSE(vertices.expired());
    published(*streamer);
    EXPECT_TRUE(vertices.expired());
}

TEST_F(PointCloudStreamerTest, LevelsBoundTheWalk) {
    const auto streamer = streamerOf(sourceOf({.depth = 3, .childMask = 0x81}));
    walk(*streamer, 0);
    EXPECT_EQ(published(*streamer), (Names{"r"}));
    walk(*streamer, 1);
    EXPECT_EQ(published(*streamer), (Names{"r", "r0", "r7"}));
    streamer->setMaxLevelToKeep(2);
    walk(*streamer);
    EXPECT_EQ(published(*streamer).size(), 7u);
    look({0, 0, 60}, {0, 0, 1});  // Nothing is in view.
    streamer->onViewChanged();
    walk(*streamer);
    EXPECT_EQ(published(*streamer), (Names{"r"}));
    streamer->setMinLevelToKeep(2);
    walk(*streamer);
    EXPECT_EQ(published(*streamer), (Names{"r", "r0", "r7"}));
}

TEST_F(PointCloudStreamerTest, HiddenNodesAreSkippedAndEmptyOnesPassedThrough) {
    const OctreeNodeId root{};
    const auto streamer = streamerOf(
        sourceOf({.depth = 2,
                  .childMask = 0x03,
                  .pointCount = [=](OctreeNodeId id) { return std::size_t{id == root.child(1) ? 0u : 5u}; },
                  .visibility = [=](OctreeNodeId id) { return id == root.child(0) ? 2 : 1; }}));
    walk(*streamer);
    EXPECT_EQ(published(*streamer), (Names{"r", "r10", "r11"}));
    EXPECT_EQ(streamer->publication().nodeTable[0][0], 0);
}

TEST_F(PointCloudStreamerTest, AnEmptyCloudPublishesNothing) {
    const auto streamer = streamerOf(sourceOf({.depth = 0, .pointsPerNode = 0}));
    publications = 0;
    walk(*streamer);
    EXPECT_EQ(publications, 0);
}

TEST_F(PointCloudStreamerTest, TheRootStaysWhenTheCloudIsTinyOrOutOfView) {
    const auto streamer = streamerOf(sourceOf({.depth = 1}));
    walk(*streamer);
    look({0, 0, 1e6f});
    streamer->onViewChanged();
    walk(*streamer);
    walk(*streamer);
    EXPECT_EQ(published(*streamer), (Names{"r"}));
}

TEST_F(PointCloudStreamerTest, ARunningWalkPublishesItsProgressEachInterval) {
    const auto streamer = streamerOf(sourceOf({.depth = 1}));
    EXPECT_EQ(streamer->updateInterval(), std::chrono::milliseconds(500));
    EXPECT_THROW(streamer->setUpdateInterval({}), std::invalid_argument);
    streamer->setUpdateInterval(Streamer::Duration(1));
    std::vector<std::size_t> counts;
    streamer->reloadPoints([&] { counts.push_back(streamer->publishedNodeCount()); }, 21, {});
    ASSERT_GE(counts.size(), 3u);
    EXPECT_TRUE(std::is_sorted(counts.begin(), counts.end()));
    EXPECT_LT(counts.front(), 9u);
    EXPECT_EQ(counts.back(), 9u);
}

TEST_F(PointCloudStreamerTest, AStopEndsTheWalkWithinOneNodeWithoutPublishing) {
    const auto source = sourceOf({.depth = 3});
    const auto streamer = streamerOf(source);
    std::stop_source stop;
    source->setReadHook([&](OctreeNodeId) {
        if (source->readCount() >= 20) {
            stop.request_stop();
        }
    });
    publications = 0;
    streamer->reloadPoints(nullptr, 21, stop.get_token());
    streamer->stopAsyncReload();  // Waits for what was under way.
    EXPECT_LE(source->readCount(), 20u + Core::LoadingPool::shared()->threadCount());
    EXPECT_EQ(publications, 1);
    EXPECT_EQ(published(*streamer), (Names{"r"}));
    // What it had loaded is published by the next walk, even when that finds nothing else to do.
    streamer->setMaxLevelToKeep(0);
    walk(*streamer);
    EXPECT_EQ(published(*streamer), (Names{"r"}));
}

TEST_F(PointCloudStreamerTest, ARestartCancelsTheRunningWalkWithoutWaitingForIt) {
    const auto source = sourceOf({.depth = 3});
    const auto streamer = streamerOf(source);
    std::promise<void> reading;
    std::promise<void> goOn;
    source->setReadHook([&, first = std::make_shared<std::atomic<bool>>(true)](OctreeNodeId) {
        if (first->exchange(false)) {
            reading.set_value();
            goOn.get_future().wait();
        }
    });
    streamer->startAsyncReload(nullptr, 21);
    reading.get_future().wait();
    streamer->onProjectionChanged();  // Returns although the walk is stuck in its read.
    streamer->setPriorityThreshold(2.0f);
    goOn.set_value();
    streamer->waitUntilIdle();
    EXPECT_FALSE(published(*streamer).empty());
    EXPECT_TRUE(streamer->isAsyncReloadHealthy(true));
    EXPECT_TRUE(streamer->isAsyncReloadActive());
    streamer->stopAsyncReload();
    EXPECT_FALSE(streamer->isAsyncReloadActive());
}

TEST_F(PointCloudStreamerTest, ACameraChangeMayLeaveTheWalkAlone) {
    const auto source = sourceOf({.depth = 1});
    const auto streamer = streamerOf(source);
    streamer->setRestartLoadingAfterCameraChange(false);
    streamer->startAsyncReload(nullptr, 21);
    streamer->waitUntilIdle();
    look({0, 0, 60}, {0, 0, 1});
    streamer->onViewChanged();
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 9u);
    streamer->onProjectionChanged();
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 1u);
}

TEST_F(PointCloudStreamerTest, AFailureIsStoredAndLeavesWhatWasPublished) {
    const auto source = sourceOf({.depth = 1});
    const auto streamer = streamerOf(source);
    streamer->setMaxLevelToKeep(0);
    streamer->startAsyncReload(nullptr, 21);
    streamer->waitUntilIdle();
    source->setReadHook([](OctreeNodeId id) { throw Octree::StoreError(id.name() + " is damaged"); });
    streamer->setMaxLevelToKeep(23);
    streamer->waitUntilIdle();
    EXPECT_FALSE(streamer->isAsyncReloadHealthy(false));
    try {
        streamer->isAsyncReloadHealthy(true);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Error loading point data");
        EXPECT_NE(Core::exceptionChain(error).find("is damaged"), std::string::npos);
    }
    EXPECT_EQ(published(*streamer), (Names{"r"}));
    // One damaged node costs that node.
    source->setReadHook([](OctreeNodeId id) {
        if (id.name() == "r3") {
            throw Octree::StoreError("damaged");
        }
    });
    streamer->restart();
    streamer->waitUntilIdle();
    EXPECT_FALSE(streamer->isAsyncReloadHealthy(false));
    EXPECT_EQ(published(*streamer), (Names{"r", "r0", "r1", "r2", "r4", "r5", "r6", "r7"}));
    source->setReadHook(nullptr);
    streamer->restart();
    streamer->waitUntilIdle();
    EXPECT_TRUE(streamer->isAsyncReloadHealthy(true));
    EXPECT_EQ(published(*streamer).size(), 9u);
}

TEST_F(PointCloudStreamerTest, ANodeOfADamagedHierarchyCostsNeitherItsParentNorItsSiblings) {
    const auto streamer = streamerOf(sourceOf({.depth = 1, .visibility = [](OctreeNodeId id) {
                                                   if (id.name() == "r3") {
                                                       throw Octree::StoreError("damaged");
                                                   }
                                                   return 1;
                                               }}));
    EXPECT_THROW(walk(*streamer), std::runtime_error);
    EXPECT_EQ(published(*streamer), (Names{"r", "r0", "r1", "r2", "r4", "r5", "r6", "r7"}));
}

TEST_F(PointCloudStreamerTest, AViewThatKeepsChangingStillBringsNews) {
    const auto source = sourceOf({.depth = 3});
    const auto streamer = streamerOf(source);
    constexpr auto interval = std::chrono::milliseconds(20);
    streamer->setUpdateInterval(interval);
    std::size_t shown = 0;
    for (int turn = 0; turn < 8; ++turn) {
        // Each walk is cut short when it has read one node, long before the interval is over.
        std::stop_source stop;
        std::atomic<int> reads{0};
        source->setReadHook([&](OctreeNodeId) {
            if (++reads == 2) {
                stop.request_stop();
            }
        });
        std::this_thread::sleep_for(2 * interval);
        streamer->reloadPoints(nullptr, 21, stop.get_token());
        if (turn > 1) {
            EXPECT_GT(streamer->publishedNodeCount(), shown) << turn;
        }
        shown = streamer->publishedNodeCount();
    }
}

TEST_F(PointCloudStreamerTest, ANewDepthRangeLoadsWhatComesIntoView) {
    const auto streamer = streamerOf(sourceOf({.depth = 1}));
    camera->setPerspective(60.0f, 1.0f, 56.0f, 0.0f, 0.0f);
    streamer->onProjectionChanged();
    streamer->startAsyncReload(nullptr, 21);
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 5u);
    camera->setPerspective(60.0f, 1.0f, 100.0f, 0.0f, 0.0f);
    streamer->onZRangeChanged();
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 9u);
}

TEST_F(PointCloudStreamerTest, ADraggedCloudIsNeverEmpty) {
    const auto source = sourceOf({.depth = 2});
    const auto streamer = streamerOf(source);
    streamer->startAsyncReload(nullptr, 21);
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 73u);
    Eigen::Matrix4f world = Eigen::Matrix4f::Identity();
    for (int i = 1; i <= 50; ++i) {
        world(0, 3) = 0.01f * static_cast<float>(i);
        streamer->setWorldMatrix(world);
        streamer->acquirePublication();
        EXPECT_FALSE(streamer->publication().nodes.empty()) << i;
    }
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 73u);
    // Without a loader nothing would come after.
    streamer->stopAsyncReload();
    streamer->clearVisibleOctreeNodes();
    EXPECT_TRUE(published(*streamer).empty());
}

TEST_F(PointCloudStreamerTest, ACallbackMayDropTheLastReference) {
    const auto source = sourceOf({.depth = 2});
    for (int i = 0; i < 20; ++i) {
        auto streamer = std::make_shared<Streamer>(SyntheticOctree::open(source), 1000000);
        streamer->attach(nextId(), nextId(), camera, nullptr);
        streamer->setPriorityThreshold(1.0f);
        const std::weak_ptr<Streamer> weak = streamer;
        auto owner = std::make_shared<std::shared_ptr<Streamer>>(std::move(streamer));
        std::promise<void> dropped;
        weak.lock()->startAsyncReload(
            [&dropped, owner]() mutable {
                if (*owner) {
                    owner->get()->detach();  // As the owner's destructor does.
                    owner->reset();
                    dropped.set_value();
                }
            },
            21);
        dropped.get_future().wait();
        while (!weak.expired()) {
            std::this_thread::yield();
        }
    }
}

TEST_F(PointCloudStreamerTest, CallbacksGoWithTheLoader) {
    const auto streamer = streamerOf(sourceOf({.depth = 1}));
    const auto token = std::make_shared<int>();
    for (const bool detaches : {false, true}) {
        streamer->startAsyncReload([token] {}, 21, [token](const std::exception_ptr&) {});
        streamer->waitUntilIdle();
        if (detaches) {
            streamer->detach();
        } else {
            streamer->stopAsyncReload();
        }
        EXPECT_EQ(token.use_count(), 1);
    }
}

TEST_F(PointCloudStreamerTest, AWalkThatWaitsForAnotherCanBeStopped) {
    const auto source = sourceOf({.depth = 1});
    const auto streamer = streamerOf(source);
    std::promise<void> reading;
    std::promise<void> goOn;
    source->setReadHook([&, isFirst = std::make_shared<std::atomic<bool>>(true)](OctreeNodeId) {
        if (isFirst->exchange(false)) {
            reading.set_value();
            goOn.get_future().wait();
        }
    });
    streamer->startAsyncReload(nullptr, 21);
    reading.get_future().wait();
    std::stop_source stop;
    auto waiting =
        std::async(std::launch::async, [&] { streamer->reloadPoints(nullptr, 0, stop.get_token()); });
    stop.request_stop();
    waiting.get();  // Although the loader's walk is stuck in its read.
    EXPECT_EQ(source->readCount(), 1u);
    goOn.set_value();
    streamer->waitUntilIdle();
}

TEST_F(PointCloudStreamerTest, AWalkNeedsARenderer) {
    Streamer streamer(SyntheticOctree::open(sourceOf({})), 100);
    try {
        walk(streamer);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(),
                     "reloadingPoints is not allowed if PointCloudRenderable is not initialized");
    }
}

TEST_F(PointCloudStreamerTest, AnInvisibleCloudHoldsNothingAndLoadsNothing) {
    const auto source = sourceOf({.depth = 3});
    const auto streamer = streamerOf(source);
    std::promise<void> reading;
    std::promise<void> goOn;
    std::atomic<int> reads{0};  // On the threads of the pool.
    source->setReadHook([&](OctreeNodeId) {
        if (++reads == 5) {
            reading.set_value();
            goOn.get_future().wait();
        }
    });
    streamer->startAsyncReload(nullptr, 21);
    reading.get_future().wait();
    streamer->setVisible(false);
    const std::size_t readBefore = source->readCount();
    goOn.set_value();
    streamer->waitUntilIdle();
    EXPECT_TRUE(published(*streamer).empty());
    EXPECT_EQ(streamer->prioritizer()->totalUsedPointCount(), 0u);
    EXPECT_LE(source->readCount(), readBefore + Core::LoadingPool::shared()->threadCount());
    streamer->restart();
    streamer->waitUntilIdle();
    EXPECT_TRUE(published(*streamer).empty());
    streamer->setVisible(true);
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 585u);
}

TEST_F(PointCloudStreamerTest, AnotherUnitScaleReplacesAllVertices) {
    const auto source = sourceOf({.depth = 1, .pointsPerNode = 3});
    const Octree::Location location(PoTree::FileSystemLocation("unit-scale"));
    Streamer streamer(SyntheticOctree::open(source, location), 1000);
    const Streamer other(SyntheticOctree::open(source, location), 1000);
    EXPECT_EQ(streamer.vertexCache(), other.vertexCache());
    streamer.attach(nextId(), nextId(), camera, nullptr);
    streamer.setPriorityThreshold(1.0f);
    streamer.startAsyncReload(nullptr, 21);
    streamer.waitUntilIdle();
    EXPECT_EQ(other.vertexCache()->size(), 9u);
    streamer.setUnitScale(0.5);
    EXPECT_EQ(other.vertexCache()->size(), 0u);
    EXPECT_NE(streamer.vertexCache(), other.vertexCache());
    streamer.waitUntilIdle();
    ASSERT_EQ(published(streamer).size(), 9u);
    for (const Render::PublishedNode& node : streamer.publication().nodes) {
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(node.vertices->vertices.position(i),
                      (source->position(node.id, i) * 0.5).cast<float>());
        }
    }
}

TEST_F(PointCloudStreamerTest, MeshDistancesFollowMeshAndMatrixInWorldUnits) {
    const auto source = sourceOf({.depth = 1, .pointsPerNode = 5});
    const auto streamer = streamerOf(source);
    streamer->startAsyncReload(nullptr, 21);
    const auto expectDistances = [&](const Eigen::Matrix4f& world, float meshZ) {
        streamer->waitUntilIdle();
        ASSERT_EQ(published(*streamer).size(), 9u);
        for (const Render::PublishedNode& node : streamer->publication().nodes) {
            for (std::size_t i = 0; i < 5; ++i) {
                const auto& vertex = node.vertices->vertices.data()[i];
                EXPECT_NEAR(vertex.distance, Math::transformPoint(world, vertex.position).z() - meshZ, 1e-3f);
            }
        }
    };
    streamer->waitUntilIdle();
    EXPECT_EQ(published(*streamer).size(), 9u);
    EXPECT_EQ(streamer->publication().nodes[0].vertices->vertices.data()[0].distance,
              std::numeric_limits<float>::max());
    const auto floor = [](float z) {
        return std::make_shared<const Math::TriangleMesh<float>>(
            std::vector<Math::Point<float, 3>>{{-1000, -1000, z}, {1000, -1000, z}, {0, 1000, z}},
            std::vector<Math::TriangleMesh<float>::Triangle>{{0, 1, 2}});
    };
    Eigen::Matrix4f world = Eigen::Matrix4f::Identity();
    streamer->setMesh(floor(1.0f));
    expectDistances(world, 1.0f);
    world(2, 3) = -3.0f;
    world.topLeftCorner<3, 3>() *= 1.5f;
    streamer->setWorldMatrix(world);
    expectDistances(world, 1.0f);
    streamer->setMesh(floor(-2.0f));
    expectDistances(world, -2.0f);
    EXPECT_EQ(source->readCount(), 9u);  // The vertices themselves came from the cache.
}

TEST_F(PointCloudStreamerTest, AMeshThatChangesDuringAWalkLeavesNoOldDistances) {
    const auto source = sourceOf({.depth = 2, .pointsPerNode = 5});
    const auto streamer = streamerOf(source);
    const auto floor = [](float z) {
        return std::make_shared<const Math::TriangleMesh<float>>(
            std::vector<Math::Point<float, 3>>{{-1000, -1000, z}, {1000, -1000, z}, {0, 1000, z}},
            std::vector<Math::TriangleMesh<float>::Triangle>{{0, 1, 2}});
    };
    std::promise<void> reading;
    std::promise<void> goOn;
    std::atomic<int> reads{0};  // On the threads of the pool.
    source->setReadHook([&](OctreeNodeId) {
        if (++reads == 20) {
            reading.set_value();
            goOn.get_future().wait();
        }
    });
    streamer->setMesh(floor(1.0f));
    streamer->startAsyncReload(nullptr, 21);
    reading.get_future().wait();
    streamer->setMesh(floor(-2.0f));
    goOn.set_value();
    streamer->waitUntilIdle();
    ASSERT_EQ(published(*streamer).size(), 73u);
    for (const Render::PublishedNode& node : streamer->publication().nodes) {
        for (std::size_t i = 0; i < 5; ++i) {
            const auto& vertex = node.vertices->vertices.data()[i];
            EXPECT_NEAR(vertex.distance, vertex.position.z() + 2.0f, 1e-3f);
        }
    }
}

TEST_F(PointCloudStreamerTest, CloudsOfOneRendererShareTheBudget) {
    const std::size_t renderer = nextId();
    const auto near = streamerOf(sourceOf({.depth = 1, .pointsPerNode = 10}), 101, renderer);
    const auto far = streamerOf(sourceOf({.depth = 1, .pointsPerNode = 10}), 500, renderer);
    Eigen::Matrix4f away = Eigen::Matrix4f::Identity();
    away(2, 3) = -100.0f;
    far->setWorldMatrix(away);
    walk(*far);
    EXPECT_EQ(published(*far).size(), 9u);
    walk(*near);
    EXPECT_EQ(published(*near).size(), 9u);
    EXPECT_LE(near->prioritizer()->totalUsedPointCount(), 101u);
    walk(*far);  // Loads nothing, but tells what it has lost.
    EXPECT_EQ(published(*far), (Names{"r"}));
    near->detach();
    walk(*far);
    EXPECT_EQ(published(*far).size(), 9u);
}

TEST_F(PointCloudStreamerTest, LoadersThatShareABudgetComeToRestWithinItAndTakeWhatOthersLeave) {
    const std::size_t renderer = nextId();
    std::vector<std::unique_ptr<Streamer>> clouds;
    for (int i = 0; i < 4; ++i) {
        clouds.push_back(streamerOf(sourceOf({.depth = 2, .pointsPerNode = 10}), 1000, renderer));
        Eigen::Matrix4f world = Eigen::Matrix4f::Identity();
        world(2, 3) = -20.0f * static_cast<float>(i);
        clouds.back()->setWorldMatrix(world);
        clouds.back()->startAsyncReload(nullptr, 21);
    }
    const auto drawnAtRest = [&] {
        while (
            std::any_of(clouds.begin(), clouds.end(), [](const auto& cloud) { return cloud->isLoading(); })) {
            for (const auto& cloud : clouds) {
                cloud->waitUntilIdle();
            }
        }
        std::size_t points = 0;
        for (const auto& cloud : clouds) {
            points += cloud->publishedPointCount();
        }
        return points;
    };
    EXPECT_LE(drawnAtRest(), 1000u);
    EXPECT_GT(drawnAtRest(), 900u);
    const std::size_t before = clouds[3]->publishedPointCount();
    clouds[0]->setVisible(false);
    clouds[1]->detach();
    EXPECT_LE(drawnAtRest(), 1000u);
    EXPECT_GT(clouds[3]->publishedPointCount(), before);
}

TEST_F(PointCloudStreamerTest, ClippingAndColorRangesDecideWhatIsLoaded) {
    const auto streamer = streamerOf(sourceOf({.depth = 1}));
    Eigen::Matrix4f world = Eigen::Matrix4f::Identity();
    world(0, 3) = 2.0f;
    streamer->setWorldMatrix(world);
    streamer->setClippingVolume({Math::HalfSpace<float, 3>(Math::NPlane<float, 3>({1, 0, 0}, -2.5f))});
    walk(*streamer);
    EXPECT_EQ(published(*streamer), (Names{"r", "r4", "r5", "r6", "r7"}));
    streamer->setClippingVolume({});
    streamer->setRenderMode(Render::RenderMode::PlaneDistance);
    streamer->setPlane({{0, 0, 1}, 0});
    streamer->setColorMapRange(-5.0f, -1.0f);
    walk(*streamer);
    EXPECT_EQ(published(*streamer), (Names{"r", "r0", "r2", "r4", "r6"}));
    streamer->setUseSignedDistance(false);
    walk(*streamer);
    EXPECT_EQ(published(*streamer), (Names{"r"}));
}

}  // namespace
