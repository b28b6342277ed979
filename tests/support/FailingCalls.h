#pragma once

#include <tests/support/ComSpy.h>

#include <d3d11.h>

#include <cstddef>

// Direct3D calls that fail when a test says so.

namespace TestSupport {

/// Places of functions in their interfaces, counted from IUnknown's first.
namespace DeviceSlot {
constexpr std::size_t createBuffer = 3, createTexture2D = 5, createShaderResourceView = 7,
                      createRenderTargetView = 9, createDepthStencilView = 10, count = 43;
}
namespace ContextSlot {
constexpr std::size_t map = 14, copyResource = 47, count = 115;
}

/// How many calls still succeed before one fails with E_OUTOFMEMORY; below 0 none fails.
inline int callsUntilFailure = -1;

/// Makes the calls that create buffers, textures and views on a device, and those that map on its context,
/// fail when their turn comes, while it exists. One at a time.
class FailingCalls {
public:
    FailingCalls(ID3D11Device* device, ID3D11DeviceContext* context)
        : mDevice(device, DeviceSlot::count), mContext(context, ContextSlot::count) {
        callsUntilFailure = -1;
        Buffer::replaceIn(mDevice, DeviceSlot::createBuffer);
        Texture::replaceIn(mDevice, DeviceSlot::createTexture2D);
        ShaderView::replaceIn(mDevice, DeviceSlot::createShaderResourceView);
        TargetView::replaceIn(mDevice, DeviceSlot::createRenderTargetView);
        DepthView::replaceIn(mDevice, DeviceSlot::createDepthStencilView);
        Map::replaceIn(mContext, ContextSlot::map);
    }

    ComSpy& context() { return mContext; }

    /// Repeats the call, each time with a later one of its calls failing, until none is left to fail. `check`
    /// runs after each failure, with nothing failing. Returns how often the call failed.
    template <class Error, class Call, class Check>
    static int failEachInTurn(Call call, Check check) {
        for (int n = 0;; ++n) {
            callsUntilFailure = n;
            try {
                call();
            } catch (const Error&) {
                callsUntilFailure = -1;
                check();
                continue;
            }
            const bool wasReached = callsUntilFailure < 0;
            callsUntilFailure = -1;
            if (!wasReached) {
                return n;
            }
        }
    }

private:
    /// A slot's function and what stands in its place.
    template <class... Arguments>
    struct Failing {
        using Function = HRESULT STDMETHODCALLTYPE(void*, Arguments...);

        static HRESULT STDMETHODCALLTYPE call(void* object, Arguments... arguments) {
            const bool fails = callsUntilFailure >= 0 && callsUntilFailure-- == 0;
            return fails ? E_OUTOFMEMORY : original(object, arguments...);
        }
        static void replaceIn(ComSpy& spy, std::size_t slot) { original = spy.replace(slot, &call); }
        static inline Function* original = nullptr;
    };
    using Buffer = Failing<const D3D11_BUFFER_DESC*, const D3D11_SUBRESOURCE_DATA*, ID3D11Buffer**>;
    using Texture = Failing<const D3D11_TEXTURE2D_DESC*, const D3D11_SUBRESOURCE_DATA*, ID3D11Texture2D**>;
    using ShaderView =
        Failing<ID3D11Resource*, const D3D11_SHADER_RESOURCE_VIEW_DESC*, ID3D11ShaderResourceView**>;
    using TargetView =
        Failing<ID3D11Resource*, const D3D11_RENDER_TARGET_VIEW_DESC*, ID3D11RenderTargetView**>;
    using DepthView =
        Failing<ID3D11Resource*, const D3D11_DEPTH_STENCIL_VIEW_DESC*, ID3D11DepthStencilView**>;
    using Map = Failing<ID3D11Resource*, UINT, D3D11_MAP, UINT, D3D11_MAPPED_SUBRESOURCE*>;

    ComSpy mDevice;
    ComSpy mContext;
};

}  // namespace TestSupport
