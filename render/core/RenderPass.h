#pragma once

#include <core/Export.h>
#include <math/Color.h>
#include <render/gpu/CComPtr.h>
#include <render/gpu/DepthStencilView.h>
#include <render/gpu/RenderTargetView.h>
#include <render/gpu/ShaderConfiguration.h>
#include <render/gpu/ShaderResourceView.h>
#include <render/gpu/Texture2d.h>

#include <d3d11.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Render {

/// Named off-screen colour targets of one size with an optional depth buffer, which are bound, cleared, read
/// as textures and resized together. Rendering thread only.
///
/// A texture is bound as shader input by bindTexture() and must be unbound before it is bound again: a second
/// bind throws std::logic_error "Error: end call is missing", an unbind without a bind "Error: begin call is
/// missing". Operations that take a target's name throw std::out_of_range for a name that was never added.
/// Failing Direct3D calls throw ComException.
class LUMARO_API RenderPass {
public:
    RenderPass(const ATL::CComPtr<ID3D11Device>& device, unsigned width, unsigned height);
    RenderPass(RenderPass&&) = default;
    RenderPass& operator=(RenderPass&&) = default;
    ~RenderPass() = default;

    /// Adds a target that is bindable as render target and shader resource; returns its position, which is
    /// the number of its SV_TARGET. It is cleared to zero until told otherwise. A name that is already taken
    /// throws std::invalid_argument, as does a ninth target.
    size_t addRenderTarget(const std::string& name, DXGI_FORMAT format);
    /// The same from a description, whose size becomes the pass's and whose bind flags are extended.
    size_t addRenderTarget(const std::string& name, D3D11_TEXTURE2D_DESC desc);
    /// A 32-bit float depth buffer, readable as shader resource and copyable to a D32_FLOAT texture.
    void addDepthBuffer(unsigned clearFlags, float clearDepth, unsigned char clearStencil);

    /// Re-creates all textures and views; clear values stay. When a creation fails, the pass stays as it was:
    /// for a moment there are old and new textures. Throws std::logic_error "Error: end call is missing"
    /// while a texture is bound as shader input.
    void setViewport(unsigned width, unsigned height);

    void setClearValue(const std::string& name, float r, float g, float b, float a);
    void setClearValue(const std::string& name, const Math::Color& color);
    void setDepthStencilClearValues(unsigned clearFlags, float depth, unsigned char stencil);

    /// Binds all targets in the order in which they were added, and the depth buffer.
    void begin(ID3D11DeviceContext* context);
    /// Flushes and unbinds them.
    void end(ID3D11DeviceContext* context);

    void clear(ID3D11DeviceContext* context, const std::string& name);
    void clearAllRenderTargets(ID3D11DeviceContext* context, bool clearDepth);

    void bindTexture(ID3D11DeviceContext* context, const std::string& name, ShaderConfiguration stages,
                     unsigned slot);
    void unbindTexture(ID3D11DeviceContext* context, const std::string& name);
    /// The operations on the depth buffer throw std::bad_optional_access where there is none.
    void bindDepthTexture(ID3D11DeviceContext* context, ShaderConfiguration stages, unsigned slot);
    void unbindDepthTexture(ID3D11DeviceContext* context);

    unsigned width() const { return mWidth; }
    unsigned height() const { return mHeight; }
    const Texture2d& texture(const std::string& name) const;
    const Texture2d& depthTexture() const;

private:
    struct RenderTarget {
        D3D11_TEXTURE2D_DESC desc;
        Texture2d texture;
        RenderTargetView targetView;
        ShaderResourceView resourceView;
    };
    struct DepthBuffer {
        Texture2d texture;
        ShaderResourceView resourceView;
        DepthStencilView depthView;
    };

    RenderTarget createTarget(D3D11_TEXTURE2D_DESC desc, unsigned width, unsigned height,
                              const std::array<float, 4>& clearValue) const;
    DepthBuffer createDepthBuffer(unsigned width, unsigned height, unsigned clearFlags, float clearDepth,
                                  unsigned char clearStencil) const;

    std::unordered_map<std::string, RenderTarget> mTargets;
    std::vector<std::string> mOrder;
    std::vector<ID3D11RenderTargetView*> mRenderTargetViews;  // lent by mTargets, in binding order
    std::optional<DepthBuffer> mDepthBuffer;
    ATL::CComPtr<ID3D11Device> mDevice;
    unsigned mWidth;
    unsigned mHeight;
};

}  // namespace Render
