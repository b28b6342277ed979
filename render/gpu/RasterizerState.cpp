#include <render/gpu/ComException.h>
#include <render/gpu/RasterizerState.h>
#include <render/gpu/TypePromises.h>

namespace Render {

static_assert(isMoveOnly<RasterizerState>);

RasterizerState::RasterizerState(ID3D11Device* device, const D3D11_RASTERIZER_DESC& desc) {
    throwIfFailed(device->CreateRasterizerState(&desc, &mState), "ID3D11Device::CreateRasterizerState");
}

void RasterizerState::set(ID3D11DeviceContext* context) const {
    context->RSSetState(mState);
}

}  // namespace Render
