#include <core/BackgroundThread.h>
#include <core/Log.h>
#include <tests/support/FailingAllocation.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Core::BackgroundThread;
using namespace std::chrono_literals;

/// Waits like a long job would: until it is told to stop.
void waitForStop(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        std::this_thread::sleep_for(1ms);
    }
}

TEST(BackgroundThreadTest, RunsOnceAtStartAndOncePerRestartWhenIdle) {
    std::atomic<int> runs = 0;
    BackgroundThread thread([&](std::stop_token) { ++runs; });
    thread.waitUntilIdle();
    EXPECT_EQ(runs, 1);
    EXPECT_FALSE(thread.isRunning());

    thread.restart();
    thread.waitUntilIdle();
    EXPECT_EQ(runs, 2);
}

TEST(BackgroundThreadTest, RestartStopsTheRunWithoutWaitingForIt) {
    std::atomic<int> begun = 0;
    std::atomic<int> overlapping = 0;
    std::atomic<bool> restartReturned = false;
    BackgroundThread thread([&](std::stop_token stop) {
        EXPECT_EQ(++overlapping, 1);
        if (++begun == 1) {
            waitForStop(stop);
            while (!restartReturned) {  // For ever, if restart() waited for this run.
                std::this_thread::sleep_for(1ms);
            }
        } else {
            EXPECT_FALSE(stop.stop_requested());
        }
        --overlapping;
    });
    while (begun == 0) {
        std::this_thread::sleep_for(1ms);
    }
    for (int i = 0; i < 5; ++i) {
        thread.restart();
    }
    EXPECT_TRUE(thread.isRunning());
    restartReturned = true;
    thread.waitUntilIdle();
    EXPECT_EQ(begun, 2) << "restarts during one run collapse into one";
}

TEST(BackgroundThreadTest, TheFunctionMayRestartItself) {
    std::atomic<int> runs = 0;
    std::atomic<BackgroundThread*> self = nullptr;
    BackgroundThread thread([&](std::stop_token stop) {
        while (self == nullptr) {
            std::this_thread::sleep_for(1ms);
        }
        if (++runs < 3) {
            self.load()->restart();
            EXPECT_TRUE(stop.stop_requested());
        }
    });
    self = &thread;
    thread.waitUntilIdle();
    EXPECT_EQ(runs, 3);
}

TEST(BackgroundThreadTest, DestructionStopsTheRunAndDropsOneThatIsDue) {
    std::atomic<int> runs = 0;
    std::promise<void> begun;
    {
        BackgroundThread thread([&](std::stop_token stop) {
            ++runs;
            begun.set_value();
            waitForStop(stop);
            std::this_thread::sleep_for(20ms);  // Time for the destructor to begin after the restart.
        });
        begun.get_future().wait();
        thread.restart();
    }
    EXPECT_EQ(runs, 1);
}

TEST(BackgroundThreadTest, ItsOwnFunctionMayDestroyIt) {
    struct Owner {
        std::unique_ptr<BackgroundThread> thread;
    };
    auto owner = std::make_shared<Owner>();
    auto captured = std::make_shared<int>();
    const std::weak_ptr<int> capturedByTheFunction = captured;
    std::promise<void> held;
    std::promise<void> released;
    owner->thread = std::make_unique<BackgroundThread>(
        [&, weak = std::weak_ptr(owner), captured = std::move(captured)](std::stop_token stop) {
            std::shared_ptr<Owner> last = weak.lock();
            held.set_value();
            released.get_future().wait();
            last.reset();
            EXPECT_TRUE(stop.stop_requested());
            EXPECT_EQ(captured.use_count(), 1) << "the function lives until it returns";
        });
    held.get_future().wait();
    owner.reset();
    released.set_value();
    while (!capturedByTheFunction.expired()) {  // For ever, if the thread did not end by itself.
        std::this_thread::sleep_for(1ms);
    }
}

TEST(BackgroundThreadTest, AnEscapingExceptionIsLoggedAndEndsOneRunOnly) {
    std::string logged;
    Core::Log::setSink([&](std::string_view message) { logged = message; });
    std::atomic<int> runs = 0;
    {
        BackgroundThread thread([&](std::stop_token) {
            if (++runs == 1) {
                throw std::runtime_error("disk on fire");
            }
        });
        thread.waitUntilIdle();
        thread.restart();
        thread.waitUntilIdle();
    }
    Core::Log::setSink(nullptr);
    EXPECT_EQ(runs, 2);
    EXPECT_NE(logged.find("disk on fire"), std::string::npos) << logged;
}

TEST(BackgroundThreadTest, WithoutMemoryARunFailsAndTheNextOneWorks) {
    std::vector<std::string> logged;
    Core::Log::setSink([&](std::string_view message) { logged.emplace_back(message); });
    for (const bool whileItFails : {true, false}) {
        std::atomic<int> runs = 0;
        BackgroundThread thread([&](std::stop_token) {
            if (++runs == 1 && whileItFails) {
                const std::runtime_error error("disk on fire");
                TestSupport::FailingAllocation::failAfter(0);  // The text of what goes wrong.
                throw error;
            }
            TestSupport::FailingAllocation::failAfter(runs == 1 ? 0 : -1);  // What the next run begins with.
        });
        for (int i = 0; i < 2; ++i) {
            thread.waitUntilIdle();
            thread.restart();
        }
        thread.waitUntilIdle();
        EXPECT_EQ(runs, whileItFails ? 3 : 2);
    }
    Core::Log::setSink(nullptr);
    const std::string failed = "A background thread's function failed";
    EXPECT_EQ(logged, (std::vector<std::string>{failed, failed + ": std::bad_alloc"}));
}

TEST(BackgroundThreadTest, TheLastOfManyConcurrentRestartsIsFollowedByARun) {
    std::atomic<int> newest = 0;
    std::atomic<int> seen = -1;
    BackgroundThread thread([&](std::stop_token stop) {
        const int value = newest;
        std::this_thread::yield();
        if (!stop.stop_requested()) {
            seen = value;
        }
    });
    std::vector<std::thread> callers;
    for (int t = 0; t < 4; ++t) {
        callers.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                ++newest;
                thread.restart();
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    thread.waitUntilIdle();
    EXPECT_EQ(seen, 2000);
}

}  // namespace
