#pragma once

#include <d3dcommon.h>

namespace Render {

#if defined(__GNUC__)
// The interface has no virtual destructor; nobody owns a ShaderInclude through it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

/// Internal: lets one embedded shader source include another. Without state.
class ShaderInclude final : public ID3DInclude {
public:
    /// Hands out a copy of the embedded file, to be freed by Close(). E_FAIL when there is no such entry;
    /// throws std::system_error for a directory.
    HRESULT STDMETHODCALLTYPE Open(D3D_INCLUDE_TYPE type, const char* fileName, const void* parentData,
                                   const void** data, unsigned* bytes) override;
    HRESULT STDMETHODCALLTYPE Close(const void* data) override;
};

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

}  // namespace Render
