#include "Patch.h"
#include "RecordingRenderable.h"

#include <graphics/ColorImage.h>
#include <graphics/DepthImage.h>
#include <gtest/gtest.h>
#include <render/core/Renderer.h>
#include <render/gpu/ComException.h>
#include <tests/support/FailingCalls.h>

#include <memory>
#include <vector>

namespace {

using Math::Color;
using P = Math::Point<float, 3>;

const Color kRed(255, 0, 0, 255);
const Color kGray(40, 80, 120, 255);

int copies = 0;

using CopyResource = void STDMETHODCALLTYPE(void*, ID3D11Resource*, ID3D11Resource*);
CopyResource* originalCopyResource = nullptr;

void STDMETHODCALLTYPE countCopy(void* context, ID3D11Resource* destination, ID3D11Resource* source) {
    ++copies;
    originalCopyResource(context, destination, source);
}

class RendererFailure : public ::testing::Test {
protected:
    RendererFailure() {
        renderer.setScene(scene);
        renderer.setViewport(37, 23);
        renderer.setBackgroundColor(kGray);
        scene->draw = [this] { patch.draw({-1.0f, -1.0f, 0.0f, 1.0f, 0.5f, kRed}); };
        renderer.render();
        originalCopyResource = failing.context().replace(TestSupport::ContextSlot::copyResource, &countCopy);
    }
    ~RendererFailure() override { scene->draw = nullptr; }

    template <class Call, class Check>
    static int failEachTime(Call call, Check check) {
        return TestSupport::FailingCalls::failEachInTurn<Render::ComException>(call, check);
    }

    Color pixel(size_t x, size_t y) {
        Graphics::ColorImage image;
        renderer.getColorImage(image);
        return image.pixel(x, y);
    }
    void expectPicture() {
        EXPECT_EQ(renderer.viewport().width(), 37u);
        EXPECT_EQ(pixel(3, 22), kRed);
        EXPECT_EQ(pixel(36, 0), kGray);
    }

    Render::Renderer renderer{true};
    Patch patch{renderer};
    std::shared_ptr<RecordingRenderable> scene = std::make_shared<RecordingRenderable>();
    TestSupport::FailingCalls failing{renderer.device(), renderer.deviceContext()};
};

TEST_F(RendererFailure, aFrameThatFailsIsFollowedByOneThatDraws) {
    const int failures = failEachTime(
        [&] {
            renderer.setBrightness(renderer.brightness() == 0.0f ? 0.5f : 0.0f);
            renderer.camera()->setNeedsRedraw(false);
            scene->setNeedsRedraw(true);
            renderer.render();
        },
        [&] {
            EXPECT_TRUE(renderer.needsRedraw());
            renderer.setBrightness(0.0f);
            renderer.render();
            expectPicture();
        });
    EXPECT_EQ(failures, 2);  // The scene's constants and those of the last pass.
}

TEST_F(RendererFailure, aResizeThatFailsLeavesThePicture) {
    ID3D11Texture2D* const texture = renderer.outputTexture();
    scene->takeEvents();
    const int failures = failEachTime([&] { renderer.setViewport(64, 48); },
                                      [&] {
                                          EXPECT_EQ(renderer.outputTexture(), texture);
                                          expectPicture();
                                          EXPECT_TRUE(scene->takeEvents().empty());
                                          EXPECT_FALSE(renderer.needsRedraw());
                                      });
    // Six textures of the passes with their views, four staging textures.
    EXPECT_EQ(failures, 6 + 5 + 6 + 1 + 4);
    renderer.render();
    EXPECT_EQ(pixel(63, 0), kGray);
}

TEST_F(RendererFailure, anImpossibleSizeLeavesThePicture) {
    ID3D11Texture2D* const texture = renderer.outputTexture();
    constexpr size_t beyond32Bits = (size_t{1} << 32) + 64;
    for (const size_t width : {size_t{0}, size_t{40000}, beyond32Bits}) {
        EXPECT_THROW(renderer.setViewport(width, 23), Render::ComException) << width;
        EXPECT_EQ(renderer.outputTexture(), texture);
        expectPicture();
        renderer.render();
        expectPicture();
    }
}

TEST_F(RendererFailure, readingBackWorksAgainAfterAFailure) {
    Graphics::ColorImage image;
    Graphics::DepthImage depth;
    P point;
    std::vector<Render::VertexPosColor> points;
    EXPECT_EQ(failEachTime([&] { renderer.getColorImage(image); }, [] {}), 1);
    EXPECT_EQ(failEachTime([&] { renderer.getDepthImage(depth); }, [] {}), 1);
    EXPECT_EQ(failEachTime([&] { renderer.pickPoint(3, 3, point); }, [] {}), 1);
    EXPECT_EQ(failEachTime([&] { renderer.getPoints(points); }, [] {}), 2);
    EXPECT_EQ(point, P(1.0f, 2.0f, 3.0f));
    EXPECT_EQ(points.size(), 18u * 23u);
    expectPicture();
}

TEST_F(RendererFailure, picksThatCannotHitCopyNothing) {
    renderer.setMeshForDistanceColorization(std::make_shared<Math::TriangleMesh<float>>());
    P point(7.0f, 7.0f, 7.0f);
    float distance = 7.0f;
    Math::NPlane<float, 3> plane;
    copies = 0;
    const auto minusThree = static_cast<size_t>(-3);
    EXPECT_FALSE(renderer.pickPoint(37, 5, point));
    EXPECT_FALSE(renderer.pickClosestPointWithTolerance(5, 5, 0, point));
    EXPECT_FALSE(renderer.pickClosestPointWithTolerance(37, 5, 10, point));
    EXPECT_FALSE(renderer.pickClosestPointWithTolerance(minusThree, 5, 10, point));
    EXPECT_FALSE(renderer.pickPointWithDistanceToColorizationMesh(5, 5, 3, point, distance));
    EXPECT_FALSE(renderer.pickPlane(5, 5, 0, plane, point, 1.0));
    EXPECT_EQ(copies, 0);
    EXPECT_EQ(point, P(7.0f, 7.0f, 7.0f));
    EXPECT_TRUE(renderer.pickClosestPointWithTolerance(5, 5, 1, point));
    EXPECT_EQ(copies, 1);
    std::vector<Render::VertexPosColor> points;
    renderer.getPoints(points);
    EXPECT_EQ(copies, 3) << "one chunk, of two targets";
}

TEST_F(RendererFailure, aViewportSetOnTheCameraIsAdoptedByTheNextFrame) {
    renderer.camera()->setViewport(640, 480);
    P point;
    EXPECT_FALSE(renderer.pickPoint(600, 400, point));
    EXPECT_TRUE(renderer.pickPoint(3, 3, point));
    Graphics::ColorImage image;
    renderer.getColorImage(image);
    EXPECT_EQ(image.width(), 37u);
    EXPECT_TRUE(renderer.needsRedraw());
    renderer.render();
    renderer.getColorImage(image);
    EXPECT_EQ(image.width(), 640u);
    EXPECT_EQ(image.pixel(3, 479), kRed);
    EXPECT_FALSE(renderer.needsRedraw());
    renderer.camera()->setViewport(37, 23);
    renderer.setViewport(37, 23);
    renderer.render();
    expectPicture();
}

}  // namespace
