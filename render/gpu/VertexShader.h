#pragma once

#include <core/Export.h>
#include <render/gpu/CComPtr.h>

#include <d3d11.h>

#include <filesystem>
#include <string>
#include <vector>
namespace Render {

/// Owns a vertex shader (entry point vs_main, vs_5_0) and its input layout, which an empty table leaves out:
/// then begin() keeps the layout that is set, while end() always clears it. Failed compilation throws
/// std::runtime_error with the compiler's messages, failed creation ComException.
class LUMARO_API VertexShader {
public:
    VertexShader() noexcept = default;
    VertexShader(VertexShader&&) noexcept = default;
    VertexShader& operator=(VertexShader&&) noexcept = default;

    /// Compiles an embedded source, e.g. "shaders/box.hlsl". Throws std::system_error when there is none.
    static VertexShader fromHlslResource(const ATL::CComPtr<ID3D11Device>& device, const std::string& name,
                                         const std::vector<D3D11_INPUT_ELEMENT_DESC>& layout);
    /// Compiles a source on disk; its includes are found beside it.
    static VertexShader fromHlslFile(const ATL::CComPtr<ID3D11Device>& device,
                                     const std::filesystem::path& path,
                                     const std::vector<D3D11_INPUT_ELEMENT_DESC>& layout);
    /// Takes an embedded entry as byte code.
    static VertexShader fromCsoResource(const ATL::CComPtr<ID3D11Device>& device, const std::string& name,
                                        const std::vector<D3D11_INPUT_ELEMENT_DESC>& layout);
    static VertexShader fromCsoFile(const ATL::CComPtr<ID3D11Device>& device,
                                    const std::filesystem::path& path,
                                    const std::vector<D3D11_INPUT_ELEMENT_DESC>& layout);
    static VertexShader fromCsoString(const ATL::CComPtr<ID3D11Device>& device, const std::string& bytecode,
                                      const std::vector<D3D11_INPUT_ELEMENT_DESC>& layout);

    void begin(ID3D11DeviceContext* context) const;
    void end(ID3D11DeviceContext* context) const;

private:
    VertexShader(ATL::CComPtr<ID3D11VertexShader> shader,
                 ATL::CComPtr<ID3D11InputLayout> inputLayout) noexcept;

    ATL::CComPtr<ID3D11VertexShader> mShader;
    ATL::CComPtr<ID3D11InputLayout> mInputLayout;
};

}  // namespace Render
