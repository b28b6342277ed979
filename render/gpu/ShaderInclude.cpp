#include <render/gpu/ShaderInclude.h>
#include <render/gpu/ShaderLibrary.h>

#include <cstring>
#include <new>
#include <string_view>

namespace Render {

HRESULT STDMETHODCALLTYPE ShaderInclude::Open(D3D_INCLUDE_TYPE /*type*/, const char* fileName,
                                              const void* /*parentData*/, const void** data,
                                              unsigned* bytes) {
    if (ShaderLibrary::find(fileName) == nullptr) {
        return E_FAIL;
    }
    const std::string_view content = ShaderLibrary::content(fileName);
    *data = nullptr;
    *bytes = static_cast<unsigned>(content.size());
    if (!content.empty()) {
        void* copy = ::operator new(content.size());
        std::memcpy(copy, content.data(), content.size());
        *data = copy;
    }
    return S_OK;
}

HRESULT STDMETHODCALLTYPE ShaderInclude::Close(const void* data) {
    ::operator delete(const_cast<void*>(data));
    return S_OK;
}

}  // namespace Render
