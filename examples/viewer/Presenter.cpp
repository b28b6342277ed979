#include "Presenter.h"

#include <render/gpu/ComException.h>

using Render::throwIfFailed;

Presenter::Presenter(HWND window, ID3D11Device* device) {
    ATL::CComPtr<IDXGIDevice> dxgiDevice;
    ATL::CComPtr<IDXGIAdapter> adapter;
    ATL::CComPtr<IDXGIFactory2> factory;
    throwIfFailed(device->QueryInterface(IID_PPV_ARGS(&dxgiDevice)), "IDXGIDevice");
    throwIfFailed(dxgiDevice->GetAdapter(&adapter), "GetAdapter");
    throwIfFailed(adapter->GetParent(IID_PPV_ARGS(&factory)), "IDXGIFactory2");

    DXGI_SWAP_CHAIN_DESC1 desc = {};
    desc.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
    desc.SampleDesc.Count = 1;
    desc.BufferUsage = DXGI_USAGE_RENDER_TARGET_OUTPUT;
    desc.BufferCount = 2;
    desc.Scaling = DXGI_SCALING_STRETCH;  // While the window is ahead of the picture.
    desc.SwapEffect = DXGI_SWAP_EFFECT_FLIP_SEQUENTIAL;
    throwIfFailed(factory->CreateSwapChainForHwnd(device, window, &desc, nullptr, nullptr, &mSwapChain),
                  "CreateSwapChainForHwnd");
    factory->MakeWindowAssociation(window, DXGI_MWA_NO_ALT_ENTER);
}

void Presenter::present(ID3D11DeviceContext* context, ID3D11Texture2D* picture) {
    D3D11_TEXTURE2D_DESC desc = {};
    picture->GetDesc(&desc);
    fit(desc);
    context->CopyResource(mBackBuffer, picture);
    throwIfFailed(mSwapChain->Present(1, 0), "Present");
}

void Presenter::fit(const D3D11_TEXTURE2D_DESC& picture) {
    if (picture.Width != mWidth || picture.Height != mHeight) {
        mBackBuffer.Release();  // Buffers cannot be resized while one is held.
        throwIfFailed(mSwapChain->ResizeBuffers(0, picture.Width, picture.Height, DXGI_FORMAT_UNKNOWN, 0),
                      "ResizeBuffers");
        mWidth = picture.Width;
        mHeight = picture.Height;
    }
    if (!mBackBuffer) {
        throwIfFailed(mSwapChain->GetBuffer(0, IID_PPV_ARGS(&mBackBuffer)), "GetBuffer");
    }
}
