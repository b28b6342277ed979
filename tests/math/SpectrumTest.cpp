#include <math/Color.h>
#include <math/Spectrum.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using Math::Spectrum;
using Rgba = Spectrum::Rgba;

constexpr Rgba RED = {1, 0, 0, 1};
constexpr Rgba YELLOW = {1, 1, 0, 1};
constexpr Rgba GREEN = {0, 1, 0, 1};
constexpr Rgba DARK_GREEN = {0, 0.5f, 0, 1};

void expectNear(const Rgba& actual, const Rgba& expected, float tolerance, const std::string& what) {
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_NEAR(actual[i], expected[i], tolerance) << what << ", channel " << i;
    }
}

/// Colours every scale is known to have at three places, independent of how it is computed.
TEST(SpectrumTest, ScalesPassThroughTheirKnownColours) {
    struct Known {
        Spectrum::SpectrumNames name;
        float tolerance;
        Rgba low, middle, high;
    };
    const Known scales[] = {
        {Spectrum::Gray, 0, {0, 0, 0, 1}, {0.5f, 0.5f, 0.5f, 1}, {1, 1, 1, 1}},
        {Spectrum::Jet, 1e-6f, {0, 0, 0.5f, 1}, {0.5f, 1, 0.5f, 1}, {0.5f, 0, 0, 1}},
        {Spectrum::Bone, 1e-6f, {0, 0, 0, 1}, {0.4375f, 0.479167f, 0.5625f, 1}, {1, 1, 1, 1}},
        {Spectrum::Hot, 1e-6f, {0, 0, 0, 1}, {1, 0.5f, 0, 1}, {1, 1, 1, 1}},
        {Spectrum::Thermo, 1e-6f, {0, 0, 0, 1}, {0, 1, 0.5f, 1}, {1, 1, 1, 1}},
        {Spectrum::Hsv, 1e-6f, {1, 0, 0, 1}, {0, 1, 0.5f, 1}, {1, 0, 0, 1}},
        {Spectrum::CubeHelixDefault, 1e-5f, {0, 0, 0, 1}, {0.702278f, 0.420137f, 0.376691f, 1}, {1, 1, 1, 1}},
        {Spectrum::CubeHelixRainbow,
         1e-5f,
         {0.272207f, 0.327747f, 0.681521f, 1},
         {0.909422f, 0.831301f, 0.333688f, 1},
         {0.272207f, 0.327747f, 0.681521f, 1}},
        {Spectrum::BlueGreenRed, 0, {0, 0, 1, 1}, {0, 1, 0, 1}, {1, 0, 0, 1}},
        {Spectrum::RedWhiteBlue, 0, {1, 0, 0, 1}, {1, 1, 1, 1}, {0, 0, 1, 1}},
        {Spectrum::CoolWarm,
         1e-6f,
         {0.2314f, 0.2980f, 0.7529f, 1},
         {0.8667f, 0.8667f, 0.8667f, 1},
         {0.7059f, 0, 0.1490f, 1}},
        // Exact sums: the polynomial leaves the table it stands for by up to 0.13.
        {Spectrum::Turbo,
         1e-4f,
         {0.13572f, 0.09140f, 0.10667f, 1},
         {0.58852f, 0.98186f, 0.31317f, 1},
         {0.56586f, 0.05039f, -0.02552f, 1}},
        {Spectrum::Inferno, 0.03f, {0, 0, 0.01f, 1}, {0.74f, 0.21f, 0.33f, 1}, {0.99f, 1, 0.64f, 1}},
        {Spectrum::Magma, 0.03f, {0, 0, 0.01f, 1}, {0.72f, 0.21f, 0.48f, 1}, {0.99f, 0.99f, 0.75f, 1}},
        {Spectrum::Viridis, 0.03f, {0.27f, 0, 0.33f, 1}, {0.13f, 0.57f, 0.55f, 1}, {0.99f, 0.91f, 0.14f, 1}},
        {Spectrum::Plasma,
         0.03f,
         {0.05f, 0.03f, 0.53f, 1},
         {0.80f, 0.28f, 0.47f, 1},
         {0.94f, 0.98f, 0.13f, 1}},
    };
    for (const Known& scale : scales) {
        const std::string name = "scale " + std::to_string(scale.name);
        expectNear(Spectrum::evaluate(scale.name, 0.0f), scale.low, scale.tolerance, name + " at 0");
        expectNear(Spectrum::evaluate(scale.name, 0.5f), scale.middle, scale.tolerance, name + " at 1/2");
        expectNear(Spectrum::evaluate(scale.name, 1.0f), scale.high, scale.tolerance, name + " at 1");
    }
}

