#pragma once

#include <render/gpu/CComPtr.h>
#include <render/gpu/RenderTargetView.h>
#include <render/gpu/Texture2d.h>

#include <d3d11.h>

#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

using Float4 = std::array<float, 4>;

/// A device for tests: the graphics card's, or the software one of Windows where there is no card.
class GpuTestDevice {
public:
    /// Throws Render::ComException when there is neither.
    GpuTestDevice();

    /// A new one in place of the last: call it once a test. Wine's Vulkan back end has been seen to draw with
    /// a destroyed shader when another came to lie at its address, so no test inherits a device.
    static GpuTestDevice& fresh();

    const ATL::CComPtr<ID3D11Device>& device() const { return mDevice; }
    const ATL::CComPtr<ID3D11DeviceContext>& context() const { return mContext; }

    /// The texels of one subresource row by row, without padding.
    template <class Texel>
    std::vector<Texel> read(ID3D11Texture2D* texture, unsigned subresource = 0) const {
        const std::vector<unsigned char> bytes = readBytes(texture, subresource, sizeof(Texel));
        std::vector<Texel> texels(bytes.size() / sizeof(Texel));
        std::memcpy(texels.data(), bytes.data(), bytes.size());
        return texels;
    }

    /// The bytes of a buffer.
    std::vector<unsigned char> readBuffer(ID3D11Buffer* buffer) const;

    /// A description of one mip level and one slice, without CPU access.
    static D3D11_TEXTURE2D_DESC textureDesc(unsigned width, unsigned height, DXGI_FORMAT format,
                                            unsigned bindFlags);

    /// Byte code of a source that may include the embedded ones.
    static std::string compile(std::string_view source, const char* entryPoint, const char* target);

private:
    std::vector<unsigned char> readBytes(ID3D11Texture2D* texture, unsigned subresource,
                                         size_t texelSize) const;

    ATL::CComPtr<ID3D11Device> mDevice;
    ATL::CComPtr<ID3D11DeviceContext> mContext;
};

/// Some render targets of four floats a texel, cleared and bound with a viewport of their size.
class FloatTargets {
public:
    FloatTargets(GpuTestDevice& gpu, unsigned width, unsigned height, unsigned count);

    void bindAndClear(float value = 0.0f);
    /// Unbinds the targets and returns one of them, row by row.
    std::vector<Float4> read(size_t target);

private:
    GpuTestDevice& mGpu;
    unsigned mWidth;
    unsigned mHeight;
    std::vector<Render::Texture2d> mTextures;
    std::vector<Render::RenderTargetView> mViews;
};

}  // namespace TestSupport
