#include <render/core/RenderPass.h>
#include <render/gpu/StageBinding.h>

#include <stdexcept>
#include <utility>

namespace Render {

RenderPass::RenderPass(const ATL::CComPtr<ID3D11Device>& device, unsigned width, unsigned height)
    : mDevice(device), mWidth(width), mHeight(height) {}

size_t RenderPass::addRenderTarget(const std::string& name, DXGI_FORMAT format) {
    D3D11_TEXTURE2D_DESC desc = {};
    desc.MipLevels = 1;
    desc.ArraySize = 1;
    desc.Format = format;
    desc.SampleDesc.Count = 1;
    desc.Usage = D3D11_USAGE_DEFAULT;
    return addRenderTarget(name, desc);
}

size_t RenderPass::addRenderTarget(const std::string& name, D3D11_TEXTURE2D_DESC desc) {
    if (mTargets.count(name) != 0) {
        throw std::invalid_argument("RenderPass: there already is a target \"" + name + "\"");
    }
    if (mOrder.size() == D3D11_SIMULTANEOUS_RENDER_TARGET_COUNT) {
        throw std::invalid_argument("RenderPass: no room for target \"" + name +
                                    "\": a pass has at most eight");
    }
    desc.BindFlags |= static_cast<UINT>(D3D11_BIND_RENDER_TARGET) | D3D11_BIND_SHADER_RESOURCE;
    RenderTarget target = createTarget(desc, mWidth, mHeight, {});
    ID3D11RenderTargetView* const view = target.targetView.get();
    mOrder.reserve(mOrder.size() + 1);
    mRenderTargetViews.reserve(mRenderTargetViews.size() + 1);
    mTargets.emplace(name, std::move(target));
    mOrder.push_back(name);
    mRenderTargetViews.push_back(view);
    return mOrder.size() - 1;
}

void RenderPass::addDepthBuffer(unsigned clearFlags, float clearDepth, unsigned char clearStencil) {
    mDepthBuffer = createDepthBuffer(mWidth, mHeight, clearFlags, clearDepth, clearStencil);
}

void RenderPass::setViewport(unsigned width, unsigned height) {
    for (const auto& [name, target] : mTargets) {
        StageBinding::requireUnbound(target.resourceView.stages());
    }
    if (mDepthBuffer) {
        StageBinding::requireUnbound(mDepthBuffer->resourceView.stages());
    }
    std::unordered_map<std::string, RenderTarget> targets;
    std::vector<ID3D11RenderTargetView*> views;
    for (const std::string& name : mOrder) {
        const RenderTarget& old = mTargets.at(name);
        RenderTarget target = createTarget(old.desc, width, height, old.targetView.clearValue());
        views.push_back(target.targetView.get());
        targets.emplace(name, std::move(target));
    }
    if (mDepthBuffer) {
        const DepthStencilView& old = mDepthBuffer->depthView;
        mDepthBuffer = createDepthBuffer(width, height, old.clearFlags(), old.depthClearValue(),
                                         old.stencilClearValue());
    }
    mTargets = std::move(targets);
    mRenderTargetViews = std::move(views);
    mWidth = width;
    mHeight = height;
}

void RenderPass::setClearValue(const std::string& name, float r, float g, float b, float a) {
    mTargets.at(name).targetView.setClearValue(r, g, b, a);
}

void RenderPass::setClearValue(const std::string& name, const Math::Color& color) {
    mTargets.at(name).targetView.setClearValue(color);
}

void RenderPass::setDepthStencilClearValues(unsigned clearFlags, float depth, unsigned char stencil) {
    mDepthBuffer.value().depthView.setClearValues(clearFlags, depth, stencil);
}

void RenderPass::begin(ID3D11DeviceContext* context) {
    context->OMSetRenderTargets(static_cast<UINT>(mRenderTargetViews.size()), mRenderTargetViews.data(),
                                mDepthBuffer ? mDepthBuffer->depthView.get() : nullptr);
}

void RenderPass::end(ID3D11DeviceContext* context) {
    ID3D11RenderTargetView* const none[D3D11_SIMULTANEOUS_RENDER_TARGET_COUNT] = {};
    context->Flush();
    context->OMSetRenderTargets(static_cast<UINT>(mRenderTargetViews.size()), none, nullptr);
}

void RenderPass::clear(ID3D11DeviceContext* context, const std::string& name) {
    mTargets.at(name).targetView.clear(context);
}

void RenderPass::clearAllRenderTargets(ID3D11DeviceContext* context, bool clearDepth) {
    for (auto& [name, target] : mTargets) {
        target.targetView.clear(context);
    }
    if (clearDepth && mDepthBuffer) {
        mDepthBuffer->depthView.clear(context);
    }
}

void RenderPass::bindTexture(ID3D11DeviceContext* context, const std::string& name,
                             ShaderConfiguration stages, unsigned slot) {
    mTargets.at(name).resourceView.begin(context, stages, slot);
}

void RenderPass::unbindTexture(ID3D11DeviceContext* context, const std::string& name) {
    mTargets.at(name).resourceView.end(context);
}

void RenderPass::bindDepthTexture(ID3D11DeviceContext* context, ShaderConfiguration stages, unsigned slot) {
    mDepthBuffer.value().resourceView.begin(context, stages, slot);
}

void RenderPass::unbindDepthTexture(ID3D11DeviceContext* context) {
    mDepthBuffer.value().resourceView.end(context);
}

const Texture2d& RenderPass::texture(const std::string& name) const {
    return mTargets.at(name).texture;
}

const Texture2d& RenderPass::depthTexture() const {
    return mDepthBuffer.value().texture;
}

RenderPass::RenderTarget RenderPass::createTarget(D3D11_TEXTURE2D_DESC desc, unsigned width, unsigned height,
                                                  const std::array<float, 4>& clearValue) const {
    desc.Width = width;
    desc.Height = height;
    Texture2d texture(mDevice, desc);
    RenderTargetView targetView(mDevice, texture.get(), clearValue);
    ShaderResourceView resourceView(mDevice, texture.get(), nullptr);
    return {desc, std::move(texture), std::move(targetView), std::move(resourceView)};
}

RenderPass::DepthBuffer RenderPass::createDepthBuffer(unsigned width, unsigned height, unsigned clearFlags,
                                                      float clearDepth, unsigned char clearStencil) const {
    D3D11_TEXTURE2D_DESC desc = {};
    desc.Width = width;
    desc.Height = height;
    desc.MipLevels = 1;
    desc.ArraySize = 1;
    // Typeless, so that one texture is a depth buffer in one view and a float texture in the other.
    desc.Format = DXGI_FORMAT_R32_TYPELESS;
    desc.SampleDesc.Count = 1;
    desc.Usage = D3D11_USAGE_DEFAULT;
    desc.BindFlags = static_cast<UINT>(D3D11_BIND_DEPTH_STENCIL) | D3D11_BIND_SHADER_RESOURCE;
    Texture2d texture(mDevice, desc);
    D3D11_SHADER_RESOURCE_VIEW_DESC viewDesc = {};
    viewDesc.Format = DXGI_FORMAT_R32_FLOAT;
    viewDesc.ViewDimension = D3D11_SRV_DIMENSION_TEXTURE2D;
    viewDesc.Texture2D.MipLevels = 1;
    ShaderResourceView resourceView(mDevice, texture.get(), &viewDesc);
    DepthStencilView depthView(mDevice, texture.get(), clearFlags, clearDepth, clearStencil);
    return {std::move(texture), std::move(resourceView), std::move(depthView)};
}

}  // namespace Render
