#include "GpuReadBack.h"

#include <gtest/gtest.h>
#include <math/Spectrum.h>
#include <render/core/PostProcess.h>
#include <render/core/RenderPass.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

namespace {

using Float4 = std::array<float, 4>;
using Render::RenderMode;

// Odd, so that rows are padded in the textures.
constexpr size_t kWidth = 13;
constexpr size_t kHeight = 9;

struct Settings {
    RenderMode mode = RenderMode::Default;
    float brightness = 0.0f;
    float contrast = 1.0f;
    float opacity = 1.0f;
};

class PostProcessTest : public ::testing::Test {
protected:
    PostProcessTest()
        : scene(renderer.device(), kWidth, kHeight), output(renderer.device(), kWidth, kHeight) {
        scene.addRenderTarget("color", DXGI_FORMAT_B8G8R8A8_UNORM);
        scene.addRenderTarget("worldPosition", DXGI_FORMAT_R32G32B32A32_FLOAT);
        scene.addRenderTarget("exactWorldPosition", DXGI_FORMAT_R32G32B32A32_FLOAT);
        output.addRenderTarget("color", DXGI_FORMAT_B8G8R8A8_UNORM);
        output.addRenderTarget("worldPosition", DXGI_FORMAT_R32G32B32A32_FLOAT);
        postProcess.setViewport(Render::Viewport(kWidth, kHeight));
        fillScene();
    }

    // Random colours and positions; every third pixel is empty.
    void fillScene() {
        std::mt19937 random(7);
        std::uniform_int_distribution<int> byte(0, 255);
        std::uniform_real_distribution<float> coordinate(-5.0f, 5.0f);
        for (size_t i = 0; i < kWidth * kHeight; ++i) {
            const auto next = [&] { return static_cast<uint8_t>(byte(random)); };
            const uint8_t r = next();
            const uint8_t g = next();
            const uint8_t b = next();
            colors.emplace_back(r, g, b, next());
            Float4 position = {};
            if (i % 3 != 1) {
                position = {coordinate(random), coordinate(random), coordinate(random), 1.0f};
            }
            positions.push_back(position);
        }
        const auto upload = [&](const char* name, const void* data, size_t texelSize) {
            context->UpdateSubresource(scene.texture(name).get(), 0, nullptr, data,
                                       static_cast<UINT>(kWidth * texelSize), 0);
        };
        upload("color", colors.data(), sizeof(Math::Color));
        upload("worldPosition", positions.data(), sizeof(Float4));
    }

    void draw(const Settings& settings) {
        constexpr std::array<const char*, 3> names = {"color", "worldPosition", "exactWorldPosition"};
        postProcess.setRenderMode(settings.mode);
        postProcess.setBrightness(settings.brightness);
        postProcess.setContrast(settings.contrast);
        postProcess.setOpacity(settings.opacity);
        Render::Viewport(kWidth, kHeight).set(context);
        output.begin(context);
        for (unsigned slot = 0; slot < names.size(); ++slot) {
            scene.bindTexture(context, names[slot], Render::ShaderConfiguration::Pixel, slot);
        }
        postProcess.draw(context);
        for (const char* name : names) {
            scene.unbindTexture(context, name);
        }
        output.end(context);
    }

    Eigen::Vector3f positionAt(size_t x, size_t y) const {
        return Eigen::Map<const Eigen::Vector3f>(positions[y * kWidth + x].data());
    }

