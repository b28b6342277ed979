#include <render/core/Renderer.h>
#include <render/gpu/ComException.h>

#include <array>
#include <cassert>
#include <stdexcept>
#include <string>
#include <utility>

#if defined(_MSC_VER)
template class LUMARO_API Core::InstanceId<Render::Renderer>;
#else
template class Core::InstanceId<Render::Renderer>;
#endif

namespace Render {

namespace {

constexpr UINT kAllSamples = 0xffffffff;
constexpr UINT kStencilReference = 1;

unsigned toUnsigned(size_t size) {
    return static_cast<unsigned>(size);
}

D3D11_RENDER_TARGET_BLEND_DESC unblended() {
    D3D11_RENDER_TARGET_BLEND_DESC target = {};
    target.BlendEnable = FALSE;
    target.SrcBlend = D3D11_BLEND_ONE;
    target.DestBlend = D3D11_BLEND_ZERO;
    target.BlendOp = D3D11_BLEND_OP_ADD;
    target.SrcBlendAlpha = D3D11_BLEND_ONE;
    target.DestBlendAlpha = D3D11_BLEND_ZERO;
    target.BlendOpAlpha = D3D11_BLEND_OP_ADD;
    target.RenderTargetWriteMask = D3D11_COLOR_WRITE_ENABLE_ALL;
    return target;
}

// Blends the colour alone: world positions of a transparent scene are those of what was drawn last.
D3D11_BLEND_DESC alphaBlendDesc() {
    D3D11_BLEND_DESC desc = {};
    desc.IndependentBlendEnable = TRUE;
    for (D3D11_RENDER_TARGET_BLEND_DESC& target : desc.RenderTarget) {
        target = unblended();
    }
    desc.RenderTarget[0].BlendEnable = TRUE;
    desc.RenderTarget[0].SrcBlend = D3D11_BLEND_SRC_ALPHA;
    desc.RenderTarget[0].DestBlend = D3D11_BLEND_INV_SRC_ALPHA;
    return desc;
}

D3D11_BLEND_DESC opaqueBlendDesc() {
    D3D11_BLEND_DESC desc = {};
    desc.RenderTarget[0] = unblended();
    return desc;
}

D3D11_RASTERIZER_DESC rasterizerDesc() {
    D3D11_RASTERIZER_DESC desc = {};
    desc.FillMode = D3D11_FILL_SOLID;
    desc.CullMode = D3D11_CULL_NONE;
    desc.DepthClipEnable = TRUE;
    return desc;
}

Texture2d createStaging(ID3D11Device* device, DXGI_FORMAT format, const Viewport& viewport) {
    D3D11_TEXTURE2D_DESC desc = {};
    desc.Width = toUnsigned(viewport.width());
    desc.Height = toUnsigned(viewport.height());
    desc.MipLevels = 1;
    desc.ArraySize = 1;
    desc.Format = format;
    desc.SampleDesc.Count = 1;
    desc.Usage = D3D11_USAGE_STAGING;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    return Texture2d(device, desc);
}

}  // namespace

Renderer::Renderer(bool isZBufferReversed)
    : mCamera(std::make_shared<Camera>(isZBufferReversed)),
      mBackgroundColor(255, 255, 255, 255),
      mModelMatrix(Eigen::Matrix4f::Identity()),
      mScenePass(nullptr, 640, 480),
      mOutputPass(nullptr, 640, 480),
      mAutoAdjustZRange(false) {
    createDevice();
    setOrthographic(2.0f, 2.0f, -1.0f, 1.0f);
    createPasses();
    createStates();
    createStagingTextures();
    mPostProcess = PostProcess(mDevice);
}

Renderer::~Renderer() {
    if (mScene) {
        mScene->deinit();
    }
}

void Renderer::createDevice() {
    throwIfFailed(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0,
                                    D3D11_SDK_VERSION, &mDevice, nullptr, &mDeviceContext),
                  "D3D11CreateDevice");
    if (mDevice->GetFeatureLevel() < D3D_FEATURE_LEVEL_11_0) {
        throw std::runtime_error("needs at least a DirectX 11.0 graphics card");
    }
}

void Renderer::createPasses() {
    const unsigned width = toUnsigned(viewport().width());
    const unsigned height = toUnsigned(viewport().height());
    mScenePass = RenderPass(mDevice, width, height);
    mScenePass.addDepthBuffer(D3D11_CLEAR_DEPTH, mCamera->clearDepthValue(), 0);
    mScenePass.addRenderTarget("color", DXGI_FORMAT_B8G8R8A8_UNORM);
    mScenePass.addRenderTarget("worldPosition", DXGI_FORMAT_R32G32B32A32_FLOAT);
    mScenePass.addRenderTarget("exactWorldPosition", DXGI_FORMAT_R32G32B32A32_FLOAT);
    mOutputPass = RenderPass(mDevice, width, height);
    mOutputPass.addRenderTarget("color", DXGI_FORMAT_B8G8R8A8_UNORM);
    mOutputPass.addRenderTarget("worldPosition", DXGI_FORMAT_R32G32B32A32_FLOAT);
    mScenePass.setClearValue("worldPosition", 0.0f, 0.0f, 0.0f, 0.0f);
    mScenePass.setClearValue("exactWorldPosition", 0.0f, 0.0f, 0.0f, 0.0f);
    mOutputPass.setClearValue("worldPosition", 0.0f, 0.0f, 0.0f, 0.0f);
}

