#pragma once

#include <core/Export.h>
#include <render/gpu/CComPtr.h>

#include <d3d11.h>

#include <filesystem>
#include <string>

namespace Render {

/// Owns a pixel shader (entry point ps_main, ps_5_0). Failed compilation throws
/// std::runtime_error with the compiler's messages, failed creation ComException.
class LUMARO_API PixelShader {
public:
    PixelShader() noexcept = default;
    PixelShader(PixelShader&&) noexcept = default;
    PixelShader& operator=(PixelShader&&) noexcept = default;

    /// Compiles an embedded source, e.g. "shaders/box.hlsl". Throws std::system_error when there is none.
    static PixelShader fromHlslResource(const ATL::CComPtr<ID3D11Device>& device, const std::string& name);
    /// Compiles a source on disk; its includes are found beside it.
    static PixelShader fromHlslFile(const ATL::CComPtr<ID3D11Device>& device,
                                    const std::filesystem::path& path);
    /// Takes an embedded entry as byte code.
    static PixelShader fromCsoResource(const ATL::CComPtr<ID3D11Device>& device, const std::string& name);
    static PixelShader fromCsoFile(const ATL::CComPtr<ID3D11Device>& device,
                                   const std::filesystem::path& path);
    static PixelShader fromCsoString(const ATL::CComPtr<ID3D11Device>& device, const std::string& bytecode);

    void begin(ID3D11DeviceContext* context) const;
    void end(ID3D11DeviceContext* context) const;

private:
    explicit PixelShader(ATL::CComPtr<ID3D11PixelShader> shader) noexcept;

    ATL::CComPtr<ID3D11PixelShader> mShader;
};

}  // namespace Render
