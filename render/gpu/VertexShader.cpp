#include <core/File.h>
#include <render/gpu/ComException.h>
#include <render/gpu/ShaderCompiler.h>
#include <render/gpu/ShaderLibrary.h>
#include <render/gpu/TypePromises.h>
#include <render/gpu/VertexShader.h>

#include <utility>

namespace Render {

static_assert(isMoveOnly<VertexShader>);

VertexShader::VertexShader(ATL::CComPtr<ID3D11VertexShader> shader,
                           ATL::CComPtr<ID3D11InputLayout> inputLayout) noexcept
    : mShader(std::move(shader)), mInputLayout(std::move(inputLayout)) {}

VertexShader VertexShader::fromHlslResource(const ATL::CComPtr<ID3D11Device>& device, const std::string& name,
                                            const std::vector<D3D11_INPUT_ELEMENT_DESC>& layout) {
    return fromCsoString(device, ShaderCompiler::compileResource(name, "vs_main", "vs_5_0"), layout);
}

VertexShader VertexShader::fromHlslFile(const ATL::CComPtr<ID3D11Device>& device,
                                        const std::filesystem::path& path,
                                        const std::vector<D3D11_INPUT_ELEMENT_DESC>& layout) {
    return fromCsoString(device, ShaderCompiler::compileFile(path, "vs_main", "vs_5_0"), layout);
}

VertexShader VertexShader::fromCsoResource(const ATL::CComPtr<ID3D11Device>& device, const std::string& name,
                                           const std::vector<D3D11_INPUT_ELEMENT_DESC>& layout) {
    return fromCsoString(device, std::string(ShaderLibrary::content(name)), layout);
}

VertexShader VertexShader::fromCsoFile(const ATL::CComPtr<ID3D11Device>& device,
                                       const std::filesystem::path& path,
                                       const std::vector<D3D11_INPUT_ELEMENT_DESC>& layout) {
    return fromCsoString(device, Core::readLocalFile(path), layout);
}

VertexShader VertexShader::fromCsoString(const ATL::CComPtr<ID3D11Device>& device,
                                         const std::string& bytecode,
                                         const std::vector<D3D11_INPUT_ELEMENT_DESC>& layout) {
    ATL::CComPtr<ID3D11VertexShader> shader;
    throwIfFailed(device->CreateVertexShader(bytecode.data(), bytecode.size(), nullptr, &shader),
                  "ID3D11Device::CreateVertexShader");
    ATL::CComPtr<ID3D11InputLayout> inputLayout;
    if (!layout.empty()) {
        throwIfFailed(device->CreateInputLayout(layout.data(), static_cast<UINT>(layout.size()),
                                                bytecode.data(), bytecode.size(), &inputLayout),
                      "ID3D11Device::CreateInputLayout");
    }
    return VertexShader(std::move(shader), std::move(inputLayout));
}

void VertexShader::begin(ID3D11DeviceContext* context) const {
    if (mInputLayout) {
        context->IASetInputLayout(mInputLayout);
    }
    context->VSSetShader(mShader, nullptr, 0);
}

void VertexShader::end(ID3D11DeviceContext* context) const {
    context->IASetInputLayout(nullptr);
    context->VSSetShader(nullptr, nullptr, 0);
}

}  // namespace Render
