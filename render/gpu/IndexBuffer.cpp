#include <render/gpu/ComException.h>
#include <render/gpu/IndexBuffer.h>
#include <render/gpu/TypePromises.h>

#include <limits>

namespace Render {

static_assert(isMoveOnly<IndexBuffer>);

IndexBuffer::IndexBuffer(ID3D11Device* device, const unsigned int* indices, size_t count) : mCount(count) {
    if (count > std::numeric_limits<UINT>::max() / sizeof(unsigned int)) {
        throwIfFailed(E_INVALIDARG, "a buffer of more indices than 32 bits can size");
    }
    D3D11_BUFFER_DESC desc{};
    desc.ByteWidth = static_cast<UINT>(count * sizeof(unsigned int));
    desc.Usage = D3D11_USAGE_IMMUTABLE;
    desc.BindFlags = D3D11_BIND_INDEX_BUFFER;
    D3D11_SUBRESOURCE_DATA content{};
    content.pSysMem = indices;
    throwIfFailed(device->CreateBuffer(&desc, &content, &mBuffer), "ID3D11Device::CreateBuffer of indices");
}

IndexBuffer::IndexBuffer(ID3D11Device* device, const std::vector<unsigned int>& indices)
    : IndexBuffer(device, indices.data(), indices.size()) {}

void IndexBuffer::begin(ID3D11DeviceContext* context, unsigned offset) {
    mOffset = offset;
    context->IASetIndexBuffer(mBuffer, DXGI_FORMAT_R32_UINT, mOffset);
}

void IndexBuffer::end(ID3D11DeviceContext* context) {
    context->IASetIndexBuffer(nullptr, DXGI_FORMAT_R32_UINT, mOffset);
    mOffset = 0;
}

}  // namespace Render
