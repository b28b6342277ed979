#include <graphics/ColorImage.h>
#include <graphics/DepthImage.h>

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <stdexcept>

namespace {

using Graphics::ColorImage;
using Graphics::DepthImage;
using Math::Color;

TEST(ImageTest, RowsLieAStrideApart) {
    ColorImage image;
    image.resize(3, 2, 20);
    EXPECT_EQ(image.stride(), 20u);
    EXPECT_EQ(image.sizeInBytes(), 40u);
    std::memset(image.data(), 0xee, image.sizeInBytes());
    image.fill(Color(1, 2, 3, 4));
    image.setPixel(2, 1, Color(9, 8, 7, 6));
    EXPECT_EQ(image.data()[20 + 8 + 2], 9) << "red is the third byte";
    EXPECT_EQ(image.data()[12], 0xee) << "padding is not touched";
    EXPECT_EQ(image.pixel(1, 1), Color(1, 2, 3, 4));

    image.resize(3, 2);
    EXPECT_EQ(image.sizeInBytes(), 24u);
}

TEST(ImageTest, ImpossibleSizesAndPlacesAreRefusedAndLeaveTheImage) {
    DepthImage image(3, 2);
    image.fill(0.25f);
    EXPECT_THROW(image.resize(3, 2, 11), std::invalid_argument);
    EXPECT_THROW(image.resize(std::numeric_limits<size_t>::max() / 2, 1), std::length_error);
    EXPECT_THROW(image.resize(1, std::numeric_limits<size_t>::max() / 2), std::length_error);
    EXPECT_THROW(image.pixel(3, 0), std::out_of_range);
    EXPECT_THROW(image.setPixel(0, 2, 1.0f), std::out_of_range);
    EXPECT_EQ(image.pixel(2, 1), 0.25f);
}

TEST(ImageTest, AMovedImageLeavesAnEmptyOne) {
    ColorImage image(2, 2);
    const uint8_t* data = image.data();
    ColorImage taken(std::move(image));
    EXPECT_EQ(taken.data(), data);
    EXPECT_EQ(image.width(), 0u);
    EXPECT_THROW(image.pixel(0, 0), std::out_of_range);
    image = std::move(taken);
    EXPECT_EQ(image.data(), data);
}

}  // namespace
