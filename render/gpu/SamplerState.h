#pragma once

#include <core/Export.h>
#include <render/gpu/CComPtr.h>
#include <render/gpu/ShaderConfiguration.h>

#include <d3d11.h>

#include <cstdint>

namespace Render {

/// Holds a sampler, bound to at most one slot at a time. Every begin() is matched by one end() before the
/// next; otherwise they throw std::logic_error and change nothing. A copy shares the sampler and takes over
/// where it is bound.
class LUMARO_API SamplerState {
public:
    SamplerState() noexcept = default;
    SamplerState(const SamplerState&) = default;
    SamplerState& operator=(const SamplerState&) = default;
    SamplerState(SamplerState&&) noexcept = default;
    SamplerState& operator=(SamplerState&&) noexcept = default;

    /// Throws ComException.
    SamplerState(ID3D11Device* device, const D3D11_SAMPLER_DESC& desc);

    void begin(ID3D11DeviceContext* context, ShaderConfiguration stages, unsigned slot);
    /// Clears the slot on the device.
    void end(ID3D11DeviceContext* context);

    /// Lent, not given; null while empty.
    ID3D11SamplerState* get() const { return mState; }

private:
    ATL::CComPtr<ID3D11SamplerState> mState;
    ShaderConfiguration mStages = ShaderConfiguration::None;
    uint32_t mSlot = 0;
};

}  // namespace Render
