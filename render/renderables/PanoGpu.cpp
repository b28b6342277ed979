#include <render/renderables/PanoGpu.h>

#include <math/Color.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

namespace Render {

namespace {

constexpr const char* shaderName = "shaders/pano.hlsl";
constexpr unsigned placeholderSize = 8;
constexpr size_t grayStepPerLevel = 30;

// What no device can create stays so, instead of becoming something small.
unsigned saturated(size_t size) {
    return static_cast<unsigned>(std::min<size_t>(size, std::numeric_limits<unsigned>::max()));
}

Math::Color colorPlaceholder(size_t level) {
    return Math::Color::gray(static_cast<uint8_t>(level * grayStepPerLevel), 255);
}

float depthPlaceholder(size_t) {
    return std::numeric_limits<float>::max();
}

D3D11_TEXTURE2D_DESC textureDesc(DXGI_FORMAT format) {
    D3D11_TEXTURE2D_DESC desc{};
    desc.MipLevels = 1;
    desc.ArraySize = 1;
    desc.Format = format;
    desc.SampleDesc.Count = 1;
    return desc;
}

D3D11_TEXTURE2D_DESC arrayDesc(DXGI_FORMAT format) {
    D3D11_TEXTURE2D_DESC desc = textureDesc(format);
    desc.Usage = D3D11_USAGE_DEFAULT;
    desc.BindFlags = D3D11_BIND_SHADER_RESOURCE;
    return desc;
}

D3D11_TEXTURE2D_DESC uploadDesc(DXGI_FORMAT format) {
    D3D11_TEXTURE2D_DESC desc = textureDesc(format);
    desc.Usage = D3D11_USAGE_STAGING;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_WRITE;
    return desc;
}

// Without it, the view of a single tile would be none of an array.
D3D11_SHADER_RESOURCE_VIEW_DESC viewDesc(DXGI_FORMAT format, unsigned tiles) {
    D3D11_SHADER_RESOURCE_VIEW_DESC desc{};
    desc.Format = format;
    desc.ViewDimension = D3D11_SRV_DIMENSION_TEXTURE2DARRAY;
    desc.Texture2DArray.MipLevels = 1;
    desc.Texture2DArray.ArraySize = tiles;
    return desc;
}

D3D11_SAMPLER_DESC samplerDesc() {
    D3D11_SAMPLER_DESC desc{};
    desc.Filter = D3D11_FILTER_MIN_MAG_MIP_POINT;
    desc.AddressU = D3D11_TEXTURE_ADDRESS_WRAP;
    desc.AddressV = D3D11_TEXTURE_ADDRESS_WRAP;
    desc.AddressW = D3D11_TEXTURE_ADDRESS_WRAP;
    desc.ComparisonFunc = D3D11_COMPARISON_NEVER;
    return desc;
}

}  // namespace

PanoGpu::PanoGpu(ATL::CComPtr<ID3D11Device> device, ATL::CComPtr<ID3D11DeviceContext> context,
                 const Graphics::PanoramaLoader* loader)
    : mDevice(std::move(device)),
      mContext(std::move(context)),
      mVertexShader(VertexShader::fromHlslResource(mDevice, shaderName, {})),
      mPixelShader(PixelShader::fromHlslResource(mDevice, shaderName)),
      mConstants(mDevice),
      mSampler(mDevice, samplerDesc()) {
    if (loader != nullptr) {
        mColors =
            createLevels(*loader, loader->numColorLevels(), DXGI_FORMAT_B8G8R8A8_UNORM, colorPlaceholder);
        mDepths = createLevels(*loader, loader->numDepthLevels(), DXGI_FORMAT_R32_FLOAT, depthPlaceholder);
    }
}

template <class Fill>
PanoGpu::Levels PanoGpu::createLevels(const Graphics::PanoramaLoader& loader, size_t count,
                                      DXGI_FORMAT format, Fill fill) {
    Levels levels;
    const unsigned tiles = saturated(loader.tilesPerLevel());
    const D3D11_SHADER_RESOURCE_VIEW_DESC view = viewDesc(format, tiles);
    for (size_t level = 0; level < std::max(count, maxPanoLevels); ++level) {
        const bool exists = level < count;
        const unsigned width = exists ? saturated(loader.tileWidth(level)) : placeholderSize;
        const unsigned height = exists ? saturated(loader.tileHeight(level)) : placeholderSize;
        levels.arrays.emplace_back(mDevice, arrayDesc(format), width, height, fill(level), tiles);
        levels.views.emplace_back(mDevice, levels.arrays.back().get(), &view);
        if (exists) {
            levels.uploads.emplace_back(mDevice, uploadDesc(format), width, height, 1);
        }
    }
    return levels;
}

bool PanoGpu::belongsTo(ID3D11Device* device, ID3D11DeviceContext* context) const {
    return mDevice.p == device && mContext.p == context;
}

void PanoGpu::upload(size_t level, size_t slice, const Graphics::ColorImage& image) {
    upload(mColors, level, slice, image);
}

void PanoGpu::upload(size_t level, size_t slice, const Graphics::DepthImage& image) {
    upload(mDepths, level, slice, image);
}

template <class Image>
void PanoGpu::upload(Levels& levels, size_t level, size_t slice, const Image& image) {
    Texture2d& staging = levels.uploads[level];
    staging.drawImageTile(mContext, image, D3D11_MAP_WRITE, 0);
    levels.arrays[level].copySubRegion(mContext, staging, 0, 0, 0, static_cast<unsigned>(slice), 0);
}

void PanoGpu::draw() {
    mConstants.upload(mContext);  // Before anything is bound, because it may fail.
    mVertexShader.begin(mContext);
    mPixelShader.begin(mContext);
    mConstants.begin(mContext, ShaderConfiguration::Vertex | ShaderConfiguration::Pixel, 0);
    unsigned slot = 0;
    for (Levels* levels : {&mColors, &mDepths}) {
        for (ShaderResourceView& view : levels->views) {
            view.begin(mContext, ShaderConfiguration::Pixel, slot++);
        }
    }
    mSampler.begin(mContext, ShaderConfiguration::Pixel, 0);
    mContext->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLESTRIP);
    mContext->DrawInstanced(4, 1, 0, 0);
    mSampler.end(mContext);
    for (Levels* levels : {&mColors, &mDepths}) {
        for (ShaderResourceView& view : levels->views) {
            view.end(mContext);
        }
    }
    mConstants.end(mContext);
    mPixelShader.end(mContext);
    mVertexShader.end(mContext);
}

}  // namespace Render
