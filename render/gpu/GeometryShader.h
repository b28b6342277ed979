#pragma once

#include <core/Export.h>
#include <render/gpu/CComPtr.h>

#include <d3d11.h>

#include <filesystem>
#include <string>

namespace Render {

/// Owns a geometry shader, made from a file (entry point gs_main, gs_5_0) or from byte code. From a resource
/// it cannot be made: that factory compiles the pixel entry point, which always ends in a failure. Failed
/// compilation throws std::runtime_error with the compiler's messages, failed creation ComException.
class LUMARO_API GeometryShader {
public:
    GeometryShader() noexcept = default;
    GeometryShader(GeometryShader&&) noexcept = default;
    GeometryShader& operator=(GeometryShader&&) noexcept = default;

    /// Compiles an embedded source, e.g. "shaders/box.hlsl". Throws std::system_error when there is none.
    static GeometryShader fromHlslResource(const ATL::CComPtr<ID3D11Device>& device, const std::string& name);
    /// Compiles a source on disk; its includes are found beside it.
    static GeometryShader fromHlslFile(const ATL::CComPtr<ID3D11Device>& device,
                                       const std::filesystem::path& path);
    /// Takes an embedded entry as byte code.
    static GeometryShader fromCsoResource(const ATL::CComPtr<ID3D11Device>& device, const std::string& name);
    static GeometryShader fromCsoFile(const ATL::CComPtr<ID3D11Device>& device,
                                      const std::filesystem::path& path);
    static GeometryShader fromCsoString(const ATL::CComPtr<ID3D11Device>& device,
                                        const std::string& bytecode);

    void begin(ID3D11DeviceContext* context) const;
    void end(ID3D11DeviceContext* context) const;

private:
    explicit GeometryShader(ATL::CComPtr<ID3D11GeometryShader> shader) noexcept;

    ATL::CComPtr<ID3D11GeometryShader> mShader;
};

}  // namespace Render
