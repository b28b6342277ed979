#include "Patch.h"
#include "RecordingRenderable.h"

#include <core/ExceptionChain.h>
#include <graphics/ColorImage.h>
#include <graphics/DepthImage.h>
#include <gtest/gtest.h>
#include <render/core/Renderer.h>
#include <render/gpu/ComException.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

namespace {

using Math::Color;

const Color kRed(255, 0, 0, 255);
const Color kGreen(0, 255, 0, 255);
const Color kGray(40, 80, 120, 255);

/// A renderer whose scene draws patches. The odd size makes padded rows.
class RendererFrame : public ::testing::Test {
protected:
    explicit RendererFrame(bool reversed = false) : renderer(reversed), patch(renderer) {
        renderer.setScene(scene);
        renderer.setViewport(37, 23);
        renderer.setBackgroundColor(kGray);
    }
    ~RendererFrame() override { scene->draw = nullptr; }

    Graphics::ColorImage picture() {
        renderer.render();
        Graphics::ColorImage image;
        renderer.getColorImage(image);
        return image;
    }
    static void expectClose(const Color& actual, const Color& expected) {
        const auto close = [](uint8_t a, uint8_t b) { return std::abs(a - b) <= 1; };
        EXPECT_TRUE(close(actual.r(), expected.r()) && close(actual.g(), expected.g()) &&
                    close(actual.b(), expected.b()) && close(actual.a(), expected.a()))
            << std::hex << actual.packed() << " instead of " << expected.packed();
    }

