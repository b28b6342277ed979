#include <render/gpu/ComException.h>
#include <render/gpu/ShaderCompiler.h>
#include <render/gpu/ShaderInclude.h>
#include <render/gpu/Viewport.h>
#include <tests/support/GpuTestDevice.h>

#include <memory>

namespace TestSupport {

GpuTestDevice::GpuTestDevice() {
    constexpr D3D_FEATURE_LEVEL level = D3D_FEATURE_LEVEL_11_0;
    HRESULT result = E_FAIL;
    for (const D3D_DRIVER_TYPE driver : {D3D_DRIVER_TYPE_HARDWARE, D3D_DRIVER_TYPE_WARP}) {
        result = D3D11CreateDevice(nullptr, driver, nullptr, 0, &level, 1, D3D11_SDK_VERSION, &mDevice,
                                   nullptr, &mContext);
        if (result >= 0) {
            return;
        }
    }
    Render::throwIfFailed(result, "D3D11CreateDevice");
}

GpuTestDevice& GpuTestDevice::fresh() {
    static std::unique_ptr<GpuTestDevice> device;
    device.reset();
    device = std::make_unique<GpuTestDevice>();
    return *device;
}

std::vector<unsigned char> GpuTestDevice::readBytes(ID3D11Texture2D* texture, unsigned subresource,
                                                    size_t texelSize) const {
    D3D11_TEXTURE2D_DESC desc{};
    texture->GetDesc(&desc);
    desc.ArraySize = 1;
    desc.MipLevels = 1;
    desc.Usage = D3D11_USAGE_STAGING;
    desc.BindFlags = 0;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    desc.MiscFlags = 0;
    const Render::Texture2d staging(mDevice, desc);
    mContext->CopySubresourceRegion(staging.get(), 0, 0, 0, 0, texture, subresource, nullptr);
    D3D11_MAPPED_SUBRESOURCE mapped{};
    Render::throwIfFailed(mContext->Map(staging.get(), 0, D3D11_MAP_READ, 0, &mapped), "Map for reading");
    const size_t rowSize = desc.Width * texelSize;
    std::vector<unsigned char> bytes(rowSize * desc.Height);
    for (size_t row = 0; row < desc.Height; ++row) {
        std::memcpy(bytes.data() + row * rowSize,
                    static_cast<const unsigned char*>(mapped.pData) + row * mapped.RowPitch, rowSize);
    }
    mContext->Unmap(staging.get(), 0);
    return bytes;
}

std::vector<unsigned char> GpuTestDevice::readBuffer(ID3D11Buffer* buffer) const {
    D3D11_BUFFER_DESC desc{};
    buffer->GetDesc(&desc);
    desc.Usage = D3D11_USAGE_STAGING;
    desc.BindFlags = 0;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    ATL::CComPtr<ID3D11Buffer> staging;
    Render::throwIfFailed(mDevice->CreateBuffer(&desc, nullptr, &staging), "CreateBuffer for reading");
    mContext->CopyResource(staging, buffer);
    D3D11_MAPPED_SUBRESOURCE mapped{};
    Render::throwIfFailed(mContext->Map(staging, 0, D3D11_MAP_READ, 0, &mapped), "Map for reading");
    const auto* first = static_cast<const unsigned char*>(mapped.pData);
    std::vector<unsigned char> bytes(first, first + desc.ByteWidth);
    mContext->Unmap(staging, 0);
    return bytes;
}

D3D11_TEXTURE2D_DESC GpuTestDevice::textureDesc(unsigned width, unsigned height, DXGI_FORMAT format,
                                                unsigned bindFlags) {
    D3D11_TEXTURE2D_DESC desc{};
    desc.Width = width;
    desc.Height = height;
    desc.MipLevels = 1;
    desc.ArraySize = 1;
    desc.Format = format;
    desc.SampleDesc.Count = 1;
    desc.Usage = D3D11_USAGE_DEFAULT;
    desc.BindFlags = bindFlags;
    return desc;
}

std::string GpuTestDevice::compile(std::string_view source, const char* entryPoint, const char* target) {
    Render::ShaderInclude include;
    return Render::ShaderCompiler::compile(source, "test", &include, entryPoint, target);
}

FloatTargets::FloatTargets(GpuTestDevice& gpu, unsigned width, unsigned height, unsigned count)
    : mGpu(gpu), mWidth(width), mHeight(height) {
    const D3D11_TEXTURE2D_DESC desc = GpuTestDevice::textureDesc(
        width, height, DXGI_FORMAT_R32G32B32A32_FLOAT, D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE);
    for (unsigned i = 0; i < count; ++i) {
        mTextures.emplace_back(gpu.device(), desc);
        mViews.emplace_back(gpu.device(), mTextures.back().get(), Float4{});
    }
}

void FloatTargets::bindAndClear(float value) {
    std::vector<ID3D11RenderTargetView*> views;
    for (Render::RenderTargetView& view : mViews) {
        view.setClearValue(value);
        view.clear(mGpu.context());
        views.push_back(view.get());
    }
    mGpu.context()->OMSetRenderTargets(static_cast<UINT>(views.size()), views.data(), nullptr);
    Render::Viewport(mWidth, mHeight).set(mGpu.context());
}

std::vector<Float4> FloatTargets::read(size_t target) {
    mGpu.context()->OMSetRenderTargets(0, nullptr, nullptr);
    return mGpu.read<Float4>(mTextures[target].get());
}

}  // namespace TestSupport
