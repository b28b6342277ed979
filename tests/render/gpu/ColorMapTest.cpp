#include <render/gpu/ColorMap.h>

#include <gtest/gtest.h>

#include <array>

using Render::ColorMap;

// The two enumerations are numbered differently, and both numberings are fixed from outside.
TEST(ColorMap, NamesTheSpectrumOfTheSameMap) {
    constexpr std::array<int, 13> spectra = {8, 9, 11, 12, 10, 0, 2, 13, 14, 15, 16, 17, 18};
    for (size_t map = 0; map < spectra.size(); ++map) {
        EXPECT_EQ(int{Render::spectrumName(static_cast<ColorMap>(map))}, spectra[map]) << "map " << map;
    }
    EXPECT_EQ(int{Render::spectrumName(static_cast<ColorMap>(42))}, 8);
    EXPECT_EQ(int{Render::spectrumName(static_cast<ColorMap>(-1))}, 8);
}
