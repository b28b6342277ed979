#pragma once

#include <render/gpu/CComPtr.h>

#include <d3d11.h>
#include <dxgi1_2.h>

/// Shows a renderer's pictures in a window, from texture to texture: nothing passes through the CPU.
class Presenter {
public:
    /// The swap chain lives on the renderer's device. Throws Render::ComException.
    Presenter(HWND window, ID3D11Device* device);

    /// Copies the picture and presents it, in the size of the picture.
    void present(ID3D11DeviceContext* context, ID3D11Texture2D* picture);

private:
    void fit(const D3D11_TEXTURE2D_DESC& picture);

    ATL::CComPtr<IDXGISwapChain1> mSwapChain;
    ATL::CComPtr<ID3D11Texture2D> mBackBuffer;
    UINT mWidth = 0;
    UINT mHeight = 0;
};
