#include <render/gpu/ComException.h>
#include <render/gpu/ShaderResourceView.h>
#include <render/gpu/StageBinding.h>
#include <render/gpu/TypePromises.h>

namespace Render {

static_assert(isMoveOnly<ShaderResourceView>);

ShaderResourceView::ShaderResourceView(ID3D11Device* device, ID3D11Resource* resource,
                                       const D3D11_SHADER_RESOURCE_VIEW_DESC* desc) {
    throwIfFailed(device->CreateShaderResourceView(resource, desc, &mView),
                  "ID3D11Device::CreateShaderResourceView");
}

void ShaderResourceView::begin(ID3D11DeviceContext* context, ShaderConfiguration stages, unsigned slot) {
    StageBinding::requireUnbound(mStages);
    mStages = stages;
    mSlot = slot;
    StageBinding::apply(context, mStages, mSlot, mView.p);
}

void ShaderResourceView::end(ID3D11DeviceContext* context) {
    StageBinding::requireBound(mStages);
    StageBinding::apply(context, mStages, mSlot, static_cast<ID3D11ShaderResourceView*>(nullptr));
    mStages = ShaderConfiguration::None;
    mSlot = 0;
}

}  // namespace Render
