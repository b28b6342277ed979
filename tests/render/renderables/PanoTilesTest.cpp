#include "TestPanorama.h"

#include <core/ExceptionChain.h>
#include <core/Log.h>
#include <gtest/gtest.h>
#include <render/renderables/PanoLoading.h>
#include <render/renderables/PanoTiles.h>
#include <tests/support/FailingAllocation.h>

#include <future>
#include <stdexcept>
#include <thread>

namespace {

using Core::JobState;
using Names = std::vector<std::string>;
using Render::PanoLoading;
using Render::PanoTiles;
using Kind = PanoTiles::Kind;
using Shape = TestPanorama::Shape;
using TestSupport::FailingAllocation;

/// Four tiles side by side, in two levels of colours and one of depths: c0 to c7 and d0 to d3.
constexpr Shape kSmall{.rows = 1, .columns = 4, .colorLevels = 2, .depthLevels = 1, .size = 2};
constexpr size_t kSmallCount = 12;

class PanoTilesTest : public testing::Test {
protected:
    explicit PanoTilesTest(Shape shape = kSmall)
        : loader(std::make_shared<TestPanorama>(shape)),
          tiles(std::make_shared<PanoTiles>(loader, "hall", [this] { ++redraws; })),
          loading(std::make_unique<PanoLoading>(tiles)) {
        Core::Log::setSink([this](std::string_view message) { log = message; });
    }
    ~PanoTilesTest() override { Core::Log::setSink({}); }

    void expectFailure(const std::string& text) {
        EXPECT_EQ(loading->load(), JobState::Failed);
        EXPECT_EQ(tiles->state(), JobState::Failed);
        EXPECT_NE(log.find(text), std::string::npos) << log;
        try {
            std::rethrow_exception(tiles->error());
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(Core::exceptionChain(error), log);
        }
    }
    void waitFor(JobState state) const {
        while (tiles->state() != state) {
            std::this_thread::yield();
        }
    }

