#pragma once

#include <core/Export.h>
#include <render/gpu/CComPtr.h>

#include <d3d11.h>

namespace Render {

/// Owns the description of how triangles become pixels.
class LUMARO_API RasterizerState {
public:
    RasterizerState() noexcept = default;
    RasterizerState(RasterizerState&&) noexcept = default;
    RasterizerState& operator=(RasterizerState&&) noexcept = default;

    /// Throws ComException.
    RasterizerState(ID3D11Device* device, const D3D11_RASTERIZER_DESC& desc);

    void set(ID3D11DeviceContext* context) const;

    /// Lent, not given; null while empty.
    ID3D11RasterizerState* get() const { return mState; }

private:
    ATL::CComPtr<ID3D11RasterizerState> mState;
};

}  // namespace Render
