#pragma once

#include <render/gpu/CComPtr.h>
#include <render/gpu/ComException.h>
#include <render/gpu/ShaderConfiguration.h>
#include <render/gpu/StageBinding.h>

#include <d3d11.h>

#include <cstdint>
#include <cstring>

namespace Render {

/// One dynamic constant buffer and its CPU copy, uploaded only when it has changed. T is a plain struct laid
/// out as the shader's buffer. Bound to at most one slot at a time: every begin() is matched by one end()
/// before the next; otherwise they throw std::logic_error and change nothing. Failing calls throw
/// ComException and leave the buffer unbound and its change to be sent.
template <class T>
class ConstantBuffer {
    static_assert(sizeof(T) % 16 == 0, "a constant buffer is made of whole registers of 16 bytes");

public:
    ConstantBuffer() = default;
    ConstantBuffer(ConstantBuffer&&) noexcept = default;
    ConstantBuffer& operator=(ConstantBuffer&&) noexcept = default;

    explicit ConstantBuffer(ID3D11Device* device, const T& data = T()) : mData(data) {
        D3D11_BUFFER_DESC desc{};
        desc.ByteWidth = sizeof(T);
        desc.Usage = D3D11_USAGE_DYNAMIC;
        desc.BindFlags = D3D11_BIND_CONSTANT_BUFFER;
        desc.CPUAccessFlags = D3D11_CPU_ACCESS_WRITE;
        D3D11_SUBRESOURCE_DATA content{};
        content.pSysMem = &mData;
        throwIfFailed(device->CreateBuffer(&desc, &content, &mBuffer),
                      "ID3D11Device::CreateBuffer of a constant buffer");
    }

    const T& data() const { return mData; }
    /// The CPU copy for writing; the next begin() or upload() sends it.
    T& edit() {
        mDirty = true;
        return mData;
    }
    void set(const T& data) { edit() = data; }
    bool isDirty() const { return mDirty; }

    /// Uploads if needed, then binds.
    void begin(ID3D11DeviceContext* context, ShaderConfiguration stages, unsigned slot) {
        StageBinding::requireUnbound(mStages);
        upload(context);
        mStages = stages;
        mSlot = slot;
        StageBinding::apply(context, mStages, mSlot, mBuffer.p);
    }

    /// Clears the slot on the device.
    void end(ID3D11DeviceContext* context) {
        StageBinding::requireBound(mStages);
        StageBinding::apply(context, mStages, mSlot, static_cast<ID3D11Buffer*>(nullptr));
        mStages = ShaderConfiguration::None;
        mSlot = 0;
    }

    /// Sends the CPU copy if it has changed; also while bound, between two draws.
    void upload(ID3D11DeviceContext* context) {
        if (!mDirty) {
            return;
        }
        D3D11_MAPPED_SUBRESOURCE mapped{};
        throwIfFailed(context->Map(mBuffer, 0, D3D11_MAP_WRITE_DISCARD, 0, &mapped),
                      "ID3D11DeviceContext::Map of a constant buffer");
        std::memcpy(mapped.pData, &mData, sizeof(T));
        context->Unmap(mBuffer, 0);
        mDirty = false;
    }

    /// Lent, not given; null while empty.
    ID3D11Buffer* get() const { return mBuffer; }

private:
    T mData{};
    ATL::CComPtr<ID3D11Buffer> mBuffer;
    bool mDirty = true;
    ShaderConfiguration mStages = ShaderConfiguration::None;
    uint32_t mSlot = 0;
};

}  // namespace Render
