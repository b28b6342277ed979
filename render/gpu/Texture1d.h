#pragma once

#include <core/Export.h>
#include <render/gpu/CComPtr.h>

#include <d3d11.h>

namespace Render {

/// Owns one 1D texture. Failing calls throw ComException; operations with a context belong to its thread.
class LUMARO_API Texture1d {
public:
    Texture1d() noexcept = default;
    Texture1d(Texture1d&&) noexcept = default;
    Texture1d& operator=(Texture1d&&) noexcept = default;
    Texture1d(ID3D11Device* device, const D3D11_TEXTURE1D_DESC& desc);

    /// Maps subresource 0.
    D3D11_MAPPED_SUBRESOURCE map(ID3D11DeviceContext* context, D3D11_MAP type);
    void unMap(ID3D11DeviceContext* context);

    /// Copies the whole of `source` into this texture.
    void copy(ID3D11DeviceContext* context, const Texture1d& source);

    /// Lent, not given; null while empty.
    ID3D11Texture1D* get() const { return mTexture; }

private:
    ATL::CComPtr<ID3D11Texture1D> mTexture;
};

}  // namespace Render