    Render::Renderer renderer;
    Patch patch;
    std::shared_ptr<RecordingRenderable> scene = std::make_shared<RecordingRenderable>();
};

TEST_F(RendererFrame, withoutASceneThePictureIsTheBackground) {
    Render::Renderer empty(true);
    empty.setBackgroundColor(10, 20, 30, 40);
    empty.render();
    Graphics::ColorImage image;
    empty.getColorImage(image);
    ASSERT_EQ(image.width(), 640u);
    ASSERT_EQ(image.height(), 480u);
    // Where nothing is drawn the picture is opaque.
    EXPECT_EQ(image.pixel(0, 0), Color(10, 20, 30, 255));
    EXPECT_EQ(image.pixel(639, 479), Color(10, 20, 30, 255));
    EXPECT_FALSE(empty.camera()->needsRedraw());
    EXPECT_TRUE(empty.boundingBox().isEmpty());
}

TEST_F(RendererFrame, eachPixelOfThePictureIsWhereItWasDrawn) {
    scene->draw = [&] {
        patch.draw({-1.0f, 0.0f, 0.0f, 1.0f, 0.5f, kRed});
        patch.draw({35.0f / 37.0f, -1.0f, 1.0f, -1.0f + 4.0f / 23.0f, 0.5f, kGreen});
    };
    const Graphics::ColorImage image = picture();
    ASSERT_EQ(image.width(), 37u);
    ASSERT_EQ(image.height(), 23u);
    EXPECT_GE(image.stride(), 37u * 4u);
    for (size_t y = 0; y < 23; ++y) {
        for (size_t x = 0; x < 37; ++x) {
            // Pixel centres left of 18.5 and above 11.5; the tie falls to the top-left rule.
            const bool red = x < 18 && y < 11;
            const bool green = x >= 36 && y >= 21;
            if (x != 18 && y != 11) {
                EXPECT_EQ(image.pixel(x, y), red ? kRed : green ? kGreen : kGray) << x << ' ' << y;
            }
        }
    }
}

TEST_F(RendererFrame, anImpossibleSizeIsNamed) {
    try {
        renderer.setViewport(40000, 30000);
        ADD_FAILURE();
    } catch (const Render::ComException& error) {
        EXPECT_NE(Core::exceptionChain(error).find("40000 x 30000"), std::string::npos)
            << Core::exceptionChain(error);
    }
}

TEST_F(RendererFrame, anInvisibleSceneIsNotDrawn) {
    scene->draw = [&] { patch.draw({-1.0f, -1.0f, 1.0f, 1.0f, 0.5f, kRed}); };
    EXPECT_EQ(picture().pixel(5, 5), kRed);
    scene->setVisible(false);
    EXPECT_EQ(picture().pixel(5, 5), kGray);
}

class RendererDepth : public RendererFrame, public ::testing::WithParamInterface<bool> {
protected:
    RendererDepth() : RendererFrame(GetParam()) {}
    float depthAt(size_t x, size_t y) {
        Graphics::DepthImage depth;
        renderer.getDepthImage(depth);
        EXPECT_EQ(depth.width(), renderer.viewport().width());
        EXPECT_EQ(depth.height(), renderer.viewport().height());
        return depth.pixel(x, y);
    }
    float nearDepth = GetParam() ? 0.75f : 0.25f;
    float farDepth = GetParam() ? 0.25f : 0.75f;
    float cleared = GetParam() ? 0.0f : 1.0f;
};
INSTANTIATE_TEST_SUITE_P(Conventions, RendererDepth, ::testing::Bool(),
                         [](const auto& convention) { return convention.param ? "reversed" : "normal"; });

TEST_P(RendererDepth, theNearerPatchWinsAndItsDepthIsReadBack) {
    scene->draw = [&] {
        patch.draw({-1.0f, -1.0f, 0.9f, 1.0f, nearDepth, kRed});
        patch.draw({-1.0f, -1.0f, 0.9f, 1.0f, farDepth, kGreen});
    };
    EXPECT_EQ(picture().pixel(5, 5), kRed);
    EXPECT_EQ(depthAt(5, 5), nearDepth);
    EXPECT_EQ(depthAt(36, 22), cleared);
    // The targets follow a resize, and what was drawn before does not linger.
    renderer.setViewport(50, 11);
    scene->draw = [&] { patch.draw({0.0f, -1.0f, 1.0f, 1.0f, farDepth, kGreen}); };
    EXPECT_EQ(picture().pixel(5, 5), kGray);
    EXPECT_EQ(depthAt(5, 5), cleared);
    EXPECT_EQ(depthAt(49, 10), farDepth);
}

TEST_P(RendererDepth, aTransparentSceneBlendsAndWritesNoDepth) {
    scene->transparent = true;
    renderer.setBackgroundColor(0, 0, 200, 255);
    scene->draw = [&] {
        patch.draw({-1.0f, -1.0f, 1.0f, 1.0f, nearDepth, Color(200, 0, 0, 51)});
        patch.draw({-1.0f, -1.0f, 1.0f, 1.0f, farDepth, Color(0, 200, 0, 51)});
    };
    // Twice a fifth of the source over four fifths of what was there.
    expectClose(picture().pixel(5, 5), Color(32, 40, 128, 255));
    EXPECT_EQ(depthAt(5, 5), cleared);
    scene->transparent = false;
    EXPECT_EQ(picture().pixel(5, 5), Color(200, 0, 0, 255));
    EXPECT_EQ(depthAt(5, 5), nearDepth);
}

TEST_F(RendererFrame, theScenesBackgroundReplacesTheRenderersForItsFrames) {
    scene->draw = [&] { patch.draw({-1.0f, -1.0f, 0.0f, 1.0f, 0.5f, kRed}); };
    scene->background = kGreen;
    EXPECT_EQ(picture().pixel(30, 5), kGreen);
    EXPECT_EQ(picture().pixel(5, 5), kRed);
    scene->background.reset();
    EXPECT_EQ(picture().pixel(30, 5), kGray);
    EXPECT_EQ(renderer.backgroundColor(), kGray);
}

TEST_F(RendererFrame, displaySettingsShapeThePicture) {
    scene->draw = [&] { patch.draw({-1.0f, -1.0f, 0.0f, 1.0f, 0.5f, Color(51, 102, 255, 255)}); };
    renderer.setBrightness(0.2f);
    renderer.setOpacity(0.4f);
    expectClose(picture().pixel(5, 5), Color(102, 153, 255, 102));
    expectClose(picture().pixel(30, 5), Color(40, 80, 120, 102));
    renderer.setRenderMode(Render::RenderMode::TomographicDark);
    expectClose(picture().pixel(5, 5), Color(153, 51, 0, 102));
    expectClose(picture().pixel(30, 5), Color(255, 255, 255, 0));
}

TEST_F(RendererFrame, theSceneFindsItsTargetsBoundAndLeavesNothingBehind) {
    ID3D11DeviceContext* const context = renderer.deviceContext();
    const auto boundTargets = [&](bool& depth) {
        ATL::CComPtr<ID3D11RenderTargetView> views[4];
        ATL::CComPtr<ID3D11DepthStencilView> depthView;
        context->OMGetRenderTargets(4, &views[0], &depthView);
        depth = depthView != nullptr;
        return std::count_if(std::begin(views), std::end(views),
                             [](const auto& view) { return view != nullptr; });
    };
    D3D11_VIEWPORT viewport = {};
    std::ptrdiff_t targets = 0;
    bool depth = false;
    scene->draw = [&] {
        UINT count = 1;
        context->RSGetViewports(&count, &viewport);
        targets = boundTargets(depth);
    };
    renderer.render();
    EXPECT_EQ(viewport.Width, 37.0f);
    EXPECT_EQ(viewport.Height, 23.0f);
    EXPECT_EQ(targets, 3);
    EXPECT_TRUE(depth);
    EXPECT_EQ(boundTargets(depth), 0);
    EXPECT_FALSE(depth);
    ATL::CComPtr<ID3D11ShaderResourceView> inputs[3];
    context->PSGetShaderResources(0, 3, &inputs[0]);
    EXPECT_TRUE(inputs[0] == nullptr && inputs[1] == nullptr && inputs[2] == nullptr);
}

TEST_F(RendererFrame, thePngHoldsThePictureOfANewFrame) {
    const std::filesystem::path file = std::filesystem::temp_directory_path() / "lumaro-frame-test.png";
    renderer.render();
    scene->draw = [&] { patch.draw({-1.0f, -1.0f, 0.0f, 1.0f, 0.5f, kRed}); };
    renderer.writePngImage(file);
    const Graphics::ColorImage image = Graphics::ColorImage::readPng(file);
    std::filesystem::remove(file);
    ASSERT_EQ(image.width(), 37u);
    ASSERT_EQ(image.height(), 23u);
    EXPECT_EQ(image.pixel(5, 5), kRed);
    EXPECT_EQ(image.pixel(36, 22), kGray);
}

TEST_F(RendererFrame, projectionIsTheCameras) {
    renderer.setPerspective(50.0f, 1.0f, 10.0f, 0.0f, 0.0f);
    const Math::Point<float, 3> point = renderer.unProject(7, 9, 0.5f);
    EXPECT_EQ(point, renderer.camera()->unProject(7, 9, 0.5f));
    EXPECT_EQ(renderer.project(point), renderer.camera()->project(point));
}

}  // namespace
