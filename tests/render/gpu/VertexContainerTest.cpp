#include <bench/AllocationCounter.h>
#include <core/LruCache.h>
#include <render/gpu/VertexContainer.h>

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <thread>
#include <utility>
#include <vector>

using Render::VertexContainer;

namespace {

/// Vertices whose scan index is their number.
VertexContainer numbered(size_t count) {
    VertexContainer vertices;
    vertices.resize(count);
    for (size_t i = 0; i < count; ++i) {
        vertices.setScanIndex(i, static_cast<unsigned short>(i));
    }
    return vertices;
}

std::vector<int> numbers(const VertexContainer& vertices) {
    std::vector<int> result;
    for (size_t i = 0; i < vertices.size(); ++i) {
        result.push_back(vertices.data()[i].scanIndex);
    }
    return result;
}

}  // namespace

TEST(VertexContainer, IntensityKeepsTheHighByte) {
    VertexContainer vertices = numbered(3);
    vertices.setIntensity(0, 0x01FF);
    vertices.setIntensity(1, 0xFFFF);
    vertices.setIntensity(2, 0x00FF);
    EXPECT_EQ(vertices.data()[0].intensity, 1);
    EXPECT_EQ(vertices.data()[1].intensity, 255);
    EXPECT_EQ(vertices.data()[2].intensity, 0);
}

TEST(VertexContainer, DistancesOfAnotherCountChangeNothing) {
    VertexContainer vertices = numbered(2);
    EXPECT_THROW(vertices.setDistances({1.0f}), std::runtime_error);
    EXPECT_EQ(vertices.data()[0].distance, std::numeric_limits<float>::max());
    vertices.setDistances({1.0f, 2.0f});
    EXPECT_EQ(vertices.data()[1].distance, 2.0f);
}

TEST(VertexContainer, CompleteDropsHiddenVerticesInOrder) {
    VertexContainer vertices = numbered(5);
    vertices.complete();
    EXPECT_EQ(vertices.size(), 5u);
    vertices.setVisibility(0, 1);
    vertices.setVisibility(3, 255);
    vertices.complete();
    EXPECT_EQ(numbers(vertices), (std::vector<int>{1, 2, 4}));
    // The visibilities are used up: a second pass has none to apply.
    vertices.complete();
    EXPECT_EQ(vertices.size(), 3u);
}

TEST(VertexContainer, CompleteCanDropEveryVertex) {
    VertexContainer vertices = {VertexContainer::Vertex()};
    vertices.setVisibility(0, 1);
    vertices.complete();
    EXPECT_EQ(vertices.size(), 0u);
    vertices.complete();
}

TEST(VertexContainer, CompleteDoesNothingWhenVisibilitiesNoLongerMatch) {
    VertexContainer vertices = numbered(4);
    for (size_t i = 0; i < 4; ++i) {
        vertices.setColor(i, 1, 2, 3, static_cast<unsigned char>(i == 1 || i == 2 ? 0 : 10));
    }
    vertices.setVisibility(0, 1);
    vertices.clearFullyTransparentPoints();
    EXPECT_EQ(numbers(vertices), (std::vector<int>{0, 3}));
    vertices.complete();
    EXPECT_EQ(numbers(vertices), (std::vector<int>{0, 3}));
}

TEST(VertexContainer, CopiesShareTheVerticesUntilOneIsWritten) {
    VertexContainer original = numbered(2);
    const VertexContainer copy = original;
    VertexContainer written = original;
    EXPECT_EQ(copy.data(), std::as_const(original).data());
    written.setScanIndex(0, 7);
    original.setVisibility(0, 1);
    original.complete();
    EXPECT_EQ(numbers(written), (std::vector<int>{7, 1}));
    EXPECT_EQ(numbers(original), (std::vector<int>{1}));
    EXPECT_EQ(numbers(copy), (std::vector<int>{0, 1}));

    // A pointer that was got for writing writes to its own container only.
    VertexContainer::Vertex* const pointer = written.data();
    VertexContainer later = written;
    pointer[1].scanIndex = 8;
    EXPECT_EQ(numbers(written), (std::vector<int>{7, 8}));
    EXPECT_EQ(numbers(later), (std::vector<int>{7, 1}));
    written.complete();
    later = written;
    EXPECT_EQ(std::as_const(later).data(), std::as_const(written).data());
}

TEST(VertexContainer, ACopyOnAnotherThreadIsThroughBeforeItsVerticesAreWritten) {
    VertexContainer mine = numbered(1000);
    std::atomic<bool> gone = false;
    std::thread other([&gone, copy = mine]() mutable {
        EXPECT_EQ(numbers(std::exchange(copy, VertexContainer())).back(), 999);
        gone.store(true, std::memory_order_relaxed);  // Orders nothing: that is the container's part.
    });
    while (!gone.load(std::memory_order_relaxed)) {
        std::this_thread::yield();
    }
    mine.setScanIndex(999, 0);
    other.join();
}

// What a cache, a resident set and a publication hold of the same nodes.
TEST(VertexContainer, APointHeldInThreePlacesTakes24BytesOfMemoryAndLittleMore) {
    constexpr size_t NODES = 20;
    constexpr size_t POINTS = 5000;
    std::vector<VertexContainer> resident(NODES);
    std::vector<VertexContainer> published(NODES);
    const size_t before = allocatedBytes();
    Core::LruCache<size_t, VertexContainer> cache(NODES * POINTS, NODES);
    for (size_t node = 0; node < NODES; ++node) {
        cache.getOrLoad(node, resident[node], [](VertexContainer& loaded) {
            loaded = numbered(POINTS);
            loaded.setVisibility(0, 0);
            loaded.complete();
            return true;
        });
        published[node] = resident[node];
    }
    const double bytesPerPoint = static_cast<double>(allocatedBytes() - before) / (NODES * POINTS);
    EXPECT_GE(bytesPerPoint, 24.0);
    EXPECT_LE(bytesPerPoint, 24.0 * 1.05);
}
