#include <render/gpu/ComException.h>
#include <render/gpu/DepthStencilState.h>
#include <render/gpu/TypePromises.h>

namespace Render {

static_assert(isMoveOnly<DepthStencilState>);

namespace {

D3D11_COMPARISON_FUNC depthFunction(bool reversedDepth, bool depthEnable) {
    if (!depthEnable) {
        return D3D11_COMPARISON_ALWAYS;
    }
    return reversedDepth ? D3D11_COMPARISON_GREATER_EQUAL : D3D11_COMPARISON_LESS;
}

D3D11_DEPTH_STENCILOP_DESC stencilOperation(D3D11_STENCIL_OP depthFail) {
    D3D11_DEPTH_STENCILOP_DESC desc{};
    desc.StencilFailOp = D3D11_STENCIL_OP_KEEP;
    desc.StencilDepthFailOp = depthFail;
    desc.StencilPassOp = D3D11_STENCIL_OP_KEEP;
    desc.StencilFunc = D3D11_COMPARISON_ALWAYS;
    return desc;
}

D3D11_DEPTH_STENCIL_DESC description(bool reversedDepth, bool depthEnable, bool depthWrite) {
    D3D11_DEPTH_STENCIL_DESC desc{};
    desc.DepthEnable = depthEnable ? TRUE : FALSE;
    desc.DepthWriteMask = depthWrite ? D3D11_DEPTH_WRITE_MASK_ALL : D3D11_DEPTH_WRITE_MASK_ZERO;
    desc.DepthFunc = depthFunction(reversedDepth, depthEnable);
    desc.StencilEnable = FALSE;
    desc.StencilReadMask = 0xFF;
    desc.StencilWriteMask = 0xFF;
    desc.FrontFace = stencilOperation(D3D11_STENCIL_OP_INCR);
    desc.BackFace = stencilOperation(D3D11_STENCIL_OP_DECR);
    return desc;
}

}  // namespace

DepthStencilState::DepthStencilState(ID3D11Device* device, const D3D11_DEPTH_STENCIL_DESC& desc) {
    throwIfFailed(device->CreateDepthStencilState(&desc, &mState), "ID3D11Device::CreateDepthStencilState");
}

DepthStencilState::DepthStencilState(ID3D11Device* device, bool reversedDepth, bool depthEnable,
                                     bool depthWrite)
    : DepthStencilState(device, description(reversedDepth, depthEnable, depthWrite)) {}

void DepthStencilState::set(ID3D11DeviceContext* context, unsigned stencilRef) {
    context->OMSetDepthStencilState(mState, stencilRef);
}

}  // namespace Render
