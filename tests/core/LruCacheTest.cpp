#include <core/GroupedLruCache.h>
#include <core/LruCache.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace {

using Cache = Core::LruCache<int, std::string>;
using Grouped = Core::GroupedLruCache<int, std::string, int>;

template <class Function>
std::string invalidArgumentText(Function&& function) {
    try {
        function();
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "no invalid_argument";
}

/// A load that must not happen.
bool unexpectedLoad(std::string&) {
    ADD_FAILURE() << "loaded";
    return false;
}

TEST(LruCacheTest, MisuseIsReportedWithTheDocumentedTexts) {
    EXPECT_EQ(invalidArgumentText([] { Cache(0, 10); }), "Size of the cache should be non-zero");
    EXPECT_EQ(invalidArgumentText([] { Grouped(0); }), "Capacity must be greater than 0");
    EXPECT_EQ(invalidArgumentText([] { Cache(1, 0).get(7); }), "Error: Key is not in cache");
}

TEST(LruCacheTest, LeastRecentlyUsedEntriesLeaveUntilTheNewOneFits) {
    Cache cache(10, 4);
    cache.insert(1, "aaaa");
    cache.insert(2, "bbb");
    cache.insert(3, "ccc");
    EXPECT_EQ(cache.usedSize(), 10u);
    EXPECT_EQ(cache.get(1), "aaaa");
    EXPECT_TRUE(cache.contains(2));  // Asking is no use of it.

    cache.insert(4, "dddd");
    EXPECT_FALSE(cache.contains(2));
    EXPECT_FALSE(cache.contains(3));
    EXPECT_TRUE(cache.contains(1));
    EXPECT_EQ(cache.usedSize(), 8u);
    EXPECT_EQ(cache.size(), 2u);
}

TEST(LruCacheTest, AValueLargerThanTheCapacityEmptiesTheCacheAndStaysUntilTheNextInsertion) {
    Cache cache(5, 4);
    cache.insert(1, "a");
    cache.insert(2, "too large a value");
    EXPECT_FALSE(cache.contains(1));
    EXPECT_EQ(cache.get(2), "too large a value");
    EXPECT_GT(cache.usedSize(), cache.capacity());

    cache.insert(3, "");
    EXPECT_FALSE(cache.contains(2));
    EXPECT_TRUE(cache.contains(3));
    EXPECT_EQ(cache.usedSize(), 0u);
}

TEST(LruCacheTest, EmptyValuesLeaveToo) {
    Cache few(3, 100);
    Cache expectingOne(1000, 1);
    for (int key = 0; key < 200; ++key) {
        few.insert(key, "");
        expectingOne.insert(key, "");
    }
    EXPECT_EQ(few.size(), 3u);
    EXPECT_TRUE(few.contains(199));
    EXPECT_EQ(expectingOne.size(), 64u);
}

TEST(LruCacheTest, GetOrLoadLoadsOnceAndCountsAsAUse) {
    Cache cache(2, 2);
    std::string out;
    EXPECT_TRUE(cache.getOrLoad(1, out, [](std::string& value) { return value = "1", true; }));
    EXPECT_EQ(out, "1");
    cache.insert(2, "2");
    out.clear();
    EXPECT_TRUE(cache.getOrLoad(1, out, unexpectedLoad));
    EXPECT_EQ(out, "1");
    cache.insert(3, "3");
    EXPECT_FALSE(cache.contains(2));

    cache.clear();
    EXPECT_EQ(cache.usedSize(), 0u);
    EXPECT_FALSE(cache.contains(1));
}

TEST(LruCacheTest, AFailedLoadInsertsAndEvictsNothing) {
    Cache cache(3, 2);
    cache.insert(1, "old");
    std::string out = "kept";
    EXPECT_FALSE(cache.getOrLoad(2, out, [](std::string& value) { return value = "half", false; }));
    EXPECT_THROW(cache.getOrLoad(2, out, [](std::string&) -> bool { throw std::runtime_error("io"); }),
                 std::runtime_error);
    EXPECT_EQ(out, "kept");
    EXPECT_TRUE(cache.contains(1));
    EXPECT_FALSE(cache.contains(2));
}

TEST(LruCacheTest, ALoadRunsWithoutTheLockAndAnotherThreadsInsertWins) {
    Cache cache(100, 2);
    std::string out;
    EXPECT_TRUE(cache.getOrLoad(1, out, [&](std::string& value) {
        std::thread([&] { cache.insert(1, "theirs"); }).join();  // Hangs if the lock is held.
        value = "mine";
        return true;
    }));
    EXPECT_EQ(out, "theirs");
    EXPECT_EQ(cache.get(1), "theirs");
    EXPECT_EQ(cache.usedSize(), 6u);
    EXPECT_EQ(cache.size(), 1u);
}

/// A first caller of key 1 that is loading while the test goes on, until it is told how its load ends.
class FirstCaller {
public:
    explicit FirstCaller(Cache& cache) {
        mResult = std::async(std::launch::async, [this, &cache] {
            std::string out = "untouched";
            const bool loaded = cache.getOrLoad(1, out, [this](std::string& value) {
                mBegun.set_value();
                value = mEnd.get_future().get();
                return !value.empty();
            });
            return loaded ? out : "failed";
        });
        mBegun.get_future().wait();
    }

    /// Lets the load end after a while, in which others can begin to wait for it.
    void endSoon(std::string value) {
        mEnding = std::async(std::launch::async, [this, value = std::move(value)] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            value == "throw" ? mEnd.set_exception(std::make_exception_ptr(std::runtime_error("io")))
                             : mEnd.set_value(value);
        });
    }
    std::string result() { return mResult.get(); }

private:
    std::promise<void> mBegun;
    std::promise<std::string> mEnd;
    std::future<std::string> mResult;
    std::future<void> mEnding;
};

