#include <math/Spectrum.h>
#include <render/gpu/ColorMap.h>
#include <render/gpu/ConstantBuffer.h>
#include <render/gpu/PixelShader.h>
#include <render/gpu/VertexShader.h>

#include <gtest/gtest.h>
#include <tests/support/GpuTestDevice.h>

#include <functional>
#include <string>

using Math::Spectrum;
using Render::ColorMap;
using TestSupport::Float4;
using TestSupport::GpuTestDevice;

namespace {

constexpr unsigned samples = 96;

/// The polynomial maps cancel terms near 100, which leaves some 1e-5 of single precision.
constexpr float tolerance = 1e-4f;

/// Evaluates an HLSL expression of x at many values on the GPU.
class ColorFunctionsTest : public testing::Test {
protected:
    std::vector<Float4> evaluate(const std::string& expression, const std::array<float, samples>& xs) {
        const std::string source = R"(#include "shaders/colorprocessing.hlsl"
cbuffer Input : register(b0) { float4 xs[24]; int map; };
float4 vs_main(uint id : SV_VertexID) : SV_POSITION { return float4(id == 2 ? 3 : -1, id == 1 ? 3 : -1, 0, 1); }
float4 ps_main(float4 pos : SV_POSITION) : SV_TARGET
{
    const uint i = uint(pos.x);
    const float x = xs[i / 4][i % 4];
    return )" + expression + ";\n}\n";
        const auto vertex = Render::VertexShader::fromCsoString(
            mGpu.device(), GpuTestDevice::compile(source, "vs_main", "vs_5_0"), {});
        // Kept to the end of the test, so that no two shaders of the device ever lie at one address.
        mPixelShaders.push_back(Render::PixelShader::fromCsoString(
            mGpu.device(), GpuTestDevice::compile(source, "ps_main", "ps_5_0")));
        const Render::PixelShader& pixel = mPixelShaders.back();
        Input input{};
        input.xs = xs;
        input.map = mMap;
        Render::ConstantBuffer<Input> buffer(mGpu.device(), input);
        TestSupport::FloatTargets targets(mGpu, samples, 1, 1);
        targets.bindAndClear();
        ID3D11DeviceContext* const context = mGpu.context();
        context->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLELIST);
        vertex.begin(context);
        pixel.begin(context);
        buffer.begin(context, Render::ShaderConfiguration::Pixel, 0);
        context->Draw(3, 0);
        buffer.end(context);
        return targets.read(0);
    }

    void expectSame(const std::string& expression, const std::function<Spectrum::Rgba(float)>& onCpu) {
        const std::array<float, samples> xs = spread();
        const std::vector<Float4> colors = evaluate(expression, xs);
        for (size_t i = 0; i < samples; ++i) {
            const Spectrum::Rgba expected = onCpu(xs[i]);
            for (size_t c = 0; c < 4; ++c) {
                ASSERT_NEAR(colors[i][c], expected[c], tolerance)
                    << expression << ", map " << mMap << ", x " << xs[i] << ", channel " << c;
            }
        }
    }

    /// -0.25 to 1.25; no value is a threshold that floats do not hold exactly.
    static std::array<float, samples> spread() {
        std::array<float, samples> xs{};
        for (size_t i = 0; i < samples; ++i) {
            xs[i] = static_cast<float>(i) / 64.0f - 0.25f;
        }
        return xs;
    }

    struct Input {
        std::array<float, samples> xs;
        int map;
        std::array<int, 3> padding;
    };

    GpuTestDevice& mGpu = GpuTestDevice::fresh();
    std::vector<Render::PixelShader> mPixelShaders;
    int mMap = 0;
};

}  // namespace

TEST_F(ColorFunctionsTest, EveryColorMapIsTheCpusSpectrum) {
    const Spectrum::Limits limits = {0.2f, 0.8f, 0.4f, 0.7f};
    for (mMap = -1; mMap <= 13; ++mMap) {
        expectSame("colorize(map, x, 0.2, 0.8, 0.4, 0.7)", [&](float x) {
            return Spectrum::evaluate(Render::spectrumName(ColorMap(mMap)), x, limits);
        });
    }
}

