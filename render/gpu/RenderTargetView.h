#pragma once

#include <core/Export.h>
#include <math/Color.h>
#include <render/gpu/CComPtr.h>

#include <d3d11.h>

#include <array>

namespace Render {

/// Owns a view of a resource as a render target, in the resource's own format, and the colour (r, g, b, a)
/// that clear() fills it with.
class LUMARO_API RenderTargetView {
public:
    RenderTargetView() noexcept = default;
    RenderTargetView(RenderTargetView&&) noexcept = default;
    RenderTargetView& operator=(RenderTargetView&&) noexcept = default;

    /// Throws ComException.
    RenderTargetView(ID3D11Device* device, ID3D11Resource* resource, const std::array<float, 4>& clearValue);

    void setClearValue(const Math::Color& color);
    void setClearValue(const std::array<float, 4>& value) { mClearValue = value; }
    void setClearValue(float r, float g, float b, float a) { mClearValue = {r, g, b, a}; }
    /// All four components, alpha included.
    void setClearValue(float v) { mClearValue = {v, v, v, v}; }
    const std::array<float, 4>& clearValue() const { return mClearValue; }

    void clear(ID3D11DeviceContext* context);

    /// Lent, not given; null while empty.
    ID3D11RenderTargetView* get() const { return mView; }

private:
    ATL::CComPtr<ID3D11RenderTargetView> mView;
    std::array<float, 4> mClearValue{};
};

}  // namespace Render
