#include <render/gpu/VertexContainer.h>

#include <gtest/gtest.h>

#include <limits>
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