TEST_F(ColorFunctionsTest, MapsOutsideTheSelectionAreTheCpusSpectrums) {
    const std::pair<const char*, Spectrum::SpectrumNames> maps[] = {
        {"jet(x)", Spectrum::Jet},
        {"blue_green_red(x)", Spectrum::BlueGreenRed},
        {"hot(x)", Spectrum::Hot},
        {"thermo(x)", Spectrum::Thermo},
        {"hsv(x)", Spectrum::Hsv},
        {"cubeHelixDefault(x)", Spectrum::CubeHelixDefault},
        {"cubeHelixRainbow(x)", Spectrum::CubeHelixRainbow}};
    for (const auto& [expression, name] : maps) {
        expectSame(expression, [name = name](float x) { return Spectrum::evaluate(name, x); });
    }
}

TEST_F(ColorFunctionsTest, DistanceNormalAndBrightnessAreTheCpus) {
    for (const ColorMap map : {ColorMap::Viridis, ColorMap::TrafficLight}) {
        mMap = static_cast<int>(map);
        expectSame("colorizeByDistance(8 * x, -1, 7, map, 0.5, 5.75, 2.5, 4.5)", [&](float x) {
            return Spectrum::colorizeByDistance(8 * x, -1, 7, Render::spectrumName(map),
                                                {0.5f, 5.75f, 2.5f, 4.5f});
        });
    }
    expectSame("colorizeByNormal(float3(x, -x, 0.5))",
               [](float x) { return Spectrum::colorizeByNormal(Math::Point<float, 3>(x, -x, 0.5f)); });
    expectSame("adjustBrightnessContrast(float4(x, 0.5, 1 - x, x), 0.125, 3)", [](float x) {
        return Spectrum::adjustBrightnessContrast({x, 0.5f, 1 - x, x}, 0.125f, 3.0f);
    });
    expectSame("planeDistance(float3(x, 2, 3), float4(2, 0.5, -1, 0.25))", [](float x) {
        const float d = 2 * x + 1 - 3 + 0.25f;
        return Spectrum::Rgba{d, d, d, d};
    });
}

// Written down from the maps' definitions, so that the two implementations are not only alike.
TEST_F(ColorFunctionsTest, KnownValues) {
    std::array<float, samples> xs{};
    const std::array<float, 4> thresholds = {1.0f / 150.0f, 5.0f / 150.0f, 15.0f / 150.0f, 50.0f / 150.0f};
    std::copy(thresholds.begin(), thresholds.end(), xs.begin());
    const std::vector<Float4> classes = evaluate("levelofaccuracy(x)", xs);
    EXPECT_EQ(classes[0], (Float4{0, 1, 0, 1}));
    EXPECT_EQ(classes[1], (Float4{1, 1, 0, 1}));
    EXPECT_EQ(classes[2], (Float4{1, 0.5f, 0, 1}));
    EXPECT_EQ(classes[3], (Float4{1, 0, 0, 1}));
    EXPECT_EQ(classes[4], (Float4{0, 0.5f, 0, 1}));

    xs = {0.0f, 1.0f, 0.5f};
    const std::vector<Float4> coolWarm = evaluate("coolwarm(x)", xs);
    EXPECT_EQ(coolWarm[0], (Float4{0.2314f, 0.2980f, 0.7529f, 1}));
    EXPECT_EQ(coolWarm[1], (Float4{0.7059f, 0, 0.1490f, 1}));
    EXPECT_EQ(coolWarm[2], (Float4{0.8667f, 0.8667f, 0.8667f, 1}));

    const Float4 adjusted = evaluate("adjustBrightnessContrast(float4(0.2, 0.4, 0.6, 0.5), x, 2)", xs)[0];
    EXPECT_NEAR(adjusted[0], 0.0f, 1e-6f);
    EXPECT_NEAR(adjusted[1], 0.3f, 1e-6f);
    EXPECT_NEAR(adjusted[2], 0.7f, 1e-6f);
    EXPECT_EQ(adjusted[3], 0.5f);
    // Green stays 0 below 2/7.
    xs = {0.25f};
    EXPECT_NEAR(evaluate("thermo(x)", xs)[0][0], 0.25f, 1e-6f);
    EXPECT_EQ(evaluate("thermo(x)", xs)[0][1], 0.0f);
}
