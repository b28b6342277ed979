#include <graphics/ColorImage.h>
#include <gtest/gtest.h>
#include <octree/Octree.h>
#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>

#include <tests/support/RealData.h>

#include <filesystem>
#include <string>

namespace {

using Graphics::ColorImage;
using Math::Color;
using Math::Point;
using Render::PointCloudRenderable;
using TestSupport::realData;

constexpr unsigned size = 700;

/// Of the texels in which either picture shows something.
double differingShare(const ColorImage& a, const ColorImage& b) {
    std::size_t shown = 0, different = 0;
    for (std::size_t y = 0; y < size; ++y) {
        for (std::size_t x = 0; x < size; ++x) {
            const Color first = a.pixel(x, y), second = b.pixel(x, y);
            shown += first != Color::white() || second != Color::white() ? 1u : 0u;
            different += first != second ? 1u : 0u;
        }
    }
    EXPECT_GT(shown, size * size / 20);
    return static_cast<double>(different) / static_cast<double>(shown);
}

// Every point of a store as one pixel.
class StorePicturesTest : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(realData() / "potree")) {
            GTEST_SKIP() << "the real stores are not here: " << realData();
        }
        mRenderer.setViewport(size, size);
        mRenderer.setBackgroundColor(255, 255, 255, 255);
    }

    /// Looks at the store from beside and above; stores drawn later stand in absolute coordinates beside it.
    void lookAt(const std::string& store) {
        const Octree::Octree octree(Octree::Location::fromPath(realData() / store));
        mOrigin = octree.referencePosition();
        const auto box = octree.boundingBox();
        const float diagonal = box.size().length();
        mRenderer.setOrthographic(diagonal, 0.1f * diagonal, 4.0f * diagonal);
        mRenderer.setCameraPose(box.center() + Point<float, 3>(0.7f, -1.3f, 1.1f) * diagonal, box.center(),
                                Eigen::Vector3f::UnitZ());
    }

    ColorImage pictureOf(const std::string& store, const Point<double, 3>& moved = {0, 0, 0}) {
        const auto octree = std::make_shared<Octree::Octree>(Octree::Location::fromPath(realData() / store));
        const auto cloud = PointCloudRenderable::create(octree, store, 2'000'000);
        const Point<float, 3> place = (octree->referencePosition() - mOrigin + moved).cast<float>();
        Eigen::Matrix4f matrix = Eigen::Matrix4f::Identity();
        matrix.col(3).head<3>() << place.x(), place.y(), place.z();
        cloud->setMatrix(matrix);
        cloud->setMinLevelToKeep(21);
        cloud->setMaxPointSize(1.0f);
        mRenderer.setScene(cloud);
        cloud->reloadPoints(nullptr, 21, {});
        EXPECT_EQ(cloud->numVisiblePoints(), octree->totalPointCount()) << store;
        ColorImage picture;
        mRenderer.render();
        mRenderer.getColorImage(picture);
        return picture;
    }

private:
    Render::Renderer mRenderer{true};
    Point<double, 3> mOrigin;
};

TEST_F(StorePicturesTest, OneCloudLooksTheSameAtFullDetailFromEveryKindOfStore) {
    const auto steps = [](double count) { return Point<double, 3>(count, count, count) * 0.001; };
    lookAt("potree/lion-brotli");
    const ColorImage brotli = pictureOf("potree/lion-brotli");
    // Its converter counts a step too far.
    EXPECT_LT(differingShare(pictureOf("potree/lion-uncompressed", steps(1)), brotli), 0.001);

    const ColorImage binary = pictureOf("ept/lion-binary");
    for (const char* const other : {"ept/lion-zstandard", "ept/lion-laszip", "ept/lion-laszip14"}) {
        EXPECT_LT(differingShare(pictureOf(other), binary), 0.001) << other;
    }
    // The converters round differently: by up to a tenth of a pixel, which now and then brings another of two
    // close points to the front. Ten steps are a pixel.
    EXPECT_LT(differingShare(binary, brotli), 0.15);
    EXPECT_GT(differingShare(pictureOf("ept/lion-binary", steps(10)), brotli), 0.9);
}

}  // namespace
