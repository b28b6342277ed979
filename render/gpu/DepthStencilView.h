#pragma once

#include <core/Export.h>
#include <render/gpu/CComPtr.h>

#include <d3d11.h>

#include <cstdint>

namespace Render {

/// Owns a 32-bit float depth view of the first mip level of a texture, and the values that clear() writes.
class LUMARO_API DepthStencilView {
public:
    DepthStencilView() noexcept = default;
    DepthStencilView(DepthStencilView&&) noexcept = default;
    DepthStencilView& operator=(DepthStencilView&&) noexcept = default;

    /// `clearFlags` combines D3D11_CLEAR_DEPTH and D3D11_CLEAR_STENCIL. Throws ComException.
    DepthStencilView(ID3D11Device* device, ID3D11Resource* resource, unsigned clearFlags,
                     float depthClearValue, unsigned char stencilClearValue);

    void setClearValues(unsigned clearFlags, float depth, unsigned char stencil);
    unsigned clearFlags() const { return mClearFlags; }
    float depthClearValue() const { return mDepthClearValue; }
    unsigned char stencilClearValue() const { return mStencilClearValue; }

    void clear(ID3D11DeviceContext* context);

    /// Lent, not given; null while empty.
    ID3D11DepthStencilView* get() const { return mView; }

private:
    ATL::CComPtr<ID3D11DepthStencilView> mView;
    uint32_t mClearFlags = 0;
    float mDepthClearValue = 0.0f;
    uint8_t mStencilClearValue = 0;
};

}  // namespace Render
