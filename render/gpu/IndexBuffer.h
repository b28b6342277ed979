#pragma once

#include <core/Export.h>
#include <render/gpu/CComPtr.h>

#include <d3d11.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Render {

/// Owns an immutable buffer of 32-bit indices.
class LUMARO_API IndexBuffer {
public:
    IndexBuffer() noexcept = default;
    IndexBuffer(IndexBuffer&&) noexcept = default;
    IndexBuffer& operator=(IndexBuffer&&) noexcept = default;

    /// Throws ComException; no indices at all is a failure too.
    IndexBuffer(ID3D11Device* device, const unsigned int* indices, size_t count);
    IndexBuffer(ID3D11Device* device, const std::vector<unsigned int>& indices);

    /// `offset` of the first index in bytes.
    void begin(ID3D11DeviceContext* context, unsigned offset);
    void end(ID3D11DeviceContext* context);

    size_t count() const { return mCount; }

    /// Lent, not given; null while empty.
    ID3D11Buffer* get() const { return mBuffer; }

private:
    size_t mCount = 0;
    ATL::CComPtr<ID3D11Buffer> mBuffer;
    uint32_t mOffset = 0;
};

}  // namespace Render
