#include <render/gpu/BlendState.h>
#include <render/gpu/ComException.h>
#include <render/gpu/TypePromises.h>

namespace Render {

static_assert(isMoveOnly<BlendState>);

BlendState::BlendState(ID3D11Device* device, const D3D11_BLEND_DESC& desc) {
    throwIfFailed(device->CreateBlendState(&desc, &mState), "ID3D11Device::CreateBlendState");
}

void BlendState::set(ID3D11DeviceContext* context, float* blendFactor, unsigned sampleMask) {
    context->OMSetBlendState(mState, blendFactor, sampleMask);
}

}  // namespace Render
