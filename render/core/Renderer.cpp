#include <render/core/Renderer.h>
#include <render/core/TargetNames.h>
#include <render/core/UploadAllowance.h>
#include <render/gpu/ComException.h>
#include <render/gpu/ShaderWarmUp.h>

#include <algorithm>
#include <array>
#include <limits>
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

// A size that 32 bits do not hold is beyond every device's limit; it must not come out as a small one.
unsigned toUnsigned(size_t size) {
    return static_cast<unsigned>(std::min<size_t>(size, (std::numeric_limits<unsigned>::max)()));
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

Texture2d createStaging(ID3D11Device* device, DXGI_FORMAT format, unsigned width, unsigned height) {
    D3D11_TEXTURE2D_DESC desc = {};
    desc.Width = width;
    desc.Height = height;
    desc.MipLevels = 1;
    desc.ArraySize = 1;
    desc.Format = format;
    desc.SampleDesc.Count = 1;
    desc.Usage = D3D11_USAGE_STAGING;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    return Texture2d(device, desc);
}

// Unbinds a pass's targets as textures, also when drawing with them fails.
class BoundTextures {
public:
    BoundTextures(RenderPass& pass, ID3D11DeviceContext* context) : mPass(pass), mContext(context) {
        for (unsigned slot = 0; slot < sceneTextures.size(); ++slot) {
            mPass.bindTexture(mContext, *sceneTextures[slot], ShaderConfiguration::Pixel, slot);
        }
    }
    ~BoundTextures() {
        for (const std::string* name : sceneTextures) {
            mPass.unbindTexture(mContext, *name);
        }
    }
    BoundTextures(const BoundTextures&) = delete;
    BoundTextures& operator=(const BoundTextures&) = delete;

private:
    static constexpr std::array<const std::string*, 3> sceneTextures = {
        &TargetNames::color, &TargetNames::worldPosition, &TargetNames::exactWorldPosition};

    RenderPass& mPass;
    ID3D11DeviceContext* mContext;
};

}  // namespace

