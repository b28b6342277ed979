#include <render/gpu/BlendState.h>
#include <render/gpu/Boxes.h>
#include <render/gpu/ComException.h>

#include <gtest/gtest.h>
#include <tests/support/FailingCalls.h>
#include <tests/support/GpuTestDevice.h>

#include <algorithm>

using Math::Color;
using Render::Boxes;
using Render::BoxWithColor;
using TestSupport::Float4;
using TestSupport::GpuTestDevice;

namespace {

constexpr unsigned size = 128;

class BoxesTest : public testing::Test {
protected:
    /// Draws with additive colours and returns target 0.
    std::vector<Float4> draw(Boxes& boxes) {
        mTargets.bindAndClear();
        D3D11_BLEND_DESC desc{};
        desc.IndependentBlendEnable = TRUE;
        desc.RenderTarget[0] = {TRUE,
                                D3D11_BLEND_ONE,
                                D3D11_BLEND_ONE,
                                D3D11_BLEND_OP_ADD,
                                D3D11_BLEND_ONE,
                                D3D11_BLEND_ONE,
                                D3D11_BLEND_OP_ADD,
                                D3D11_COLOR_WRITE_ENABLE_ALL};
        desc.RenderTarget[1].RenderTargetWriteMask = D3D11_COLOR_WRITE_ENABLE_ALL;
        Render::BlendState blend(mGpu.device(), desc);
        blend.set(mGpu.context(), nullptr, 0xFFFFFFFF);
        boxes.draw(mGpu.context());
        return mTargets.read(0);
    }

    /// A box of a few pixels around clip-space (x, 0).
    static BoxWithColor smallBox(float x) {
        return {{x - 0.1f, -0.1f, 0.4f}, {x + 0.1f, 0.1f, 0.6f}, Color(255, 0, 0, 255)};
    }

    static bool isLit(const std::vector<Float4>& picture, float x) {
        // The left edge of smallBox(x), at half its height.
        const auto column = static_cast<size_t>((x - 0.1f + 1.0f) / 2.0f * size);
        return std::any_of(picture.begin() + static_cast<ptrdiff_t>(size / 2 * size + column - 2),
                           picture.begin() + static_cast<ptrdiff_t>(size / 2 * size + column + 3),
                           [](const Float4& texel) { return texel[0] != 0; });
    }

    static bool isEmpty(const std::vector<Float4>& picture) {
        return std::all_of(picture.begin(), picture.end(),
                           [](const Float4& texel) { return texel == Float4{}; });
    }

    GpuTestDevice& mGpu = GpuTestDevice::fresh();
    TestSupport::FloatTargets mTargets{mGpu, size, size, 2};
};

}  // namespace

TEST_F(BoxesTest, DrawsEachOfTheTwelveEdgesOnce) {
    const Math::NBoundingBox<float, 3> box{{0, 0, 0}, {1, 2, 3}};
    Boxes boxes(mGpu.device(), box, Color(255, 255, 255, 255));
    // An oblique view in which no two edges share a midpoint.
    Eigen::Matrix4f matrix = Eigen::Matrix4f::Zero();
    matrix.row(0) << 0.9f, 0.13f, 0.17f, -0.8f;
    matrix.row(1) << -0.31f, 0.41f, 0.21f, -0.6f;
    matrix.row(2) << 0, 0, 0.1f, 0.3f;
    matrix.row(3) << 0, 0, 0, 1;
    boxes.setModelViewProjection(matrix);
    const std::vector<Float4> picture = draw(boxes);

    const auto brightest = [&](const Eigen::Vector3f& p) {
        const Eigen::Vector4f clip = matrix * Eigen::Vector4f(p.x(), p.y(), p.z(), 1);
        const auto x = static_cast<int>((clip.x() + 1) / 2 * size);
        const auto y = static_cast<int>((1 - clip.y()) / 2 * size);
        float result = 0;
        for (int j = y - 1; j <= y + 1; ++j) {
            for (int i = x - 1; i <= x + 1; ++i) {
                result = std::max(result, picture[static_cast<size_t>(j) * size + static_cast<size_t>(i)][0]);
            }
        }
        return result;
    };
    const Eigen::Vector3f extent(1, 2, 3);
    for (int axis = 0; axis < 3; ++axis) {
        for (int corner = 0; corner < 4; ++corner) {
            Eigen::Vector3f middle;
            middle[axis] = 0.4f;
            middle[(axis + 1) % 3] = static_cast<float>(corner & 1);
            middle[(axis + 2) % 3] = static_cast<float>(corner >> 1);
            EXPECT_EQ(brightest(middle.cwiseProduct(extent)), 1.0f)
                << "axis " << axis << ", corner " << corner;
        }
    }
    EXPECT_EQ(brightest(extent / 2), 0.0f);
}

