#include "GpuReadBack.h"

#include <gtest/gtest.h>
#include <render/core/RenderPass.h>
#include <render/core/Renderer.h>
#include <render/gpu/ComException.h>

#include <array>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using Float4 = std::array<float, 4>;
using Render::RenderPass;
using Render::ShaderConfiguration;

class RenderPassTest : public ::testing::Test {
protected:
    RenderPassTest() : pass(renderer.device(), 7, 5) {
        EXPECT_EQ(pass.addRenderTarget("color", DXGI_FORMAT_B8G8R8A8_UNORM), 0u);
        EXPECT_EQ(pass.addRenderTarget("position", DXGI_FORMAT_R32G32B32A32_FLOAT), 1u);
    }
    template <class Call>
    std::string logicError(Call call) {
        try {
            call();
        } catch (const std::logic_error& error) {
            return error.what();
        }
        return "no error";
    }

    Render::Renderer renderer{false};
    ID3D11DeviceContext* context = renderer.deviceContext();
    RenderPass pass;
};

TEST_F(RenderPassTest, bindsOfATextureMustBePaired) {
    const auto bind = [&] { pass.bindTexture(context, "color", ShaderConfiguration::Pixel, 2); };
    const auto unbind = [&] { pass.unbindTexture(context, "color"); };
    const auto bound = [&] {
        ATL::CComPtr<ID3D11ShaderResourceView> view;
        context->PSGetShaderResources(2, 1, &view);
        return view != nullptr;
    };
    EXPECT_EQ(logicError(unbind), "Error: begin call is missing");
    bind();
    EXPECT_TRUE(bound());
    EXPECT_EQ(logicError(bind), "Error: end call is missing");
    pass.bindTexture(context, "position", ShaderConfiguration::Vertex, 2);
    unbind();
    EXPECT_FALSE(bound());
    EXPECT_EQ(logicError(unbind), "Error: begin call is missing");
    EXPECT_EQ(logicError(bind), "no error");

    pass.addDepthBuffer(D3D11_CLEAR_DEPTH, 1.0f, 0);
    const auto bindDepth = [&] { pass.bindDepthTexture(context, ShaderConfiguration::Pixel, 0); };
    bindDepth();
    EXPECT_EQ(logicError(bindDepth), "Error: end call is missing");
    pass.unbindDepthTexture(context);
    EXPECT_EQ(logicError([&] { pass.unbindDepthTexture(context); }), "Error: begin call is missing");
}

TEST_F(RenderPassTest, unknownAndTakenNamesAreRefused) {
    EXPECT_THROW(pass.texture("depth"), std::out_of_range);
    EXPECT_THROW(pass.addRenderTarget("color", DXGI_FORMAT_R32_FLOAT), std::invalid_argument);
    EXPECT_THROW(pass.depthTexture(), std::bad_optional_access);
}

TEST_F(RenderPassTest, clearsEachTargetWithItsValueAndKeepsItThroughAResize) {
    pass.setClearValue("color", Math::Color(10, 20, 30, 40));
    pass.setClearValue("position", 1.5f, -2.0f, 0.25f, 1.0f);
    pass.addDepthBuffer(D3D11_CLEAR_DEPTH, 0.75f, 0);
    pass.setViewport(19, 3);
    pass.clearAllRenderTargets(context, false);
    pass.setDepthStencilClearValues(D3D11_CLEAR_DEPTH, 0.5f, 0);
    pass.clearAllRenderTargets(context, true);
    const auto colors = readTexels<uint32_t>(renderer, pass.texture("color"));
    EXPECT_EQ(colors, std::vector<uint32_t>(19 * 3, Math::Color(10, 20, 30, 40).packed()));
    const auto positions = readTexels<Float4>(renderer, pass.texture("position"));
    EXPECT_EQ(positions, (std::vector<Float4>(19 * 3, {1.5f, -2.0f, 0.25f, 1.0f})));
    EXPECT_EQ(readTexels<float>(renderer, pass.depthTexture()), std::vector<float>(19 * 3, 0.5f));

    pass.setClearValue("color", 0.0f, 0.0f, 0.0f, 0.0f);
    pass.setClearValue("position", 0.0f, 0.0f, 0.0f, 0.0f);
    pass.clear(context, "color");
    EXPECT_EQ(readTexels<uint32_t>(renderer, pass.texture("color")), std::vector<uint32_t>(19 * 3, 0));
    EXPECT_EQ(readTexels<Float4>(renderer, pass.texture("position")), positions);
}

TEST_F(RenderPassTest, aFailedResizeLeavesThePassAsItWas) {
    ID3D11Texture2D* const before = pass.texture("color").get();
    EXPECT_THROW(pass.setViewport(0, 5), Render::ComException);
    EXPECT_THROW(pass.setViewport(1u << 20, 5), Render::ComException);
    EXPECT_EQ(pass.texture("color").get(), before);
    pass.clearAllRenderTargets(context, true);
    EXPECT_EQ(readTexels<uint32_t>(renderer, pass.texture("color")).size(), 7u * 5u);
}

TEST_F(RenderPassTest, beginBindsInOrderOfAdditionAndEndUnbinds) {
    const auto bound = [&](UINT slot) {
        ATL::CComPtr<ID3D11RenderTargetView> views[3];
        context->OMGetRenderTargets(3, &views[0], nullptr);
        return views[slot] == nullptr ? nullptr : resourceOf(views[slot]);
    };
    pass.addRenderTarget("a", DXGI_FORMAT_B8G8R8A8_UNORM);
    pass.begin(context);
    EXPECT_EQ(bound(0), pass.texture("color").get());
    EXPECT_EQ(bound(1), pass.texture("position").get());
    EXPECT_EQ(bound(2), pass.texture("a").get());
    pass.end(context);
    EXPECT_EQ(bound(0), nullptr);
    EXPECT_EQ(bound(2), nullptr);
}

TEST_F(RenderPassTest, refusesANinthTargetAndAResizeWhileATextureIsBound) {
    for (const char* name : {"2", "3", "4", "5", "6", "7"}) {
        pass.addRenderTarget(name, DXGI_FORMAT_R8_UNORM);
    }
    EXPECT_THROW(pass.addRenderTarget("8", DXGI_FORMAT_R8_UNORM), std::invalid_argument);
    pass.bindTexture(context, "3", ShaderConfiguration::Pixel, 0);
    EXPECT_EQ(logicError([&] { pass.setViewport(9, 9); }), "Error: end call is missing");
    EXPECT_EQ(pass.width(), 7u);
    pass.unbindTexture(context, "3");
    EXPECT_EQ(logicError([&] { pass.setViewport(9, 9); }), "no error");
    EXPECT_EQ(pass.width(), 9u);
}

}  // namespace
