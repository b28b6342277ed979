#include <core/TripleBuffer.h>

#include <gtest/gtest.h>

#include <numeric>
#include <thread>
#include <vector>

namespace {

TEST(TripleBufferTest, TheReaderGetsTheNewestValueOnce) {
    Core::TripleBuffer<int> buffer;
    EXPECT_FALSE(buffer.swapRead());
    EXPECT_EQ(buffer.readSlot(), 0);

    for (const int value : {1, 2, 3}) {
        buffer.writeSlot() = value;
        buffer.swapWrite();
    }
    buffer.writeSlot() = 4;  // Not published.
    EXPECT_TRUE(buffer.swapRead());
    EXPECT_EQ(buffer.readSlot(), 3);
    EXPECT_FALSE(buffer.swapRead());
    EXPECT_EQ(buffer.readSlot(), 3);
}

TEST(TripleBufferTest, ValuesArriveWholeAndInOrderAcrossThreads) {
    constexpr int LAST = 20000;
    Core::TripleBuffer<std::vector<int>> buffer;
    std::thread writer([&] {
        for (int i = 1; i <= LAST; ++i) {
            buffer.writeSlot().assign(16, i);
            buffer.swapWrite();
        }
    });
    int previous = 0;
    while (previous < LAST) {
        if (!buffer.swapRead()) {
            std::this_thread::yield();
            continue;
        }
        const std::vector<int>& slot = buffer.readSlot();
        ASSERT_EQ(slot.size(), 16u);
        ASSERT_EQ(std::accumulate(slot.begin(), slot.end(), 0), 16 * slot.front());
        ASSERT_GT(slot.front(), previous);
        previous = slot.front();
    }
    writer.join();
}

}  // namespace