    Float4 shaded(const Settings& settings, size_t x, size_t y) const {
        const Float4 color = colors[y * kWidth + x].toFloats();
        const float mean = (color[0] + color[1] + color[2]) / 3.0f;
        const auto clamped = [](float r, float g, float b, float a) {
            return Float4{std::clamp(r, 0.0f, 1.0f), std::clamp(g, 0.0f, 1.0f), std::clamp(b, 0.0f, 1.0f),
                          std::clamp(a, 0.0f, 1.0f)};
        };
        switch (settings.mode) {
            case RenderMode::Default:
                return Math::Spectrum::adjustBrightnessContrast({color[0], color[1], color[2], 1.0f},
                                                                settings.brightness, settings.contrast);
            case RenderMode::TomographicDark:
                return clamped(1 - 2 * color[0], 1 - 2 * color[1], 1 - 2 * color[2], 2 * mean);
            case RenderMode::TomographicBright:
                return clamped(2 * color[0], 2 * color[1], 2 * color[2], 2 * mean);
            case RenderMode::Normal: {
                // Beyond the picture there is nothing: zeros.
                const Eigen::Vector3f none = Eigen::Vector3f::Zero();
                const Eigen::Vector3f here = positionAt(x, y);
                const Eigen::Vector3f left = here - (x > 0 ? positionAt(x - 1, y) : none);
                const Eigen::Vector3f top = here - (y > 0 ? positionAt(x, y - 1) : none);
                const Eigen::Vector3f normal = left.cross(top);
                return Math::Spectrum::colorizeByNormal(Math::Point<float, 3>(normal / normal.norm()));
            }
            default:
                return {color[0], color[1], color[2], 1.0f};
        }
    }

    Float4 expected(const Settings& settings, size_t x, size_t y) const {
        Float4 result = shaded(settings, x, y);
        if (positions[y * kWidth + x][3] == 0.0f) {
            const Float4 color = colors[y * kWidth + x].toFloats();
            result = {color[0], color[1], color[2], 1.0f};
            if (settings.mode == RenderMode::TomographicDark) {
                result = {1.0f, 1.0f, 1.0f, 0.0f};
            } else if (settings.mode == RenderMode::TomographicBright) {
                result = {};
            }
        }
        result[3] *= settings.opacity;
        return result;
    }

    void expectPicture(const Settings& settings) {
        SCOPED_TRACE(static_cast<int>(settings.mode));
        draw(settings);
        const std::vector<Math::Color> picture = readTexels<Math::Color>(renderer, output.texture("color"));
        float worst = 0.0f;
        for (size_t i = 0; i < picture.size(); ++i) {
            const Float4 wanted = expected(settings, i % kWidth, i / kWidth);
            const Math::Color actual = picture[i];
            const std::array<int, 4> bytes = {actual.r(), actual.g(), actual.b(), actual.a()};
            // Where both neighbours are empty there is no normal, and any colour will do.
            for (size_t c = std::isnan(wanted[0]) ? 3 : 0; c < 4; ++c) {
                worst = std::max(worst, std::abs(static_cast<float>(bytes[c]) - 255.0f * wanted[c]));
            }
        }
        // Half a step of rounding, and what single precision adds.
        EXPECT_LE(worst, 0.6f);
        EXPECT_EQ(readTexels<Float4>(renderer, output.texture("worldPosition")), positions);
    }

    Render::Renderer renderer{false};
    ID3D11DeviceContext* context = renderer.deviceContext();
    Render::RenderPass scene;
    Render::RenderPass output;
    Render::PostProcess postProcess{renderer.device()};
    std::vector<Math::Color> colors;
    std::vector<Float4> positions;
};

TEST_F(PostProcessTest, everyModeMatchesTheReference) {
    for (int mode = 0; mode <= 7; ++mode) {
        expectPicture({static_cast<RenderMode>(mode)});
    }
}

TEST_F(PostProcessTest, brightnessAndContrastActInTheDefaultModeOnly) {
    expectPicture({RenderMode::Default, 0.2f, 1.7f});
    expectPicture({RenderMode::Default, -0.1f, 0.4f});
    expectPicture({RenderMode::Intensity, 0.2f, 1.7f});
}

TEST_F(PostProcessTest, opacityScalesTheAlphaOfEveryPixel) {
    for (const RenderMode mode :
         {RenderMode::Default, RenderMode::TomographicDark, RenderMode::TomographicBright}) {
        expectPicture({mode, 0.0f, 1.0f, 0.5f});
    }
}

}  // namespace