TEST(LruCacheTest, CallersOfOneKeyLoadItOnceThoughItDoesNotStay) {
    Cache cache(1, 1);
    FirstCaller first(cache);
    first.endSoon("much larger than the cache");
    std::string out;
    EXPECT_TRUE(cache.getOrLoad(1, out, unexpectedLoad));
    EXPECT_EQ(out, "much larger than the cache");
    EXPECT_EQ(first.result(), out);
}

TEST(LruCacheTest, AWaitingCallerLoadsItselfWhenTheFirstOneIsStoppedOrFails) {
    for (const char* end : {"", "throw"}) {
        Cache cache(10, 1);
        FirstCaller first(cache);
        first.endSoon(end);
        std::string out;
        EXPECT_TRUE(cache.getOrLoad(1, out, [](std::string& value) { return value = "second", true; }));
        EXPECT_EQ(out, "second");
        if (*end == 0) {
            EXPECT_EQ(first.result(), "failed");
        } else {
            EXPECT_THROW(first.result(), std::runtime_error);
        }
    }
}

TEST(LruCacheTest, AWaitEndsWithItsStopToken) {
    Cache cache(10, 1);
    FirstCaller first(cache);
    std::stop_source stop;
    std::thread stopping([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        stop.request_stop();
    });
    std::string out = "kept";
    EXPECT_FALSE(cache.getOrLoad(1, out, unexpectedLoad, stop.get_token()));
    EXPECT_EQ(out, "kept");
    stopping.join();
    first.endSoon("first");
    EXPECT_EQ(first.result(), "first");
}

TEST(LruCacheTest, ManyThreadsSeeWholeValuesAndTheSumStaysExact) {
    constexpr int KEYS = 40;
    Core::LruCache<int, std::vector<int>> cache(100, KEYS);
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::vector<int> out;
            for (int i = 0; i < 3000; ++i) {
                const int key = (i * 7 + t * 13) % KEYS;
                cache.getOrLoad(key, out, [key](std::vector<int>& value) {
                    value.assign(static_cast<size_t>(key), key);
                    return true;
                });
                wrong += out != std::vector<int>(static_cast<size_t>(key), key);
                if (i % 1000 == 999) {
                    cache.clear();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    size_t sum = 0;
    for (int key = 0; key < KEYS; ++key) {
        sum += cache.contains(key) ? static_cast<size_t>(key) : 0;
    }
    EXPECT_EQ(cache.usedSize(), sum);
}

TEST(GroupedLruCacheTest, TheCapacityCountsEntriesOfAllGroups) {
    Grouped cache(3);
    std::string out;
    cache.insert(1, 10, "a");
    cache.insert(2, 10, "b");
    cache.insert(2, 11, "c");
    EXPECT_TRUE(cache.get(1, 10, out));
    cache.insert(3, 10, "d");
    EXPECT_EQ(cache.size(), 3u);
    EXPECT_FALSE(cache.get(2, 10, out));
    EXPECT_TRUE(cache.get(1, 10, out));
    EXPECT_EQ(out, "a");

    cache.insert(1, 10, "again");
    EXPECT_TRUE(cache.get(1, 10, out));
    EXPECT_EQ(out, "a");
    EXPECT_EQ(cache.size(), 3u);
}

TEST(GroupedLruCacheTest, AGroupIsDroppedAsAWhole) {
    Grouped cache(10);
    std::string out = "kept";
    cache.insert(1, 10, "a");
    cache.insert(1, 11, "b");
    cache.insert(2, 10, "c");
    cache.eraseGroup(1);
    cache.eraseGroup(5);
    EXPECT_FALSE(cache.get(1, 10, out));
    EXPECT_EQ(out, "kept");
    EXPECT_TRUE(cache.get(2, 10, out));
    EXPECT_EQ(cache.size(), 1u);
    cache.clear();
    EXPECT_FALSE(cache.get(2, 10, out));
}

TEST(GroupedLruCacheTest, ACapacityOfOneKeepsTheNewest) {
    Grouped cache(1);
    std::string out;
    cache.insert(1, 1, "a");
    cache.insert(1, 2, "b");
    EXPECT_FALSE(cache.get(1, 1, out));
    EXPECT_TRUE(cache.get(1, 2, out));
}

}  // namespace
