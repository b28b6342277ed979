#include <core/File.h>
#include <render/gpu/ComException.h>
#include <render/gpu/GeometryShader.h>
#include <render/gpu/ShaderCompiler.h>
#include <render/gpu/ShaderLibrary.h>
#include <render/gpu/TypePromises.h>

#include <utility>

namespace Render {

static_assert(isMoveOnly<GeometryShader>);

GeometryShader::GeometryShader(ATL::CComPtr<ID3D11GeometryShader> shader) noexcept
    : mShader(std::move(shader)) {}

// The pixel entry point and profile are kept on purpose: a geometry shader cannot be made from a resource.
GeometryShader GeometryShader::fromHlslResource(const ATL::CComPtr<ID3D11Device>& device,
                                                const std::string& name) {
    return fromCsoString(device, ShaderCompiler::compileResource(name, "ps_main", "ps_5_0"));
}

GeometryShader GeometryShader::fromHlslFile(const ATL::CComPtr<ID3D11Device>& device,
                                            const std::filesystem::path& path) {
    return fromCsoString(device, ShaderCompiler::compileFile(path, "gs_main", "gs_5_0"));
}

GeometryShader GeometryShader::fromCsoResource(const ATL::CComPtr<ID3D11Device>& device,
                                               const std::string& name) {
    return fromCsoString(device, std::string(ShaderLibrary::content(name)));
}

GeometryShader GeometryShader::fromCsoFile(const ATL::CComPtr<ID3D11Device>& device,
                                           const std::filesystem::path& path) {
    return fromCsoString(device, Core::readLocalFile(path));
}

GeometryShader GeometryShader::fromCsoString(const ATL::CComPtr<ID3D11Device>& device,
                                             const std::string& bytecode) {
    ATL::CComPtr<ID3D11GeometryShader> shader;
    throwIfFailed(device->CreateGeometryShader(bytecode.data(), bytecode.size(), nullptr, &shader),
                  "ID3D11Device::CreateGeometryShader");
    return GeometryShader(std::move(shader));
}

void GeometryShader::begin(ID3D11DeviceContext* context) const {
    context->GSSetShader(mShader, nullptr, 0);
}

void GeometryShader::end(ID3D11DeviceContext* context) const {
    context->GSSetShader(nullptr, nullptr, 0);
}

}  // namespace Render
