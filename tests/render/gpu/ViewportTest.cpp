#include <render/gpu/Viewport.h>

#include <gtest/gtest.h>

#include <sstream>

using Render::Viewport;

TEST(Viewport, PrintsItsFields) {
    Viewport viewport(-3, 4, 800, 600);
    viewport.setDepthRange(0.25f, 0.75f);
    std::ostringstream text;
    text << Viewport() << viewport;
    EXPECT_EQ(text.str(), "[0, 0, 640, 480, 0, 1][-3, 4, 800, 600, 0.25, 0.75]");
}

TEST(Viewport, AspectRatioIsASinglePrecisionQuotient) {
    EXPECT_EQ(Viewport(1920, 1080).aspectRatio(), double{1920.0f / 1080.0f});
    EXPECT_NE(Viewport(1920, 1080).aspectRatio(), 1920.0 / 1080.0);
}

TEST(Viewport, EqualityIgnoresTheDepthRange) {
    Viewport whole(10, 20, 30, 40);
    Viewport part = whole;
    part.setDepthRange(0.5f, 1.0f);
    EXPECT_TRUE(whole == part);
    EXPECT_FALSE(whole != part);
    EXPECT_NE(whole, Viewport(11, 20, 30, 40));
    EXPECT_NE(whole, Viewport(10, 20, 30, 41));
}

TEST(Viewport, SettersKeepTheDepthRange) {
    Viewport viewport(10, 20, 30, 40);
    viewport.setDepthRange(0.5f, 0.75f);
    viewport.set(7, 9);
    EXPECT_EQ(viewport, Viewport(0, 0, 7, 9));
    EXPECT_EQ(viewport.minDepth(), 0.5f);
    EXPECT_EQ(viewport.maxDepth(), 0.75f);
}
