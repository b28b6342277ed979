#include <octree/potree/FileSystemLocation.h>
#include <render/core/Renderer.h>
#include <render/pointcloud/PointCloudRenderable.h>
#include <tests/support/ImageComparison.h>
#include <tests/support/PotreeFixture.h>
#include <tools/lumaro/SampleScene.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <ostream>
#include <stop_token>
#include <string>

namespace {

using Place = Math::Point<float, 3>;
using Render::Renderer;
using Render::RenderMode;

constexpr size_t POINT_COUNT = 60000;

/// Two rasterisers put the rim of a disc, or a line, one pixel further here and there; all else is the same.
constexpr TestSupport::ImageTolerance TOLERANCE{2, 0.005};

struct View {
    const char* name;
    std::function<void(Renderer&, Render::PointCloudRenderable&)> setUp;

    friend std::ostream& operator<<(std::ostream& stream, const View& view) { return stream << view.name; }
};

// The cube's centre, 81.92 m from the offset on each axis, is the origin.
void lookFromAbove(Renderer& renderer) {
    renderer.setCameraPose(Place(130.0f, 140.0f, 40.0f), Place(-8.0f, -5.0f, -70.0f),
                           Eigen::Vector3f::UnitZ());
    renderer.setPerspective(40.0f, 0.01f, 1000.0f, 0.0f, 0.0f);
}

void lookStraightDown(Renderer& renderer) {
    renderer.setCameraPose(Place(0.0f, 0.0f, 50.0f), Place(0.0f, 0.0f, 0.0f), Eigen::Vector3f::UnitY());
    renderer.setOrthographic(170.0f, -1.0f, 1.0f);
}

void lookDownTheStreet(Renderer& renderer) {
    renderer.setCameraPose(Place(70.0f, 22.0f, -60.0f), Place(-10.0f, 0.0f, -68.0f),
                           Eigen::Vector3f::UnitZ());
    renderer.setPerspective(50.0f, 0.01f, 1000.0f, 0.0f, 0.0f);
}

const View VIEWS[] = {
    {"overview", [](Renderer& renderer, auto&) { lookFromAbove(renderer); }},
    {"street", [](Renderer& renderer, auto&) { lookDownTheStreet(renderer); }},
    {"street-large-points",
     [](Renderer& renderer, Render::PointCloudRenderable& cloud) {
         lookDownTheStreet(renderer);
         renderer.setBackgroundColor(20, 30, 60, 255);
         cloud.setMaxPointSize(14.0f);
     }},
    {"intensity-from-above",
     [](Renderer& renderer, auto&) {
         lookStraightDown(renderer);
         renderer.setRenderMode(RenderMode::Intensity);
     }},
    {"height",
     [](Renderer& renderer, auto&) {
         lookFromAbove(renderer);
         renderer.setRenderMode(RenderMode::PlaneDistance);
         renderer.setColorMap(Render::ColorMap::Viridis);
         const auto box = renderer.boundingBox();
         renderer.setColorizationRange(Place(0.0f, 0.0f, box.min.z()), Place(0.0f, 0.0f, box.max.z()),
                                       Render::ColorMap::Viridis);
     }},
    {"tomographic-dark",
     [](Renderer& renderer, Render::PointCloudRenderable& cloud) {
         lookStraightDown(renderer);
         renderer.setRenderMode(RenderMode::TomographicDark);
         cloud.setTomographicContrast(0.2f);
     }},
    {"uniform-boxes",
     [](Renderer& renderer, Render::PointCloudRenderable& cloud) {
         lookFromAbove(renderer);
         renderer.setRenderMode(RenderMode::UniformColor);
         cloud.setUniformColor(Math::Color(90, 150, 255));
         cloud.setShowBoundingBoxes(true);
     }},
};

class Golden : public testing::TestWithParam<View> {
protected:
    static void SetUpTestSuite() {
        sFolder = std::make_unique<Support::TemporaryFolder>();
        ASSERT_TRUE(Tool::writeSampleStore(sFolder->path() / "store", POINT_COUNT));
    }
    static void TearDownTestSuite() { sFolder.reset(); }

    static inline std::unique_ptr<Support::TemporaryFolder> sFolder;
};

}  // namespace

TEST_P(Golden, LooksAsBefore) {
    const auto cloud = Render::PointCloudRenderable::create(
        PoTree::FileSystemLocation(sFolder->path() / "store"), "village", 10 * POINT_COUNT, 1.0);
    Renderer renderer(true);
    renderer.setViewport(320, 240);
    renderer.setScene(cloud);
    GetParam().setUp(renderer, *cloud);
    renderer.setAutoAdjustZRange(true);
    cloud->reloadPoints(std::function<void()>(), 21, std::stop_token());
    renderer.render();
    Graphics::ColorImage image;
    renderer.getColorImage(image);
    EXPECT_TRUE(TestSupport::matchesGolden(image, GetParam().name, TOLERANCE));
}

std::string testName(const testing::TestParamInfo<View>& view) {
    std::string name = view.param.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(SampleScene, Golden, testing::ValuesIn(VIEWS), testName);

TEST(ImageComparison, CountsPixelsBeyondTheTolerance) {
    Graphics::ColorImage a(10, 10);
    a.fill(Math::Color(100, 100, 100));
    Graphics::ColorImage b = a;
    b.setPixel(3, 4, Math::Color(100, 103, 100));
    b.setPixel(5, 6, Math::Color(100, 100, 100, 250));
    const auto exact = TestSupport::compareImages(a, b, 0);
    EXPECT_EQ(exact.badPixels, 2U);
    EXPECT_EQ(exact.largestError, 5);
    EXPECT_FALSE(exact.within({}));
    EXPECT_TRUE(exact.within({0, 0.02}));
    EXPECT_EQ(TestSupport::compareImages(a, b, 3).badPixels, 1U);
    EXPECT_EQ(TestSupport::compareImages(a, Graphics::ColorImage(10, 9), 255).badPixels, 100U);
}
