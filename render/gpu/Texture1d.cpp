#include <render/gpu/ComException.h>
#include <render/gpu/Texture1d.h>
#include <render/gpu/TypePromises.h>

namespace Render {

static_assert(isMoveOnly<Texture1d>);

Texture1d::Texture1d(ID3D11Device* device, const D3D11_TEXTURE1D_DESC& desc) {
    throwIfFailed(device->CreateTexture1D(&desc, nullptr, &mTexture), "ID3D11Device::CreateTexture1D");
}

D3D11_MAPPED_SUBRESOURCE Texture1d::map(ID3D11DeviceContext* context, D3D11_MAP type) {
    D3D11_MAPPED_SUBRESOURCE mapped{};
    throwIfFailed(context->Map(mTexture, 0, type, 0, &mapped), "ID3D11DeviceContext::Map of a 1D texture");
    return mapped;
}

void Texture1d::unMap(ID3D11DeviceContext* context) {
    context->Unmap(mTexture, 0);
}

void Texture1d::copy(ID3D11DeviceContext* context, const Texture1d& source) {
    context->CopyResource(mTexture, source.mTexture);
}

}  // namespace Render
