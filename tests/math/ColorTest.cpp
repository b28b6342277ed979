#include <math/Color.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

using Math::Color;

TEST(ColorTest, BytesLieAsBlueGreenRedAlphaAndPackToArgb) {
    const Color color(1, 2, 3, 4);
    uint8_t bytes[4];
    std::memcpy(bytes, &color, sizeof bytes);
    EXPECT_EQ(bytes[0], 3);
    EXPECT_EQ(bytes[1], 2);
    EXPECT_EQ(bytes[2], 1);
    EXPECT_EQ(bytes[3], 4);
    EXPECT_EQ(color.packed(), 0x04010203u);
    EXPECT_EQ(Color(0x04010203u), color);
    EXPECT_EQ(Color().packed(), 0u);
    EXPECT_EQ(color.toFloats(), (std::array<float, 4>{1 / 255.0f, 2 / 255.0f, 3 / 255.0f, 4 / 255.0f}));
}

/// The primaries' places in HSLuv are published with the colour space.
TEST(ColorTest, HslUvReachesThePrimaries) {
    EXPECT_EQ(Color::fromHslUv(12.17705, 1.0, 0.5323712, 1.0), Color(255, 0, 0));
    EXPECT_EQ(Color::fromHslUv(127.71501, 1.0, 0.8773510, 1.0), Color(0, 255, 0));
    EXPECT_EQ(Color::fromHslUv(265.87432, 1.0, 0.3230087, 0.5), Color(0, 0, 255, 128));
    EXPECT_EQ(Color::fromHslUv(12.17705 - 720.0, 1.0, 0.5323712, 1.0), Color(255, 0, 0));
}

TEST(ColorTest, HslUvStaysInGamutAndGreyWithoutSaturation) {
    for (int hue = 0; hue < 360; ++hue) {
        const Color vivid = Color::fromHslUv(hue, 1.0, 0.6, 1.0);
        const int low = std::min({vivid.r(), vivid.g(), vivid.b()});
        const int high = std::max({vivid.r(), vivid.g(), vivid.b()});
        EXPECT_TRUE(low == 0 || high == 255) << "full saturation lies on the gamut's surface, hue " << hue;

        const Color gray = Color::fromHslUv(hue, 0.0, 0.6, 1.0);
        EXPECT_EQ(gray, Color::gray(145)) << hue;
    }
    EXPECT_EQ(Color::fromHslUv(40, 1, 0, 1), Color::black());
    EXPECT_EQ(Color::fromHslUv(40, 1, 1, 0), Color::white(0));
}

}  // namespace
