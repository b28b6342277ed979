#include <render/gpu/ComException.h>
#include <render/gpu/DepthStencilView.h>
#include <render/gpu/TypePromises.h>

namespace Render {

static_assert(isMoveOnly<DepthStencilView>);

DepthStencilView::DepthStencilView(ID3D11Device* device, ID3D11Resource* resource, unsigned clearFlags,
                                   float depthClearValue, unsigned char stencilClearValue) {
    setClearValues(clearFlags, depthClearValue, stencilClearValue);
    D3D11_DEPTH_STENCIL_VIEW_DESC desc{};
    desc.Format = DXGI_FORMAT_D32_FLOAT;
    desc.ViewDimension = D3D11_DSV_DIMENSION_TEXTURE2D;
    throwIfFailed(device->CreateDepthStencilView(resource, &desc, &mView),
                  "ID3D11Device::CreateDepthStencilView");
}

void DepthStencilView::setClearValues(unsigned clearFlags, float depth, unsigned char stencil) {
    mClearFlags = clearFlags;
    mDepthClearValue = depth;
    mStencilClearValue = stencil;
}

void DepthStencilView::clear(ID3D11DeviceContext* context) {
    context->ClearDepthStencilView(mView, mClearFlags, mDepthClearValue, mStencilClearValue);
}

}  // namespace Render
