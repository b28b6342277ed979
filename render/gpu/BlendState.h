#pragma once

#include <core/Export.h>
#include <render/gpu/CComPtr.h>

#include <d3d11.h>

namespace Render {

/// Owns the description of how targets blend.
class LUMARO_API BlendState {
public:
    BlendState() noexcept = default;
    BlendState(BlendState&&) noexcept = default;
    BlendState& operator=(BlendState&&) noexcept = default;

    /// Throws ComException.
    BlendState(ID3D11Device* device, const D3D11_BLEND_DESC& desc);

    void set(ID3D11DeviceContext* context, float* blendFactor, unsigned sampleMask);

    /// Lent, not given; null while empty.
    ID3D11BlendState* get() const { return mState; }

private:
    ATL::CComPtr<ID3D11BlendState> mState;
};

}  // namespace Render
