#include <gtest/gtest.h>
#include <render/core/WorldPositions.h>

#include <limits>
#include <optional>
#include <random>
#include <vector>

namespace {

using P = Math::Point<float, 3>;

constexpr long long kWidth = 13;
constexpr long long kHeight = 9;
constexpr size_t kPitch = 16;  // Texels a row: the device pads.

/// Random positions on a few depths, so that ties occur; every third pixel is empty.
class WorldPositionsTest : public testing::Test {
protected:
    WorldPositionsTest() {
        std::uniform_int_distribution<int> value(0, 3);
        for (size_t i = 0; i < texels.size(); i += 4) {
            const bool drawn = random() % 3 != 0;
            for (size_t k = 0; k < 3; ++k) {
                texels[i + k] = static_cast<float>(drawn ? value(random) : 0);
            }
            texels[i + 3] = drawn ? 1.0f : 0.0f;
        }
    }

    /// Every rule once more, pixel by pixel and with signed numbers.
    std::optional<P> closest(long long x, long long y, long long t, const P& eye) const {
        std::optional<P> best;
        if (x >= kWidth || y >= kHeight) {
            return best;
        }
        for (long long i = 0; i < kWidth; ++i) {
            for (long long j = 0; j < kHeight; ++j) {
                const bool lastColumn = i == std::min(std::max(x + t, 0LL), kWidth - 1);
                const bool lastRow = j == std::min(std::max(y + t, 0LL), kHeight - 1);
                const bool near = i >= std::min(x - t, kWidth - 1) && i <= x + t &&
                                  j >= std::min(y - t, kHeight - 1) && j <= y + t;
                const float* texel = &texels[4 * (static_cast<size_t>(j) * kPitch + static_cast<size_t>(i))];
                if (!near || lastColumn || lastRow || texel[3] == 0) {
                    continue;
                }
                const P point(texel[0], texel[1], texel[2]);
                if (!best || Math::squaredDistance(eye, point) < Math::squaredDistance(eye, *best)) {
                    best = point;
                }
            }
        }
        return best;
    }

    static Render::WorldPositions::Square squareAround(size_t x, size_t y, size_t tolerance) {
        return Render::WorldPositions::squareAround(x, y, tolerance, kWidth, kHeight);
    }

    std::mt19937 random{11};
    std::vector<float> texels = std::vector<float>(4 * kPitch * kHeight);
    Render::WorldPositions positions{texels.data(), kWidth, kHeight, kPitch * 4 * sizeof(float)};
};

TEST_F(WorldPositionsTest, ThePickIsTheNearestOfTheSquareAndTheFirstOfEqualOnes) {
    std::uniform_int_distribution<int> place(0, 16);
    std::uniform_int_distribution<int> tolerance(0, 6);
    int hits = 0;
    for (int i = 0; i < 10000; ++i) {
        const int x = place(random);
        const int y = place(random);
        const int t = tolerance(random);
        const P eye(static_cast<float>(place(random)), 1, 2);
        const auto square =
            squareAround(static_cast<size_t>(x), static_cast<size_t>(y), static_cast<size_t>(t));
        P point(-1, -1, -1);
        const bool hit = positions.closest(square, eye, point);
        const auto expected = closest(x, y, t, eye);
        ASSERT_EQ(hit, expected.has_value()) << x << ' ' << y << ' ' << t;
        EXPECT_EQ(point, expected.value_or(P(-1, -1, -1)));
        EXPECT_EQ(hit, !positions.drawnPoints(square).empty());
        hits += hit ? 1 : 0;
    }
    EXPECT_GT(hits, 3000);
    EXPECT_LT(hits, 9000);
}

TEST_F(WorldPositionsTest, TheLastColumnAndRowOfTheSquareAreLeftOut) {
    const auto around = squareAround(5, 4, 1);
    EXPECT_EQ(around.left, 4u);
    EXPECT_EQ(around.right, 6u);
    EXPECT_EQ(around.top, 3u);
    EXPECT_EQ(around.bottom, 5u);
    EXPECT_EQ(squareAround(12, 4, 3).left, 9u);
    EXPECT_EQ(squareAround(12, 4, 3).right, 12u);
    EXPECT_TRUE(squareAround(5, 4, 0).isEmpty());
    constexpr size_t huge = std::numeric_limits<size_t>::max();
    EXPECT_EQ(squareAround(5, 4, huge).right, 12u);
    EXPECT_EQ(squareAround(5, 4, huge).left, 0u);
    EXPECT_TRUE(squareAround(huge, 4, 2).isEmpty());
    EXPECT_TRUE(squareAround(13, 4, 6).isEmpty());
}

TEST_F(WorldPositionsTest, RepeatedPointsAreCollectedOnce) {
    for (size_t i = 0; i < texels.size(); i += 4) {
        const auto column = static_cast<float>(i / 4 % kPitch);
        const float values[] = {column, i / 4 / kPitch < 4 ? 0.0f : 1.0f, 0, column == 2 ? 0.0f : 1.0f};
        std::copy(std::begin(values), std::end(values), &texels[i]);
    }
    EXPECT_EQ(positions.drawnPoints({1, 4, 0, 8}),
              (std::vector<P>{P(1, 0, 0), P(1, 1, 0), P(3, 0, 0), P(3, 1, 0)}));
}

}  // namespace
