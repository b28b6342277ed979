#include <core/File.h>
#include <render/gpu/CComPtr.h>
#include <render/gpu/ShaderCompiler.h>
#include <render/gpu/ShaderInclude.h>
#include <render/gpu/ShaderLibrary.h>

#include <d3dcompiler.h>

#include <stdexcept>

namespace Render::ShaderCompiler {

namespace {

std::string textOf(ID3DBlob* blob) {
    if (blob == nullptr) {
        return {};
    }
    return {static_cast<const char*>(blob->GetBufferPointer()), blob->GetBufferSize()};
}

}  // namespace

std::string compile(std::string_view source, const std::string& sourceName, ID3DInclude* include,
                    const char* entryPoint, const char* target) {
    constexpr UINT flags =
        D3DCOMPILE_ENABLE_STRICTNESS | D3DCOMPILE_OPTIMIZATION_LEVEL3 | D3DCOMPILE_WARNINGS_ARE_ERRORS;
    ATL::CComPtr<ID3DBlob> code;
    ATL::CComPtr<ID3DBlob> messages;
    const HRESULT result = D3DCompile(source.data(), source.size(), sourceName.c_str(), nullptr, include,
                                      entryPoint, target, flags, 0, &code, &messages);
    if (result < 0) {
        throw std::runtime_error("Error: Compilation of hlsl shader failed\n" + textOf(messages));
    }
    return textOf(code);
}

std::string compileResource(const std::string& name, const char* entryPoint, const char* target) {
    ShaderInclude include;
    return compile(ShaderLibrary::content(name), name, &include, entryPoint, target);
}

std::string compileFile(const std::filesystem::path& path, const char* entryPoint, const char* target) {
    const std::string source = Core::readLocalFile(path);
    return compile(source, path.string(), D3D_COMPILE_STANDARD_FILE_INCLUDE, entryPoint, target);
}

}  // namespace Render::ShaderCompiler
