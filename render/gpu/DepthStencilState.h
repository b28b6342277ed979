#pragma once

#include <core/Export.h>
#include <render/gpu/CComPtr.h>

#include <d3d11.h>

namespace Render {

/// Owns the description of how depth is tested and written.
class LUMARO_API DepthStencilState {
public:
    DepthStencilState() noexcept = default;
    DepthStencilState(DepthStencilState&&) noexcept = default;
    DepthStencilState& operator=(DepthStencilState&&) noexcept = default;

    /// Throws ComException.
    DepthStencilState(ID3D11Device* device, const D3D11_DEPTH_STENCIL_DESC& desc);
    /// Without stencil. `reversedDepth` is for a buffer cleared to 0 in which larger is nearer. Throws
    /// ComException.
    DepthStencilState(ID3D11Device* device, bool reversedDepth, bool depthEnable, bool depthWrite);

    void set(ID3D11DeviceContext* context, unsigned stencilRef);

    /// Lent, not given; null while empty.
    ID3D11DepthStencilState* get() const { return mState; }

private:
    ATL::CComPtr<ID3D11DepthStencilState> mState;
};

}  // namespace Render
