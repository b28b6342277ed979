#include <render/gpu/ComException.h>
#include <render/gpu/SamplerState.h>
#include <render/gpu/StageBinding.h>

#include <type_traits>

namespace Render {

static_assert(std::is_copy_constructible_v<SamplerState> && std::is_copy_assignable_v<SamplerState> &&
              std::is_nothrow_move_constructible_v<SamplerState> &&
              std::is_nothrow_move_assignable_v<SamplerState>);

SamplerState::SamplerState(ID3D11Device* device, const D3D11_SAMPLER_DESC& desc) {
    throwIfFailed(device->CreateSamplerState(&desc, &mState), "ID3D11Device::CreateSamplerState");
}

void SamplerState::begin(ID3D11DeviceContext* context, ShaderConfiguration stages, unsigned slot) {
    StageBinding::requireUnbound(mStages);
    mStages = stages;
    mSlot = slot;
    StageBinding::apply(context, mStages, mSlot, mState.p);
}

void SamplerState::end(ID3D11DeviceContext* context) {
    StageBinding::requireBound(mStages);
    StageBinding::apply(context, mStages, mSlot, static_cast<ID3D11SamplerState*>(nullptr));
    mStages = ShaderConfiguration::None;
    mSlot = 0;
}

}  // namespace Render
