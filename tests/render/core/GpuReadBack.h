#pragma once

#include <render/core/Renderer.h>
#include <render/gpu/ComException.h>
#include <render/gpu/Texture2d.h>

#include <cstring>
#include <vector>

/// All texels of a texture, row by row, through a staging copy of its own.
template <class Texel>
std::vector<Texel> readTexels(const Render::Renderer& renderer, const Render::Texture2d& texture) {
    ID3D11DeviceContext* const context = renderer.deviceContext();
    D3D11_TEXTURE2D_DESC desc = {};
    texture.get()->GetDesc(&desc);
    desc.Usage = D3D11_USAGE_STAGING;
    desc.BindFlags = 0;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    if (desc.Format == DXGI_FORMAT_R32_TYPELESS) {
        desc.Format = DXGI_FORMAT_D32_FLOAT;
    }
    Render::Texture2d staging(renderer.device(), desc);
    staging.copy(context, texture);
    const D3D11_MAPPED_SUBRESOURCE mapped = staging.map(context, D3D11_MAP_READ, 0);
    std::vector<Texel> texels(size_t{desc.Width} * desc.Height);
    for (size_t y = 0; y < desc.Height; ++y) {
        std::memcpy(texels.data() + y * desc.Width,
                    static_cast<const char*>(mapped.pData) + y * mapped.RowPitch, desc.Width * sizeof(Texel));
    }
    staging.unMap(context, 0);
    return texels;
}

/// The texture behind a view, for comparison only.
inline ID3D11Resource* resourceOf(ID3D11RenderTargetView* view) {
    ATL::CComPtr<ID3D11Resource> resource;
    view->GetResource(&resource);
    return resource;
}
