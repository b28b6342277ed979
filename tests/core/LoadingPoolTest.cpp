#include <core/BlockingSection.h>
#include <core/LoadingQueue.h>
#include <core/Log.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Core::LoadingPool;
using Core::LoadingQueue;
using namespace std::chrono_literals;

std::stop_source stopped() {
    std::stop_source source;
    source.request_stop();
    return source;
}

bool comesTrueSoon(std::future<void> event) {
    return event.wait_for(10s) == std::future_status::ready;
}

/// A task that runs until the gate is opened.
class Gate {
public:
    explicit Gate(LoadingQueue& queue) {
        queue.submit({.run = [this](std::stop_token) {
            mEntered.set_value();
            mOpened.get_future().wait();
        }});
        mEntered.get_future().wait();
    }
    ~Gate() { open(); }

    void open() {
        if (!mIsOpen.exchange(true)) {
            mOpened.set_value();
        }
    }

private:
    std::promise<void> mEntered;
    std::promise<void> mOpened;
    std::atomic<bool> mIsOpen = false;
};

TEST(LoadingPoolTest, QueuesTakeTurnsAndEachBeginsWithItsMostImportantTask) {
    std::string order;
    const auto pool = std::make_shared<LoadingPool>(1);
    LoadingQueue many(pool);
    LoadingQueue few(pool);
    Gate gate(few);
    std::promise<void> last;
    for (const auto& [name, priority] : {std::pair('c', 1.0f), {'a', 2.0f}, {'d', 1.0f}, {'b', 2.0f}}) {
        many.submit({.run = [&order, name = name](std::stop_token) { order += name; }, .priority = priority});
    }
    few.submit({.run = [&](std::stop_token) { order += 'X'; }});
    few.submit({.run = [&](std::stop_token) { order += 'Y'; }});
    many.submit({.run = [&](std::stop_token) { last.set_value(); },
                 .priority = std::numeric_limits<float>::quiet_NaN()});
    gate.open();
    ASSERT_TRUE(comesTrueSoon(last.get_future()));
    EXPECT_EQ(order, "aXbYcd");
}

TEST(LoadingPoolTest, WhatIsStoppedBeforeItsTurnIsDropped) {
    std::string order;
    LoadingQueue queue(std::make_shared<LoadingPool>(1));
    Gate gate(queue);
    std::stop_source later;
    std::promise<void> last;
    const auto submit = [&](char run, char dropped, const std::stop_source& stop) {
        queue.submit({.run = [&order, run](std::stop_token) { order += run; },
                      .dropped = [&order, dropped] { order += dropped; },
                      .stop = stop});
    };
    submit('-', 'a', stopped());
    submit('B', '-', {});
    submit('-', 'c', later);
    queue.dropStopped();
    EXPECT_EQ(order, "a");
    later.request_stop();
    queue.submit({.run = [&](std::stop_token) { last.set_value(); }});
    gate.open();
    ASSERT_TRUE(comesTrueSoon(last.get_future()));
    EXPECT_EQ(order, "aBc");
}

TEST(LoadingPoolTest, AQueueThatGoesDropsStopsAndWaits) {
    std::atomic<bool> ended = false;
    int dropped = 0;
    std::promise<void> begun;
    const auto pool =
        std::make_shared<LoadingPool>(1);  // Outlives the queue, so that it does not do the waiting.
    {
        LoadingQueue queue(pool);
        queue.submit({.run = [&](std::stop_token stop) {
            begun.set_value();
            while (!stop.stop_requested()) {
                std::this_thread::sleep_for(1ms);
            }
            std::this_thread::sleep_for(20ms);
            ended = true;
        }});
        begun.get_future().wait();
        queue.submit({.run = [](std::stop_token) { ADD_FAILURE() << "run"; }, .dropped = [&] { ++dropped; }});
    }
    EXPECT_TRUE(ended);
    EXPECT_EQ(dropped, 1);
}

TEST(LoadingPoolTest, ATaskMayHoldTheLastReferenceToItsQueueAndPool) {
    auto owner = std::make_shared<LoadingQueue>(std::make_shared<LoadingPool>(2));
    const std::weak_ptr<LoadingQueue> observer = owner;
    std::promise<void> held;
    std::promise<void> released;
    std::promise<void> done;
    owner->submit({.run = [&, observer](std::stop_token stop) {
        std::shared_ptr<LoadingQueue> last = observer.lock();
        held.set_value();
        released.get_future().wait();
        last.reset();
        EXPECT_TRUE(stop.stop_requested());
        done.set_value();
    }});
    held.get_future().wait();
    owner.reset();
    released.set_value();
    EXPECT_TRUE(comesTrueSoon(done.get_future()));
}

