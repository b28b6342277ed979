#include <render/gpu/ComException.h>
#include <render/gpu/RenderTargetView.h>
#include <render/gpu/TypePromises.h>

namespace Render {

static_assert(isMoveOnly<RenderTargetView>);

RenderTargetView::RenderTargetView(ID3D11Device* device, ID3D11Resource* resource,
                                   const std::array<float, 4>& clearValue) {
    throwIfFailed(device->CreateRenderTargetView(resource, nullptr, &mView),
                  "ID3D11Device::CreateRenderTargetView");
    mClearValue = clearValue;
}

void RenderTargetView::setClearValue(const Math::Color& color) {
    mClearValue = {static_cast<float>(color.r()) / 255.0f, static_cast<float>(color.g()) / 255.0f,
                   static_cast<float>(color.b()) / 255.0f, static_cast<float>(color.a()) / 255.0f};
}

void RenderTargetView::clear(ID3D11DeviceContext* context) {
    context->ClearRenderTargetView(mView, mClearValue.data());
}

}  // namespace Render