void Renderer::createStates() {
    const bool reversed = mCamera->isZBufferReversed();
    mDepthWriteState = DepthStencilState(mDevice, reversed, true, true);
    mDepthReadOnlyState = DepthStencilState(mDevice, reversed, true, false);
    mAlphaBlendState = BlendState(mDevice, alphaBlendDesc());
    mOpaqueBlendState = BlendState(mDevice, opaqueBlendDesc());
    mRasterizerState = RasterizerState(mDevice, rasterizerDesc());
}

void Renderer::createStagingTextures() {
    mColorStaging = createStaging(mDevice, DXGI_FORMAT_B8G8R8A8_UNORM, viewport());
    mDepthStaging = createStaging(mDevice, DXGI_FORMAT_D32_FLOAT, viewport());
    mWorldPositionStaging = createStaging(mDevice, DXGI_FORMAT_R32G32B32A32_FLOAT, viewport());
    mExactWorldPositionStaging = createStaging(mDevice, DXGI_FORMAT_R32G32B32A32_FLOAT, viewport());
}

void Renderer::setScene(std::shared_ptr<Renderable> scene) {
    if (mScene) {
        mScene->deinit();
    }
    mScene = std::move(scene);
    mScene->init(id(), mCamera, mDevice, mDeviceContext);
    mScene->onUpdateRenderMode(mRenderMode);
    mScene->onUpdateTomographicColor(mTomographicColor);
    mScene->onUpdateColorMap(mColorMap);
    mScene->onUpdateUseSignedDistance(mUseSignedDistance);
    mScene->onUpdateColorMapRange(mMinDistance, mMaxDistance);
}

void Renderer::setViewport(size_t width, size_t height) {
    if (width == viewport().width() && height == viewport().height()) {
        return;
    }
    try {
        resizeTargets(toUnsigned(width), toUnsigned(height));
    } catch (const ComException& error) {
        resizeTargets(toUnsigned(viewport().width()), toUnsigned(viewport().height()));
        const std::string size = std::to_string(width) + " x " + std::to_string(height);
        throwIfFailed(error.result(), ("making render targets of " + size + " pixels").c_str());
    }
    mCamera->setViewport(width, height);
    if (mScene) {
        mScene->onUpdateViewport(mCamera);
        mScene->onUpdateProjectionMatrix(mCamera);
    }
    mPostProcess.setViewport(viewport());
    mCamera->setNeedsRedraw(true);
}

void Renderer::resizeTargets(unsigned width, unsigned height) {
    mScenePass.setViewport(width, height);
    mOutputPass.setViewport(width, height);
    for (Texture2d* staging :
         {&mColorStaging, &mDepthStaging, &mWorldPositionStaging, &mExactWorldPositionStaging}) {
        staging->resize(mDevice, width, height, 1);
    }
}

double Renderer::aspectRatio() const {
    return viewport().aspectRatio();
}

void Renderer::setBackgroundColor(unsigned char r, unsigned char g, unsigned char b, unsigned char a) {
    setBackgroundColor(Math::Color(r, g, b, a));
}

void Renderer::setBackgroundColor(const Math::Color& color) {
    if (color == mBackgroundColor) {
        return;
    }
    mBackgroundColor = color;
    mPostProcess.setBackgroundColor(color);
    mCamera->setNeedsRedraw(true);
}

void Renderer::render() {
    viewport().set(mDeviceContext);
    resetPointChunkPosition();
    updateZRangeIfNeeded();
    drawScene();
    drawPostProcess();
    mCamera->setNeedsRedraw(false);
}

Math::Color Renderer::frameBackground() {
    return mScene ? mScene->backgroundColor().value_or(mBackgroundColor) : mBackgroundColor;
}

void Renderer::drawScene() {
    mScenePass.begin(mDeviceContext);
    mScenePass.setClearValue("color", frameBackground());
    if (mScene && mScene->isTransparent()) {
        mAlphaBlendState.set(mDeviceContext, nullptr, kAllSamples);
        mDepthReadOnlyState.set(mDeviceContext, kStencilReference);
    } else {
        mDepthWriteState.set(mDeviceContext, kStencilReference);
    }
    mRasterizerState.set(mDeviceContext);
    mScenePass.clearAllRenderTargets(mDeviceContext, true);
    if (mScene && mScene->visible()) {
        mScene->render();
    }
    mScenePass.end(mDeviceContext);
}

void Renderer::drawPostProcess() {
    constexpr std::array<const char*, 3> textures = {"color", "worldPosition", "exactWorldPosition"};
    mOutputPass.begin(mDeviceContext);
    mOpaqueBlendState.set(mDeviceContext, nullptr, kAllSamples);
    mDepthReadOnlyState.set(mDeviceContext, kStencilReference);
    mOutputPass.setClearValue("color", mBackgroundColor);
    mOutputPass.clearAllRenderTargets(mDeviceContext, true);
    for (unsigned slot = 0; slot < textures.size(); ++slot) {
        mScenePass.bindTexture(mDeviceContext, textures[slot], ShaderConfiguration::Pixel, slot);
    }
    mPostProcess.draw(mDeviceContext);
    for (const char* name : textures) {
        mScenePass.unbindTexture(mDeviceContext, name);
    }
    mOutputPass.end(mDeviceContext);
}

bool Renderer::needsRedraw() const {
    if (mCamera->needsRedraw()) {
        return true;
    }
    assert(mScene);
    return mScene->needsRedraw();
}

Math::NBoundingBox<float, 3> Renderer::boundingBox() {
    return mScene ? mScene->boundingBoxWorld() : Math::NBoundingBox<float, 3>();
}

}  // namespace Render