    std::string log;
    std::atomic<int> redraws{0};
    std::shared_ptr<TestPanorama> loader;
    std::shared_ptr<PanoTiles> tiles;
    std::unique_ptr<PanoLoading> loading;
};

TEST_F(PanoTilesTest, TheBestRequestIsOfTheLowestLevelThenAheadThenOfColors) {
    const auto choose = [](std::vector<PanoTiles::Request> requests) {
        return PanoTiles::choose(requests, {1, 0, 0});
    };
    const Math::Point<float, 3> ahead(1, 0, 0), behind(-1, 0, 0), aside(0, 1, 0);
    EXPECT_EQ(choose({{1, 1, ahead, Kind::Color}, {2, 0, behind, Kind::Depth}}), 1u);
    EXPECT_EQ(choose({{1, 1, behind, Kind::Color}, {2, 1, ahead, Kind::Depth}, {3, 1, aside}}), 1u);
    EXPECT_EQ(choose({{1, 1, aside, Kind::Depth}, {2, 1, aside, Kind::Color}, {3, 1, aside}}), 1u);
    EXPECT_EQ(choose({{1, 1, aside, Kind::Depth}, {2, 1, aside, Kind::Depth}}), 0u);
}

TEST_F(PanoTilesTest, TilesAheadComeFirstAndTurningTheCameraChangesWhichTheyAre) {
    // From left to right the tiles look to the back left, front left, front right and back right.
    tiles->setViewDirection({0.6f, -0.8f, 0});
    loader->onLoad = [this](const std::string& name) {
        if (name == "d2") {
            tiles->setViewDirection({-0.6f, 0.8f, 0});
        }
    };
    EXPECT_EQ(loading->load(), JobState::Completed);
    EXPECT_EQ(loader->takeLoaded(),
              (Names{"c2", "d2", "c0", "d0", "c1", "d1", "c3", "d3", "c4", "c5", "c7", "c6"}));
    EXPECT_EQ(redraws, static_cast<int>(kSmallCount));
}

TEST_F(PanoTilesTest, UnsuitableLoadersAreRejected) {
    const auto verdict = [](Shape shape, uint64_t extraTile = 0) -> std::string {
        TestPanorama panorama(shape);
        panorama.extraTile = extraTile;
        try {
            PanoTiles::check(panorama);
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
        return "fine";
    };
    EXPECT_EQ(verdict({.colorLevels = 4, .depthLevels = 0}), "fine");
    EXPECT_EQ(verdict({.rows = 6, .columns = 8, .colorLevels = 1, .depthLevels = 4}), "fine");
    const std::string start = "The panorama cannot be shown: ";
    EXPECT_EQ(verdict({.colorLevels = 5}), start + "5 color levels are more than 4");
    EXPECT_EQ(verdict({.depthLevels = 5}), start + "5 depth levels are more than 4");
    EXPECT_EQ(verdict({.tiles = 49}), start + "49 tiles in a level are not 1 to 48");
    EXPECT_EQ(verdict({.kind = 1, .rows = 3, .columns = 3, .tiles = 48}),
              start + "3 rows and 3 columns of tiles on 6 faces are more than the 48 tiles of a level");
    EXPECT_EQ(verdict({.colorLevels = 3}, 24), start + "color tile 24 belongs to level 3 of 3");
}

TEST_F(PanoTilesTest, FailuresAreLoggedAndLeaveWhatHasArrived) {
    loader->onLoad = [](const std::string& name) {
        if (name == "d1") {
            throw std::runtime_error("disk on fire");
        }
    };
    expectFailure("Loading panorama \"hall\" failed: depth tile 1 of level 0: disk on fire");
    EXPECT_EQ(tiles->takeArrived().colors.size(), 4u);  // All those of level 0, where nothing is ahead.
    loader->onLoad = [](const std::string&) { throw 5; };
    expectFailure("color tile 0 of level 0: unknown exception");
    loader->onLoad = nullptr;
    loader->surplusRows = 1;
    expectFailure("color tile 0 of level 0: the image has 2 x 3 texels instead of 2 x 2");
    loader->surplusRows = 0;
    loader->extraTile = 99;
    expectFailure("color tile 99 belongs to level 24 of 2");
    loader->extraTile = 0;
    loading->start([] { throw std::runtime_error("no"); });
    EXPECT_EQ(tiles->waitForEnd(), JobState::Failed);
    EXPECT_NE(log.find("failed: no"), std::string::npos) << log;
    loader->onLoad = [this](const std::string&) { EXPECT_FALSE(tiles->error()); };
    EXPECT_EQ(loading->load(), JobState::Completed);

    tiles = std::make_shared<PanoTiles>(nullptr, "", [] {});
    loading = std::make_unique<PanoLoading>(tiles);
    expectFailure("there is no loader");
}

TEST_F(PanoTilesTest, WithoutMemoryARunFailsAndTheNextOneWorks) {
    for (const auto fail : {FailingAllocation::failAfter, FailingAllocation::failEverAfter}) {
        int failures = 0;
        for (long successes = 0; successes == failures; ++successes) {
            const uint64_t number = tiles->announceRun();
            std::thread([&] {
                fail(successes);
                tiles->run(number, {}, {});
            }).join();
            if (tiles->state() == JobState::Failed) {
                ++failures;
                EXPECT_THROW(std::rethrow_exception(tiles->error()), std::exception);
            }
            ASSERT_EQ(loading->load(), JobState::Completed) << successes;
        }
        EXPECT_GT(failures, 10);
    }
}

TEST_F(PanoTilesTest, ImagesArriveInOrderWithoutPadding) {
    loader->padding = 12;
    EXPECT_EQ(tiles->state(), JobState::NotStarted);
    loading->load();
    PanoTiles::Arrived arrived = tiles->takeArrived();
    ASSERT_EQ(arrived.colors.size() + arrived.depths.size(), kSmallCount);
    EXPECT_EQ(arrived.colors[1].image.stride(), 8u);
    EXPECT_EQ(arrived.colors[1].image.pixel(1, 1), TestPanorama::color(0, 0, 3, 1));
    EXPECT_EQ(arrived.depths[3].image.pixel(0, 1), TestPanorama::distance(0, 0, 6, 1));
    EXPECT_TRUE(tiles->takeArrived().colors.empty());
}

TEST_F(PanoTilesTest, EachTileWaitsOnceInItsNewestForm) {
    loading->load();
    PanoTiles::Arrived first = tiles->takeArrived();
    tiles->setViewDirection({-1, 1, 0});  // The other way round.
    loader->offers = [](uint64_t id) { return id != 2; };
    loading->load();
    loading->load();
    first.colors[0].image.fill(Math::Color::black());
    tiles->putBack(std::move(first));
    const PanoTiles::Arrived both = tiles->takeArrived();
    ASSERT_EQ(both.colors.size() + both.depths.size(), kSmallCount);
    EXPECT_EQ(both.colors[0].id, 2u);
    EXPECT_EQ(both.colors[1].id, 0u);
    EXPECT_EQ(both.colors[1].image.pixel(0, 0), TestPanorama::color(0, 0, 0, 0));
}

TEST_F(PanoTilesTest, RestartsWaitForTheRunBeforeAndOverwriteItsState) {
    std::atomic<int> within{0};
    loader->onLoad = [&](const std::string&) {
        EXPECT_EQ(++within, 1);
        std::this_thread::yield();
        --within;
    };
    std::atomic<int> oldest{0};
    for (int i = 0; i < 50; ++i) {
        loading->start([&, i] { EXPECT_GE(i, oldest); });
        oldest = i;
        EXPECT_NE(tiles->state(), JobState::Stopped);
        tiles->setViewDirection({static_cast<float>(i % 3 - 1), 1, 0});
        tiles->takeArrived();
        if (i % 7 == 1) {
            loading->stop();
        }
    }
    waitFor(JobState::Completed);
    loading->stop();
    loading->stop();
    EXPECT_EQ(tiles->state(), JobState::Completed);
}

TEST_F(PanoTilesTest, AStoppedRunEndsAfterTheTileThatItIsAt) {
    std::stop_source stop;
    loader->onLoad = [&](const std::string& name) {
        if (name == "c1") {
            stop.request_stop();
        }
    };
    int calls = 0;
    EXPECT_EQ(tiles->run(tiles->announceRun(), stop.get_token(), [&] { ++calls; }), JobState::Stopped);
    EXPECT_EQ(tiles->state(), JobState::Stopped);
    EXPECT_EQ(loader->takeLoaded(), (Names{"c0", "c1"}));
    EXPECT_EQ(calls, 2);
}

TEST_F(PanoTilesTest, ACallbackMayStopRestartAndDestroy) {
    loading->start([this] { loading->stop(); });
    waitFor(JobState::Stopped);
    EXPECT_EQ(loader->takeLoaded().size(), 1u);

    std::promise<void> second;
    loading->start([&] {
        loading->start([] { ADD_FAILURE() << "replaced before it began"; });
        loading->start([&, first = true]() mutable {
            if (std::exchange(first, false)) {
                second.set_value();
            }
        });
    });
    second.get_future().wait();
    waitFor(JobState::Completed);
    EXPECT_EQ(loader->takeLoaded().size(), 1 + kSmallCount);

    std::promise<void> failed;
    loading->start([&] {
        EXPECT_THROW(loading->load(), std::logic_error);
        loading->stop();
        failed.set_value();
    });
    failed.get_future().wait();
    waitFor(JobState::Stopped);

    // Also with a restart pending. What the threads share lives as long as they need it.
    for (const bool restart : {false, true}) {
        std::promise<void> destroyed;
        loading = std::make_unique<PanoLoading>(tiles);
        loading->start([&, restart] {
            if (restart) {
                loading->start({});
            }
            loading.reset();
            destroyed.set_value();
        });
        destroyed.get_future().wait();
        waitFor(JobState::Stopped);
    }
}

TEST_F(PanoTilesTest, ACallbackThatHoldsTheLastReferenceIsNoHarm) {
    const int before = TestPanorama::destroyed();
    struct Owner {
        std::unique_ptr<PanoLoading> loading;
    };
    const auto owner = std::make_shared<Owner>(Owner{std::move(loading)});
    PanoLoading& inside = *owner->loading;
    inside.start([owner] {});
    std::weak_ptr<Owner> watch = owner;
    const_cast<std::shared_ptr<Owner>&>(owner).reset();
    tiles.reset();
    loader.reset();
    while (!watch.expired() || TestPanorama::destroyed() == before) {
        std::this_thread::yield();
    }
}

TEST_F(PanoTilesTest, AStopFromOutsideBeatsRestartsByTheCallbackAndWaitsForIt) {
    for (const bool restartFirst : {false, true}) {
        std::atomic<int> inCallback{0};
        std::promise<void> reached;
        std::function<void()> again = [&, first = true]() mutable {
            ++inCallback;
            if (restartFirst) {
                loading->start(again);
            }
            if (std::exchange(first, false)) {
                reached.set_value();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(30));  // For the stop to be on its way.
            if (!restartFirst) {
                loading->start([&] { ++inCallback; });
            }
            --inCallback;
        };
        loading->start([&again] { again(); });
        reached.get_future().wait();
        loading->stop();
        EXPECT_EQ(inCallback, 0);
        EXPECT_EQ(tiles->state(), JobState::Stopped);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_EQ(inCallback, 0);
    }
}

TEST_F(PanoTilesTest, AThreadWaitsForALoadInProgress) {
    std::promise<void> started;
    std::thread::id first;
    loader->onLoad = [&](const std::string& name) {
        if (name == "c0" && first == std::thread::id()) {
            first = std::this_thread::get_id();
            started.get_future().wait();
        }
    };
    std::thread caller([&] { EXPECT_EQ(loading->load(), JobState::Completed); });
    waitFor(JobState::Running);
    loading->start({});
    loading->stop();  // Waits for its turn and not longer.
    EXPECT_EQ(tiles->state(), JobState::Stopped);
    loading->start({});
    started.set_value();
    caller.join();
    waitFor(JobState::Completed);
    EXPECT_EQ(loader->takeLoaded().size(), 2 * kSmallCount);
}

TEST_F(PanoTilesTest, ARunInProgressCanBeginAnew) {
    EXPECT_FALSE(tiles->beginAnew());
    for (const std::string at : {"c1", "c7"}) {
        bool once = true;
        loader->onLoad = [&](const std::string& name) {
            if (name == at && std::exchange(once, false)) {
                EXPECT_TRUE(tiles->beginAnew());
            }
        };
        EXPECT_EQ(loading->load(), JobState::Completed);
        EXPECT_EQ(loader->takeLoaded().size(), (at == "c1" ? 2 : kSmallCount) + kSmallCount);
    }
    EXPECT_FALSE(tiles->beginAnew());
}

}  // namespace