Renderer::Renderer(bool isZBufferReversed)
    : mShaderWarmUp(std::make_unique<ShaderWarmUp>()),
      mCamera(std::make_shared<Camera>(isZBufferReversed)),
      mBackgroundColor(255, 255, 255, 255),
      mModelMatrix(Eigen::Matrix4f::Identity()),
      mScenePass(nullptr, 640, 480),
      mOutputPass(nullptr, 640, 480),
      mAutoAdjustZRange(false),
      mUploadAllowance(UploadAllowance::shared(id())) {
    createDevice();
    setOrthographic(2.0f, 2.0f, -1.0f, 1.0f);
    createTargets(toUnsigned(viewport().width()), toUnsigned(viewport().height()));
    createStates();
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

RenderPass Renderer::createScenePass(unsigned width, unsigned height) const {
    RenderPass pass(mDevice, width, height);
    pass.addDepthBuffer(D3D11_CLEAR_DEPTH, mCamera->clearDepthValue(), 0);
    pass.addRenderTarget(TargetNames::color, DXGI_FORMAT_B8G8R8A8_UNORM);
    pass.addRenderTarget(TargetNames::worldPosition, DXGI_FORMAT_R32G32B32A32_FLOAT);
    pass.addRenderTarget(TargetNames::exactWorldPosition, DXGI_FORMAT_R32G32B32A32_FLOAT);
    pass.setClearValue(TargetNames::worldPosition, 0.0f, 0.0f, 0.0f, 0.0f);
    pass.setClearValue(TargetNames::exactWorldPosition, 0.0f, 0.0f, 0.0f, 0.0f);
    return pass;
}

RenderPass Renderer::createOutputPass(unsigned width, unsigned height) const {
    RenderPass pass(mDevice, width, height);
    pass.addRenderTarget(TargetNames::color, DXGI_FORMAT_B8G8R8A8_UNORM);
    pass.addRenderTarget(TargetNames::worldPosition, DXGI_FORMAT_R32G32B32A32_FLOAT);
    pass.setClearValue(TargetNames::worldPosition, 0.0f, 0.0f, 0.0f, 0.0f);
    return pass;
}

// All or none: what fails leaves the old targets, with the picture in them.
void Renderer::createTargets(unsigned width, unsigned height) {
    RenderPass scenePass = createScenePass(width, height);
    RenderPass outputPass = createOutputPass(width, height);
    const auto staging = [&](DXGI_FORMAT format) { return createStaging(mDevice, format, width, height); };
    Texture2d color = staging(DXGI_FORMAT_B8G8R8A8_UNORM);
    Texture2d depth = staging(DXGI_FORMAT_D32_FLOAT);
    Texture2d worldPosition = staging(DXGI_FORMAT_R32G32B32A32_FLOAT);
    Texture2d exactWorldPosition = staging(DXGI_FORMAT_R32G32B32A32_FLOAT);
    mScenePass = std::move(scenePass);
    mOutputPass = std::move(outputPass);
    mColorStaging = std::move(color);
    mDepthStaging = std::move(depth);
    mWorldPositionStaging = std::move(worldPosition);
    mExactWorldPositionStaging = std::move(exactWorldPosition);
}

void Renderer::createStates() {
    const bool reversed = mCamera->isZBufferReversed();
    mDepthWriteState = DepthStencilState(mDevice, reversed, true, true);
    mDepthReadOnlyState = DepthStencilState(mDevice, reversed, true, false);
    mAlphaBlendState = BlendState(mDevice, alphaBlendDesc());
    mOpaqueBlendState = BlendState(mDevice, opaqueBlendDesc());
    mRasterizerState = RasterizerState(mDevice, rasterizerDesc());
}

void Renderer::setScene(std::shared_ptr<Renderable> scene) {
    if (mScene) {
        mScene->deinit();
    }
    mScene = std::move(scene);
    mToldView = mCamera->viewMatrix();
    mToldProjection = mCamera->projectionMatrix();
    mScene->init(id(), mCamera, mDevice, mDeviceContext);
    mScene->onUpdateRenderMode(mRenderMode);
    mScene->onUpdateTomographicColor(mTomographicColor);
    mScene->onUpdateColorMap(mColorMap);
    mScene->onUpdateUseSignedDistance(mUseSignedDistance);
    mScene->onUpdateColorMapRange(mMinDistance, mMaxDistance);
}

bool Renderer::hasTargetsOf(size_t width, size_t height) const {
    return mScenePass.width() == width && mScenePass.height() == height;
}

void Renderer::setViewport(size_t width, size_t height) {
    if (width != viewport().width() || height != viewport().height() || !hasTargetsOf(width, height)) {
        resize(width, height);
    }
}

void Renderer::resize(size_t width, size_t height) {
    try {
        createTargets(toUnsigned(width), toUnsigned(height));
    } catch (const ComException& error) {
        const std::string size = std::to_string(width) + " x " + std::to_string(height);
        throwIfFailed(error.result(), ("making render targets of " + size + " pixels").c_str());
    }
    mCamera->setViewport(width, height);
    if (mScene) {
        mScene->onUpdateViewport(mCamera);
    }
    tellProjection();
    mPostProcess.setViewport(viewport());
    mCamera->setNeedsRedraw(true);
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
    renderFrame(mUploadBytesPerFrame);
}

void Renderer::renderFrame(size_t uploadBytes) {
    mUploadAllowance->beginFrame(uploadBytes);
    try {
        tellCamera();
        viewport().set(mDeviceContext);
        updateZRangeIfNeeded();
        drawScene();
        drawPostProcess();
    } catch (...) {
        mCamera->setNeedsRedraw(true);  // The scene may have cleared its own flag already.
        throw;
    }
    mCamera->setNeedsRedraw(false);
    resetPointChunkPosition();
}

Math::Color Renderer::frameBackground() {
    return mScene ? mScene->backgroundColor().value_or(mBackgroundColor) : mBackgroundColor;
}

void Renderer::drawScene() {
    mScenePass.begin(mDeviceContext);
    mScenePass.setClearValue(TargetNames::color, frameBackground());
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
    } else if (mScene) {
        mScene->skipRender();
    }
    mScenePass.end(mDeviceContext);
}

void Renderer::drawPostProcess() {
    mOutputPass.begin(mDeviceContext);
    mOpaqueBlendState.set(mDeviceContext, nullptr, kAllSamples);
    mDepthReadOnlyState.set(mDeviceContext, kStencilReference);
    mOutputPass.setClearValue(TargetNames::color, mBackgroundColor);
    mOutputPass.clearAllRenderTargets(mDeviceContext, true);
    {
        const BoundTextures textures(mScenePass, mDeviceContext);
        mPostProcess.draw(mDeviceContext);
    }
    mOutputPass.end(mDeviceContext);
}

bool Renderer::needsRedraw() const {
    return mCamera->needsRedraw() || !isCameraTold() || (mScene && mScene->needsRedraw());
}

Math::NBoundingBox<float, 3> Renderer::boundingBox() {
    return mScene ? mScene->boundingBoxWorld() : Math::NBoundingBox<float, 3>();
}

}  // namespace Render
