#pragma once

#include <core/Export.h>
#include <render/gpu/CComPtr.h>
#include <render/gpu/ShaderConfiguration.h>

#include <d3d11.h>

#include <cstdint>

namespace Render {

/// Owns a view of a resource for shaders to read, bound to at most one slot at a time. Every begin() is
/// matched by one end() before the next; otherwise they throw std::logic_error and change nothing.
class LUMARO_API ShaderResourceView {
public:
    ShaderResourceView() noexcept = default;
    ShaderResourceView(ShaderResourceView&&) noexcept = default;
    ShaderResourceView& operator=(ShaderResourceView&&) noexcept = default;

    /// A null description views the whole resource in its own format. Throws ComException.
    ShaderResourceView(ID3D11Device* device, ID3D11Resource* resource,
                       const D3D11_SHADER_RESOURCE_VIEW_DESC* desc);

    void begin(ID3D11DeviceContext* context, ShaderConfiguration stages, unsigned slot);
    /// Clears the slot on the device.
    void end(ID3D11DeviceContext* context);

    /// Where it is bound; None while it is not.
    ShaderConfiguration stages() const { return mStages; }
    /// Lent, not given; null while empty.
    ID3D11ShaderResourceView* get() const { return mView; }

private:
    ATL::CComPtr<ID3D11ShaderResourceView> mView;
    uint32_t mSlot = 0;
    ShaderConfiguration mStages = ShaderConfiguration::None;
};

}  // namespace Render