TEST(LoadingPoolTest, AWaitingTaskGivesUpItsPlaceButOnlySoManyDo) {
    constexpr size_t TASKS = LoadingPool::MAX_WAITING_TASKS + 5;
    std::atomic<size_t> begun = 0;
    std::promise<void> mostBegun;
    std::promise<void> opened;
    const std::shared_future<void> open = opened.get_future();
    std::promise<void> allEnded;
    std::atomic<size_t> ended = 0;
    LoadingQueue queue(std::make_shared<LoadingPool>(2));
    for (size_t i = 0; i < TASKS; ++i) {
        queue.submit({.run = [&](std::stop_token) {
            const Core::BlockingSection outer;
            const Core::BlockingSection inner;
            // Two more hold the two places.
            if (++begun == LoadingPool::MAX_WAITING_TASKS + 2) {
                mostBegun.set_value();
            }
            open.wait();
            if (++ended == TASKS) {
                allEnded.set_value();
            }
        }});
    }
    const bool allThatMay = comesTrueSoon(mostBegun.get_future());
    std::this_thread::sleep_for(20ms);  // In which too many could begin.
    EXPECT_TRUE(allThatMay);
    EXPECT_EQ(begun, LoadingPool::MAX_WAITING_TASKS + 2);
    opened.set_value();
    EXPECT_TRUE(comesTrueSoon(allEnded.get_future()));
}

TEST(LoadingPoolTest, OfManyTasksEachIsRunOrDroppedOnceAndNoMoreRunThanThereArePlaces) {
    constexpr int TASKS = 2000;
    std::vector<std::atomic<int>> calls(TASKS);
    std::atomic<int> running = 0;
    std::atomic<int> most = 0;
    std::string logged;
    Core::Log::setSink([&](std::string_view message) { logged = message; });
    {
        const auto pool = std::make_shared<LoadingPool>(1);
        std::vector<std::thread> submitters;
        for (int t = 0; t < 4; ++t) {
            submitters.emplace_back([&, t] {
                LoadingQueue queue(pool);
                std::stop_source stop;
                for (int i = t; i < TASKS; i += 4) {
                    queue.submit({.run =
                                      [&, i](std::stop_token) {
                                          ++calls[static_cast<size_t>(i)];
                                          const int now = ++running;
                                          for (int seen = most;
                                               seen < now && !most.compare_exchange_weak(seen, now);) {
                                          }
                                          std::this_thread::yield();
                                          --running;
                                          if (i == 0) {
                                              throw std::runtime_error("unreadable");
                                          }
                                      },
                                  .dropped = [&, i] { ++calls[static_cast<size_t>(i)]; },
                                  .stop = i == 0 ? std::stop_source() : stop});
                    if (i % 64 == t) {
                        std::this_thread::sleep_for(100us);
                        stop.request_stop();
                        stop = std::stop_source();
                        queue.dropStopped();
                    }
                }
                pool->setThreadCount(3);
            });
        }
        for (std::thread& submitter : submitters) {
            submitter.join();
        }
    }
    Core::Log::setSink(nullptr);
    for (int i = 0; i < TASKS; ++i) {
        ASSERT_EQ(calls[static_cast<size_t>(i)], 1) << i;
    }
    EXPECT_LE(most, 3);
    EXPECT_NE(logged.find("unreadable"), std::string::npos) << logged;
}

TEST(LoadingPoolTest, ThePoolOfTheProcessIsSharedAndRemembersItsThreadCount) {
    auto pool = LoadingPool::shared();
    EXPECT_EQ(LoadingPool::shared(), pool);
    EXPECT_EQ(pool->threadCount(), LoadingPool::defaultThreadCount());
    LoadingPool::setSharedThreadCount(3);
    EXPECT_EQ(pool->threadCount(), 3u);
    pool.reset();
    EXPECT_EQ(LoadingPool::shared()->threadCount(), 3u);
    LoadingPool::setSharedThreadCount(LoadingPool::defaultThreadCount());
}

}  // namespace
