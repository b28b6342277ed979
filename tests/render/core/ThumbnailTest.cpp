#include <graphics/ColorImage.h>
#include <gtest/gtest.h>
#include <octree/potree/FileSystemLocation.h>
#include <render/core/Camera.h>
#include <render/renderables/Thumbnail.h>
#include <tests/support/PotreeFixture.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace {

using P = Math::Point<float, 3>;

const Math::Color kBackground(10, 120, 200, 255);

class Thumbnail : public ::testing::Test {
protected:
    // The fixture's box is 256 x 128 x 256 from its corner; the eye lies beyond the top corner raised by 0.3
    // * 256.
    Thumbnail() {
        camera.setViewport(400, 300);
        camera.setPose(P(396.8f, 198.4f, 558.08f), P(128.0f, 64.0f, 128.0f), Eigen::Vector3f::UnitZ());
        camera.setPerspective(20.0f, 1.0f, 2000.0f, 0.0f, 0.0f);
    }
    Math::Color colorAt(const Graphics::ColorImage& image, const P& point) const {
        const Eigen::Vector3f pixel = camera.project(point).vector();
        return image.pixel(static_cast<size_t>(pixel.x()), static_cast<size_t>(pixel.y()));
    }

    Support::PotreeFixture store;
    std::filesystem::path file = store.folder.path() / "thumbnail.png";
    Render::Camera camera{true};
};

TEST_F(Thumbnail, showsTheLevelsAskedForFromAboveAndReplacesTheOldPicture) {
    const P ofTheRoot(256.0f, 128.0f, 256.0f);
    const P ofAChild(175.0f, 25.0f, 7.5f);
    store.folder.write("thumbnail.png", "not a picture");
    Render::createThumbnail(store.folder.path(), 400, 300, kBackground, 0);
    const Graphics::ColorImage root = Graphics::ColorImage::readPng(file);
    ASSERT_EQ(root.width(), 400u);
    ASSERT_EQ(root.height(), 300u);
    EXPECT_EQ(root.pixel(0, 0), kBackground);
    EXPECT_EQ(colorAt(root, ofTheRoot), Math::Color(0, 0, 17, 255));
    EXPECT_EQ(colorAt(root, ofAChild), kBackground);

    // Deeper than any octree, and with a trailing separator.
    Render::createThumbnail(store.folder.path() / "", 400, 300, kBackground, 1000);
    const Graphics::ColorImage all = Graphics::ColorImage::readPng(file);
    EXPECT_EQ(colorAt(all, ofTheRoot), Math::Color(0, 0, 17, 255));
    // Its neighbour a quarter to the side differs by one.
    EXPECT_NEAR(colorAt(all, ofAChild).r(), 188, 1);
    EXPECT_NEAR(colorAt(all, ofAChild).g(), 100, 1);
}

TEST_F(Thumbnail, touchesNothingWithoutACloud) {
    store.folder.write("thumbnail.png", "old");
    try {
        const PoTree::FileSystemLocation nowhere(store.folder.path() / "nowhere");
        Render::createThumbnail(nowhere, file, 40, 30, kBackground, 1);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& error) {
        EXPECT_EQ(std::string(error.what()), "createThumbnail: locationPotree does not exist");
    }
    EXPECT_EQ(store.folder.read("thumbnail.png"), "old");
}

TEST_F(Thumbnail, tellsHowItGoesAndCanBeStopped) {
    const PoTree::FileSystemLocation location(store.folder.path());
    std::stop_source stop;
    store.folder.write("thumbnail.png", "old");
    const auto stopAtOnce = [&](const Render::LoadingProgress& progress) {
        EXPECT_GT(progress.residentPoints, 0u);
        stop.request_stop();
    };
    EXPECT_FALSE(
        Render::createThumbnail(location, file, 40, 30, kBackground, 9, stopAtOnce, stop.get_token()));
    EXPECT_EQ(store.folder.read("thumbnail.png"), "old");
    Render::LoadingProgress last;
    EXPECT_TRUE(Render::createThumbnail(location, file, 40, 30, kBackground, 9,
                                        [&](const auto& progress) { last = progress; }, {}));
    EXPECT_EQ(last.share(), 1.0);
    EXPECT_EQ(last.residentPoints, 6u);  // One node is too small at this size.
}

TEST_F(Thumbnail, saysThatTheOldPictureCannotBeRemoved) {
    std::filesystem::create_directories(file / "inside");
    try {
        Render::createThumbnail(store.folder.path(), 40, 30, kBackground, 1);
        FAIL() << "no exception";
    } catch (const std::filesystem::filesystem_error& error) {
        EXPECT_NE(std::string(error.what()).find("remove"), std::string::npos) << error.what();
        EXPECT_EQ(error.path1(), file);
    }
}

}  // namespace