/// Finds wrong signs, swapped pieces and missing ones: none of the smooth scales jumps.
TEST(SpectrumTest, SmoothScalesHaveNoJumps) {
    for (const int name : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 17, 19}) {
        const auto scale = static_cast<Spectrum::SpectrumNames>(name);
        Rgba previous = Spectrum::evaluate(scale, 0.0f);
        for (int i = 1; i <= 2000; ++i) {
            const float x = static_cast<float>(i) / 2000.0f;
            const Rgba color = Spectrum::evaluate(scale, x);
            expectNear(color, previous, 0.01f, "scale " + std::to_string(name) + " at " + std::to_string(x));
            previous = color;
        }
    }
}

TEST(SpectrumTest, AllButGrayClampTheirInput) {
    for (int name = 1; name < 20; ++name) {
        const auto scale = static_cast<Spectrum::SpectrumNames>(name);
        const Spectrum::Limits all = {-10, 10, 0.25f, 0.75f};
        EXPECT_EQ(Spectrum::evaluate(scale, -3, all), Spectrum::evaluate(scale, 0, all)) << name;
        EXPECT_EQ(Spectrum::evaluate(scale, 3, all), Spectrum::evaluate(scale, 1, all)) << name;
        EXPECT_EQ(Spectrum::evaluate(scale, std::numeric_limits<float>::quiet_NaN(), all),
                  Spectrum::evaluate(scale, 0, all))
            << name;
    }
    EXPECT_EQ(Spectrum::evaluate(Spectrum::Gray, 1.5f), (Rgba{1.5f, 1.5f, 1.5f, 1}));
    EXPECT_EQ(Spectrum::evaluate(static_cast<Spectrum::SpectrumNames>(42), 0.3f),
              Spectrum::evaluate(Spectrum::Turbo, 0.3f));
}

TEST(SpectrumTest, StepsBelongToTheNextClass) {
    EXPECT_EQ(Spectrum::evaluate(Spectrum::LevelOfAccuracy, 0.0f), DARK_GREEN);
    EXPECT_EQ(Spectrum::evaluate(Spectrum::LevelOfAccuracy, 1.0f / 150.0f), GREEN);
    EXPECT_EQ(Spectrum::evaluate(Spectrum::LevelOfAccuracy, 14.9f / 150.0f), YELLOW);
    EXPECT_EQ(Spectrum::evaluate(Spectrum::LevelOfAccuracy, 50.0f / 150.0f), RED);
    EXPECT_EQ(Spectrum::evaluate(Spectrum::LevelOfAccuracyImperial, 3.9f / 96.0f), GREEN);
    EXPECT_EQ(Spectrum::evaluate(Spectrum::LevelOfAccuracyImperial, 32.0f / 96.0f), RED);
}

TEST(SpectrumTest, DistanceLimitsAreInUnitsOfTheDistance) {
    const Spectrum::Limits limits = {-5, 15, -1, 11};
    const auto at = [&](float distance) {
        return Spectrum::colorizeByDistance(distance, -10, 20, Spectrum::TrafficLight, limits);
    };
    EXPECT_EQ(at(-6), RED);
    EXPECT_EQ(at(-3), YELLOW);
    EXPECT_EQ(at(5), DARK_GREEN);
    EXPECT_EQ(at(12), YELLOW);
    EXPECT_EQ(at(16), RED);
    EXPECT_EQ(Spectrum::colorizeByDistance(12, -10, 20, Spectrum::PassFail, limits), DARK_GREEN);
}

TEST(SpectrumTest, BrightnessIsAddedBeforeContrastScalesAroundGrey) {
    const Rgba color = {0.2f, 0.4f, 0.6f, 0.5f};
    expectNear(Spectrum::adjustBrightnessContrast(color, 0, 2), {0, 0.3f, 0.7f, 0.5f}, 1e-6f, "contrast");
    expectNear(Spectrum::adjustBrightnessContrast(color, 0.2f, 2), {0.3f, 0.7f, 1, 0.5f}, 1e-6f, "both");
}

}  // namespace
