#include <render/gpu/BlendState.h>
#include <render/gpu/ComException.h>
#include <render/gpu/ConstantBuffer.h>
#include <render/gpu/DepthStencilState.h>
#include <render/gpu/DepthStencilView.h>
#include <render/gpu/IndexBuffer.h>
#include <render/gpu/RasterizerState.h>
#include <render/gpu/SamplerState.h>
#include <render/gpu/ShaderResourceView.h>
#include <render/gpu/Viewport.h>

#include <gtest/gtest.h>
#include <tests/support/GpuTestDevice.h>

#include <limits>
#include <string>

using Render::ShaderConfiguration;
using TestSupport::GpuTestDevice;

namespace {

constexpr ShaderConfiguration allStages = ShaderConfiguration::Vertex | ShaderConfiguration::Geometry |
                                          ShaderConfiguration::Pixel | ShaderConfiguration::Compute;

template <class Function>
std::string logicError(Function function) {
    try {
        function();
    } catch (const std::logic_error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

unsigned long references(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

class StateTest : public testing::Test {
protected:
    Render::Texture2d texture(DXGI_FORMAT format, unsigned bindFlags) const {
        return Render::Texture2d(mDevice, GpuTestDevice::textureDesc(4, 4, format, bindFlags));
    }

    Render::ShaderResourceView shaderView() const {
        const Render::Texture2d content = texture(DXGI_FORMAT_R8G8B8A8_UNORM, D3D11_BIND_SHADER_RESOURCE);
        return Render::ShaderResourceView(mDevice, content.get(), nullptr);
    }

    /// The views at a slot of the stages vertex, geometry, pixel and compute.
    std::array<ID3D11ShaderResourceView*, 4> boundViews(unsigned slot) const {
        std::array<ATL::CComPtr<ID3D11ShaderResourceView>, 4> views;
        mContext->VSGetShaderResources(slot, 1, &views[0]);
        mContext->GSGetShaderResources(slot, 1, &views[1]);
        mContext->PSGetShaderResources(slot, 1, &views[2]);
        mContext->CSGetShaderResources(slot, 1, &views[3]);
        return {views[0], views[1], views[2], views[3]};
    }

    ID3D11SamplerState* boundSampler(unsigned slot) const {
        ATL::CComPtr<ID3D11SamplerState> sampler;
        mContext->PSGetSamplers(slot, 1, &sampler);
        return sampler;
    }

    Render::SamplerState pointSampler() const {
        D3D11_SAMPLER_DESC desc{};
        desc.Filter = D3D11_FILTER_MIN_MAG_MIP_POINT;
        desc.AddressU = desc.AddressV = desc.AddressW = D3D11_TEXTURE_ADDRESS_CLAMP;
        desc.ComparisonFunc = D3D11_COMPARISON_NEVER;
        desc.MaxLOD = std::numeric_limits<float>::max();
        return Render::SamplerState(mDevice, desc);
    }

    GpuTestDevice& mGpu = GpuTestDevice::fresh();
    ID3D11Device* mDevice = mGpu.device();
    ID3D11DeviceContext* mContext = mGpu.context();
};

}  // namespace

TEST_F(StateTest, ViewportBindsItselfAlone) {
    Render::Viewport viewport(3, 4, 500, 600);
    viewport.setDepthRange(0.25f, 0.5f);
    viewport.set(mContext);
    std::array<D3D11_VIEWPORT, 4> bound{};
    UINT count = bound.size();
    mContext->RSGetViewports(&count, bound.data());
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(bound[0].TopLeftX, 3.0f);
    EXPECT_EQ(bound[0].TopLeftY, 4.0f);
    EXPECT_EQ(bound[0].Width, 500.0f);
    EXPECT_EQ(bound[0].Height, 600.0f);
    EXPECT_EQ(bound[0].MinDepth, 0.25f);
    EXPECT_EQ(bound[0].MaxDepth, 0.5f);
}

TEST_F(StateTest, ViewIsBoundToItsStagesAndReallyUnbound) {
    Render::ShaderResourceView view = shaderView();
    ID3D11ShaderResourceView* const v = view.get();
    using Views = std::array<ID3D11ShaderResourceView*, 4>;
    view.begin(mContext, ShaderConfiguration::Vertex | ShaderConfiguration::Compute, 3);
    EXPECT_EQ(boundViews(3), (Views{v, nullptr, nullptr, v}));
    view.end(mContext);
    EXPECT_EQ(boundViews(3), Views{});
    view.begin(mContext, ShaderConfiguration::Geometry | ShaderConfiguration::Pixel, 1);
    EXPECT_EQ(boundViews(1), (Views{nullptr, v, v, nullptr}));
    view.end(mContext);
    EXPECT_EQ(boundViews(1), Views{});
}

TEST_F(StateTest, UnmatchedBindingIsRefusedAndChangesNothing) {
    Render::ShaderResourceView view = shaderView();
    EXPECT_EQ(logicError([&] { view.end(mContext); }), "Error: begin call is missing");
    view.begin(mContext, ShaderConfiguration::Pixel, 2);
    EXPECT_EQ(logicError([&] { view.begin(mContext, allStages, 5); }), "Error: end call is missing");
    EXPECT_EQ(boundViews(5)[2], nullptr);
    view.end(mContext);
    EXPECT_EQ(boundViews(2)[2], nullptr);
    EXPECT_EQ(logicError([&] { view.end(mContext); }), "Error: begin call is missing");
}

TEST_F(StateTest, SamplerCopySharesTheSamplerAndItsBinding) {
    Render::SamplerState sampler = pointSampler();
    const unsigned long before = references(sampler.get());
    sampler.begin(mContext, ShaderConfiguration::Pixel, 4);
    Render::SamplerState copy = sampler;
    EXPECT_EQ(copy.get(), sampler.get());
    EXPECT_GT(references(sampler.get()), before);
    EXPECT_EQ(logicError([&] { copy.begin(mContext, ShaderConfiguration::Pixel, 0); }),
              "Error: end call is missing");
    EXPECT_EQ(boundSampler(4), sampler.get());
    copy.end(mContext);
    EXPECT_EQ(boundSampler(4), nullptr);
    EXPECT_EQ(logicError([&] { copy.end(mContext); }), "Error: begin call is missing");
}

TEST_F(StateTest, MovingHandsOverTheOnlyReference) {
    Render::ShaderResourceView first = shaderView();
    Render::ShaderResourceView second = shaderView();
    ID3D11ShaderResourceView* const kept = first.get();
    ATL::CComPtr<ID3D11ShaderResourceView> released = second.get();
    const unsigned long before = references(released);
    second = std::move(first);
    EXPECT_EQ(references(released), before - 1);
    EXPECT_EQ(second.get(), kept);
    EXPECT_EQ(first.get(), nullptr);
    Render::ShaderResourceView& alias = second;
    second = std::move(alias);
    EXPECT_EQ(second.get(), kept);
}

TEST_F(StateTest, ConstantBufferSendsWhatChangedAtTheNextBinding) {
    using Data = std::array<float, 4>;
    Render::ConstantBuffer<Data> buffer(mDevice, Data{1, 2, 3, 4});
    const auto onGpu = [&] {
        const std::vector<unsigned char> bytes = mGpu.readBuffer(buffer.get());
        Data data{};
        std::memcpy(data.data(), bytes.data(), sizeof(Data));
        return data;
    };
    EXPECT_EQ(onGpu(), (Data{1, 2, 3, 4}));
    buffer.set({5, 6, 7, 8});
    EXPECT_EQ(onGpu(), (Data{1, 2, 3, 4}));
    buffer.begin(mContext, ShaderConfiguration::Vertex, 2);
    EXPECT_EQ(onGpu(), (Data{5, 6, 7, 8}));
    EXPECT_FALSE(buffer.isDirty());
    EXPECT_EQ(logicError([&] { buffer.begin(mContext, allStages, 0); }), "Error: end call is missing");
    buffer.edit()[0] = 9;
    buffer.upload(mContext);
    EXPECT_EQ(onGpu(), (Data{9, 6, 7, 8}));

    ATL::CComPtr<ID3D11Buffer> bound;
    mContext->VSGetConstantBuffers(2, 1, &bound);
    EXPECT_EQ(bound.p, buffer.get());
    bound.Release();
    buffer.end(mContext);
    mContext->VSGetConstantBuffers(2, 1, &bound);
    EXPECT_EQ(bound.p, nullptr);
}

TEST_F(StateTest, DepthStateFollowsTheDepthBuffersDirection) {
    const auto desc = [&](bool reversed, bool enable, bool write) {
        D3D11_DEPTH_STENCIL_DESC result{};
        Render::DepthStencilState(mDevice, reversed, enable, write).get()->GetDesc(&result);
        return result;
    };
    EXPECT_EQ(desc(true, true, false).DepthFunc, D3D11_COMPARISON_GREATER_EQUAL);
    EXPECT_EQ(desc(true, true, false).DepthWriteMask, D3D11_DEPTH_WRITE_MASK_ZERO);
    EXPECT_EQ(desc(false, true, true).DepthFunc, D3D11_COMPARISON_LESS);
    EXPECT_EQ(desc(false, true, true).DepthWriteMask, D3D11_DEPTH_WRITE_MASK_ALL);
    // Not every driver keeps the other values of a disabled test.
    EXPECT_FALSE(desc(true, false, true).DepthEnable);
    EXPECT_FALSE(desc(true, true, true).StencilEnable);
}

TEST_F(StateTest, TargetsAreClearedWithTheirValues) {
    const Render::Texture2d color =
        texture(DXGI_FORMAT_R32G32B32A32_FLOAT, D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE);
    Render::RenderTargetView target(mDevice, color.get(), {1, 2, 3, 4});
    target.clear(mContext);
    EXPECT_EQ(mGpu.read<TestSupport::Float4>(color.get())[15], (TestSupport::Float4{1, 2, 3, 4}));
    target.setClearValue(Math::Color(255, 0, 51, 102));
    target.clear(mContext);
    EXPECT_EQ(mGpu.read<TestSupport::Float4>(color.get())[0], (TestSupport::Float4{1.0f, 0.0f, 0.2f, 0.4f}));
    target.setClearValue(0.5f);
    EXPECT_EQ(target.clearValue(), (TestSupport::Float4{0.5f, 0.5f, 0.5f, 0.5f}));

    const Render::Texture2d depth =
        texture(DXGI_FORMAT_R32_TYPELESS, D3D11_BIND_DEPTH_STENCIL | D3D11_BIND_SHADER_RESOURCE);
    Render::DepthStencilView depthView(mDevice, depth.get(), D3D11_CLEAR_DEPTH, 0.75f, 0);
    depthView.clear(mContext);
    EXPECT_EQ(mGpu.read<float>(depth.get())[5], 0.75f);
}

TEST_F(StateTest, FixedStatesReachTheContext) {
    D3D11_BLEND_DESC blendDesc{};
    blendDesc.RenderTarget[0].RenderTargetWriteMask = D3D11_COLOR_WRITE_ENABLE_RED;
    Render::BlendState blend(mDevice, blendDesc);
    std::array<float, 4> factor = {0.1f, 0.2f, 0.3f, 0.4f};
    blend.set(mContext, factor.data(), 0xF0);
    ATL::CComPtr<ID3D11BlendState> boundBlend;
    std::array<float, 4> boundFactor{};
    UINT mask = 0;
    mContext->OMGetBlendState(&boundBlend, boundFactor.data(), &mask);
    EXPECT_EQ(boundBlend.p, blend.get());
    EXPECT_EQ(boundFactor, factor);
    EXPECT_EQ(mask, 0xF0u);

    D3D11_RASTERIZER_DESC rasterizerDesc{};
    rasterizerDesc.FillMode = D3D11_FILL_SOLID;
    rasterizerDesc.CullMode = D3D11_CULL_FRONT;
    const Render::RasterizerState rasterizer(mDevice, rasterizerDesc);
    rasterizer.set(mContext);
    ATL::CComPtr<ID3D11RasterizerState> boundRasterizer;
    mContext->RSGetState(&boundRasterizer);
    EXPECT_EQ(boundRasterizer.p, rasterizer.get());

    Render::DepthStencilState depth(mDevice, true, true, true);
    depth.set(mContext, 7);
    ATL::CComPtr<ID3D11DepthStencilState> boundDepth;
    UINT reference = 0;
    mContext->OMGetDepthStencilState(&boundDepth, &reference);
    EXPECT_EQ(boundDepth.p, depth.get());
    EXPECT_EQ(reference, 7u);
}

TEST_F(StateTest, IndexBufferBindsAtItsOffset) {
    const std::vector<unsigned int> indices = {7, 8, 9, 0xFFFFFFFE};
    Render::IndexBuffer buffer(mDevice, indices);
    EXPECT_EQ(buffer.count(), 4u);
    std::vector<unsigned int> read(4);
    std::memcpy(read.data(), mGpu.readBuffer(buffer.get()).data(), 16);
    EXPECT_EQ(read, indices);

    const auto bound = [&] {
        ATL::CComPtr<ID3D11Buffer> object;
        DXGI_FORMAT format{};
        UINT offset = 0;
        mContext->IAGetIndexBuffer(&object, &format, &offset);
        return std::tuple(object.p, object.p == nullptr ? DXGI_FORMAT_R32_UINT : format, offset);
    };
    buffer.begin(mContext, 8);
    EXPECT_EQ(bound(), std::tuple(buffer.get(), DXGI_FORMAT_R32_UINT, 8u));
    buffer.end(mContext);
    EXPECT_EQ(std::get<0>(bound()), nullptr);
    EXPECT_THROW(Render::IndexBuffer(mDevice, std::vector<unsigned int>()), Render::ComException);
}
