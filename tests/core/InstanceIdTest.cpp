#include <core/InstanceId.h>

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace {

struct Counted : Core::InstanceId<Counted> {};
struct CountedApart : Core::InstanceId<CountedApart> {};
struct CountedByThreads : Core::InstanceId<CountedByThreads> {};

TEST(InstanceIdTest, EachClassCountsFromZeroAndCopiesKeepTheirNumber) {
    const Counted first;
    const Counted copy = first;
    Counted second;
    EXPECT_EQ(first.id(), 0u);
    EXPECT_EQ(copy.id(), 0u);
    EXPECT_EQ(second.id(), 1u);
    EXPECT_EQ(CountedApart().id(), 0u);
    second = first;
    EXPECT_EQ(second.id(), 0u);
    EXPECT_EQ(Counted().id(), 2u);
}

TEST(InstanceIdTest, NumbersAreUniqueAcrossThreads) {
    std::vector<std::vector<size_t>> ids(4);
    std::vector<std::thread> threads;
    for (auto& own : ids) {
        threads.emplace_back([&own] {
            for (int i = 0; i < 2000; ++i) {
                own.push_back(CountedByThreads().id());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::set<size_t> all;
    for (const auto& own : ids) {
        all.insert(own.begin(), own.end());
    }
    EXPECT_EQ(all.size(), 8000u);
    EXPECT_EQ(*all.rbegin(), 7999u);
}

}  // namespace
