#pragma once

#include <core/Export.h>
#include <render/gpu/CComPtr.h>

#include <d3d11.h>

#include <filesystem>
#include <string>

namespace Render {

/// Owns a compute shader (entry point cs_main, cs_5_0). Failed compilation throws
/// std::runtime_error with the compiler's messages, failed creation ComException.
class LUMARO_API ComputeShader {
public:
    ComputeShader() noexcept = default;
    ComputeShader(ComputeShader&&) noexcept = default;
    ComputeShader& operator=(ComputeShader&&) noexcept = default;

    /// Compiles an embedded source, e.g. "shaders/box.hlsl". Throws std::system_error when there is none.
    static ComputeShader fromHlslResource(const ATL::CComPtr<ID3D11Device>& device, const std::string& name);
    /// Compiles a source on disk; its includes are found beside it.
    static ComputeShader fromHlslFile(const ATL::CComPtr<ID3D11Device>& device,
                                      const std::filesystem::path& path);
    /// Takes an embedded entry as byte code.
    static ComputeShader fromCsoResource(const ATL::CComPtr<ID3D11Device>& device, const std::string& name);
    static ComputeShader fromCsoFile(const ATL::CComPtr<ID3D11Device>& device,
                                     const std::filesystem::path& path);
    static ComputeShader fromCsoString(const ATL::CComPtr<ID3D11Device>& device, const std::string& bytecode);

    void begin(ID3D11DeviceContext* context) const;
    void end(ID3D11DeviceContext* context) const;

private:
    explicit ComputeShader(ATL::CComPtr<ID3D11ComputeShader> shader) noexcept;

    ATL::CComPtr<ID3D11ComputeShader> mShader;
};

}  // namespace Render
