#include <core/File.h>
#include <render/gpu/ComException.h>
#include <render/gpu/ComputeShader.h>
#include <render/gpu/ShaderCompiler.h>
#include <render/gpu/ShaderLibrary.h>
#include <render/gpu/TypePromises.h>

#include <utility>

namespace Render {

static_assert(isMoveOnly<ComputeShader>);

ComputeShader::ComputeShader(ATL::CComPtr<ID3D11ComputeShader> shader) noexcept
    : mShader(std::move(shader)) {}

ComputeShader ComputeShader::fromHlslResource(const ATL::CComPtr<ID3D11Device>& device,
                                              const std::string& name) {
    return fromCsoString(device, ShaderCompiler::compileResource(name, "cs_main", "cs_5_0"));
}

ComputeShader ComputeShader::fromHlslFile(const ATL::CComPtr<ID3D11Device>& device,
                                          const std::filesystem::path& path) {
    return fromCsoString(device, ShaderCompiler::compileFile(path, "cs_main", "cs_5_0"));
}

ComputeShader ComputeShader::fromCsoResource(const ATL::CComPtr<ID3D11Device>& device,
                                             const std::string& name) {
    return fromCsoString(device, std::string(ShaderLibrary::content(name)));
}

ComputeShader ComputeShader::fromCsoFile(const ATL::CComPtr<ID3D11Device>& device,
                                         const std::filesystem::path& path) {
    return fromCsoString(device, Core::readLocalFile(path));
}

ComputeShader ComputeShader::fromCsoString(const ATL::CComPtr<ID3D11Device>& device,
                                           const std::string& bytecode) {
    ATL::CComPtr<ID3D11ComputeShader> shader;
    throwIfFailed(device->CreateComputeShader(bytecode.data(), bytecode.size(), nullptr, &shader),
                  "ID3D11Device::CreateComputeShader");
    return ComputeShader(std::move(shader));
}

void ComputeShader::begin(ID3D11DeviceContext* context) const {
    context->CSSetShader(mShader, nullptr, 0);
}

void ComputeShader::end(ID3D11DeviceContext* context) const {
    context->CSSetShader(nullptr, nullptr, 0);
}

}  // namespace Render