TEST_F(BoxesTest, UpdatableSetDrawsWhatItWasGivenLast) {
    Boxes boxes(mGpu.device(), 10);
    EXPECT_TRUE(isEmpty(draw(boxes)));
    boxes.update(mGpu.context(), {smallBox(-0.6f), smallBox(0.0f), smallBox(0.6f)});
    const std::vector<Float4> three = draw(boxes);
    EXPECT_TRUE(isLit(three, -0.6f) && isLit(three, 0.0f) && isLit(three, 0.6f));
    boxes.update(mGpu.context(), {smallBox(0.6f)});
    const std::vector<Float4> one = draw(boxes);
    EXPECT_TRUE(!isLit(one, -0.6f) && !isLit(one, 0.0f) && isLit(one, 0.6f));
    boxes.update(mGpu.context(), {});
    EXPECT_TRUE(isEmpty(draw(boxes)));
}

TEST_F(BoxesTest, FixedSetCannotBeUpdatedNorBeEmpty) {
    Boxes boxes(mGpu.device(), std::vector<BoxWithColor>{smallBox(0)});
    EXPECT_THROW(boxes.update(mGpu.context(), {smallBox(0)}), Render::ComException);
    EXPECT_TRUE(isLit(draw(boxes), 0.0f));
    EXPECT_THROW(Boxes(mGpu.device(), std::vector<BoxWithColor>()), Render::ComException);
}

TEST_F(BoxesTest, MarksItsPixelsAsNotPickableAndLeavesNothingBound) {
    Boxes boxes(mGpu.device(), std::vector<BoxWithColor>{smallBox(0)});
    ID3D11DeviceContext* const context = mGpu.context();
    draw(boxes);
    mTargets.bindAndClear(7.0f);
    boxes.draw(context);
    const std::vector<Float4> positions = mTargets.read(1);
    const std::vector<Float4> colors = mTargets.read(0);
    for (size_t i = 0; i < colors.size(); ++i) {
        const bool drawn = colors[i] != Float4{7, 7, 7, 7};
        EXPECT_EQ(positions[i], drawn ? Float4{} : (Float4{7, 7, 7, 7}));
    }
    EXPECT_TRUE(
        std::any_of(positions.begin(), positions.end(), [](const Float4& p) { return p == Float4{}; }));

    ATL::CComPtr<ID3D11InputLayout> layout;
    ATL::CComPtr<ID3D11VertexShader> vertex;
    ATL::CComPtr<ID3D11PixelShader> pixel;
    ATL::CComPtr<ID3D11Buffer> constants;
    D3D11_PRIMITIVE_TOPOLOGY topology{};
    context->IAGetInputLayout(&layout);
    context->VSGetShader(&vertex, nullptr, nullptr);
    context->PSGetShader(&pixel, nullptr, nullptr);
    context->VSGetConstantBuffers(0, 1, &constants);
    context->IAGetPrimitiveTopology(&topology);
    EXPECT_TRUE(!layout && !vertex && !pixel && !constants);
    EXPECT_EQ(topology, D3D11_PRIMITIVE_TOPOLOGY_UNDEFINED);
}

TEST_F(BoxesTest, AfterAFailedUploadTheNextDrawWorks) {
    Boxes boxes(mGpu.device(), std::vector<BoxWithColor>{smallBox(0.5f)});
    boxes.setModelViewProjection(Eigen::Matrix4f::Identity());
    {
        const TestSupport::FailingCalls failing(mGpu.device(), mGpu.context());
        TestSupport::callsUntilFailure = 0;
        EXPECT_THROW(boxes.draw(mGpu.context()), Render::ComException);
    }
    EXPECT_TRUE(isLit(draw(boxes), 0.5f));
}

TEST_F(BoxesTest, MoreBoxesThanABufferHoldsAreRefused) {
    EXPECT_THROW(Boxes(mGpu.device(), (size_t{1} << 32) / sizeof(BoxWithColor) + 1), Render::ComException);
}
