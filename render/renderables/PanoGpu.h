#pragma once

#include <graphics/ColorImage.h>
#include <graphics/DepthImage.h>
#include <graphics/PanoramaLoader.h>
#include <render/gpu/CComPtr.h>
#include <render/gpu/ConstantBuffer.h>
#include <render/gpu/PixelShader.h>
#include <render/gpu/SamplerState.h>
#include <render/gpu/ShaderResourceView.h>
#include <render/gpu/Texture2d.h>
#include <render/gpu/VertexShader.h>
#include <render/renderables/PanoConstants.h>

#include <d3d11.h>

#include <cstddef>
#include <vector>

namespace Render {

/// The GPU side of one panorama: shaders, constants and the tiles that have arrived. Render thread only.
/// Failing calls throw ComException.
class PanoGpu {
public:
    /// Tile arrays full of placeholders; none without a loader.
    PanoGpu(ATL::CComPtr<ID3D11Device> device, ATL::CComPtr<ID3D11DeviceContext> context,
            const Graphics::PanoramaLoader* loader);

    bool belongsTo(ID3D11Device* device, ID3D11DeviceContext* context) const;

    void setConstants(const PanoConstants& constants) { mConstants.set(constants); }

    /// Both take an image of the size of the level's tiles, in rows without padding.
    void upload(size_t level, size_t slice, const Graphics::ColorImage& image);
    void upload(size_t level, size_t slice, const Graphics::DepthImage& image);

    /// Covers the bound targets. Nothing that it binds stays bound.
    void draw();

private:
    /// By level. Arrays and views go on with placeholders up to the last level of the shader.
    struct Levels {
        std::vector<Texture2d> arrays;
        std::vector<Texture2d> uploads;
        std::vector<ShaderResourceView> views;
    };

    template <class Fill>
    Levels createLevels(const Graphics::PanoramaLoader& loader, size_t count, DXGI_FORMAT format, Fill fill);
    template <class Image>
    void upload(Levels& levels, size_t level, size_t slice, const Image& image);

    ATL::CComPtr<ID3D11Device> mDevice;
    ATL::CComPtr<ID3D11DeviceContext> mContext;
    VertexShader mVertexShader;
    PixelShader mPixelShader;
    ConstantBuffer<PanoConstants> mConstants;
    SamplerState mSampler;
    Levels mColors;
    Levels mDepths;
};

}  // namespace Render
