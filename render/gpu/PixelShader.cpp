#include <core/File.h>
#include <render/gpu/ComException.h>
#include <render/gpu/PixelShader.h>
#include <render/gpu/ShaderCompiler.h>
#include <render/gpu/ShaderLibrary.h>
#include <render/gpu/TypePromises.h>

#include <utility>

namespace Render {

static_assert(isMoveOnly<PixelShader>);

PixelShader::PixelShader(ATL::CComPtr<ID3D11PixelShader> shader) noexcept : mShader(std::move(shader)) {}

PixelShader PixelShader::fromHlslResource(const ATL::CComPtr<ID3D11Device>& device, const std::string& name) {
    return fromCsoString(device, ShaderCompiler::compileResource(name, "ps_main", "ps_5_0"));
}

PixelShader PixelShader::fromHlslFile(const ATL::CComPtr<ID3D11Device>& device,
                                      const std::filesystem::path& path) {
    return fromCsoString(device, ShaderCompiler::compileFile(path, "ps_main", "ps_5_0"));
}

PixelShader PixelShader::fromCsoResource(const ATL::CComPtr<ID3D11Device>& device, const std::string& name) {
    return fromCsoString(device, std::string(ShaderLibrary::content(name)));
}

PixelShader PixelShader::fromCsoFile(const ATL::CComPtr<ID3D11Device>& device,
                                     const std::filesystem::path& path) {
    return fromCsoString(device, Core::readLocalFile(path));
}

PixelShader PixelShader::fromCsoString(const ATL::CComPtr<ID3D11Device>& device,
                                       const std::string& bytecode) {
    ATL::CComPtr<ID3D11PixelShader> shader;
    throwIfFailed(device->CreatePixelShader(bytecode.data(), bytecode.size(), nullptr, &shader),
                  "ID3D11Device::CreatePixelShader");
    return PixelShader(std::move(shader));
}

void PixelShader::begin(ID3D11DeviceContext* context) const {
    context->PSSetShader(mShader, nullptr, 0);
}

void PixelShader::end(ID3D11DeviceContext* context) const {
    context->PSSetShader(nullptr, nullptr, 0);
}

}  // namespace Render
