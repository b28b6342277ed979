#pragma once

#include <tests/support/ComSpy.h>

#include <d3d11.h>

#include <cstddef>

namespace TestSupport {

/// Lets one call of an interface's function fail with E_OUTOFMEMORY, after `succeeding` ones that reach it.
template <std::size_t slot, std::size_t tableSize, class... Arguments>
class FailingCall {
public:
    explicit FailingCall(IUnknown* object, int succeeding = 0) : mSpy(object, tableSize) {
        sOriginal = mSpy.replace(slot, &call);
        sSucceeding = succeeding;
    }

private:
    using Function = HRESULT STDMETHODCALLTYPE(Arguments...);

    static HRESULT STDMETHODCALLTYPE call(Arguments... arguments) {
        return sSucceeding-- == 0 ? E_OUTOFMEMORY : sOriginal(arguments...);
    }

    static inline Function* sOriginal = nullptr;
    static inline int sSucceeding = 0;
    ComSpy mSpy;
};

using FailingMap = FailingCall<14, 115, ID3D11DeviceContext*, ID3D11Resource*, UINT, D3D11_MAP, UINT,
                               D3D11_MAPPED_SUBRESOURCE*>;
using FailingCreateBuffer = FailingCall<3, 43, ID3D11Device*, const D3D11_BUFFER_DESC*,
                                        const D3D11_SUBRESOURCE_DATA*, ID3D11Buffer**>;
using FailingCreateTexture2D = FailingCall<5, 43, ID3D11Device*, const D3D11_TEXTURE2D_DESC*,
                                           const D3D11_SUBRESOURCE_DATA*, ID3D11Texture2D**>;

}  // namespace TestSupport
