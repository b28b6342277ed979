#pragma once

#include <core/Export.h>
#include <math/Color.h>
#include <render/core/RenderMode.h>
#include <render/gpu/CComPtr.h>
#include <render/gpu/ConstantBuffer.h>
#include <render/gpu/PixelShader.h>
#include <render/gpu/VertexShader.h>
#include <render/gpu/Viewport.h>

#include <d3d11.h>

namespace Render {

/// The full-screen stage that turns the scene's targets into the picture: brightness and contrast, the
/// tomographic looks, shading by normals, and the opacity of the whole. Rendering thread only.
///
/// draw() expects "color", "worldPosition" and "exactWorldPosition" bound to the pixel stage at slots 0 to 2
/// and two render targets, the picture and the copied world positions. Failing Direct3D calls throw
/// ComException.
class LUMARO_API PostProcess {
public:
    /// Without a device: only settings can be stored.
    PostProcess() = default;
    explicit PostProcess(const ATL::CComPtr<ID3D11Device>& device);
    PostProcess(PostProcess&&) = default;
    PostProcess& operator=(PostProcess&&) = default;
    ~PostProcess() = default;

    void setViewport(const Viewport& viewport);
    void setBrightness(float brightness);
    float brightness() const;
    void setContrast(float contrast);
    float contrast() const;
    void setOpacity(float opacity);
    float opacity() const;
    void setBackgroundColor(const Math::Color& color);
    void setRenderMode(RenderMode renderMode);
    RenderMode renderMode() const;

    void draw(ID3D11DeviceContext* context);

private:
    // cbConstant of shaders/postprocessing.hlsl.
    struct Constants {
        float width = 640.0f;
        float height = 480.0f;
        float brightness = 0.0f;
        float contrast = 1.0f;
        float backgroundColor[4] = {1.0f, 1.0f, 1.0f, 1.0f};
        float opacity = 1.0f;
        int renderMode = 0;
        float padding[2] = {};
    };
    static_assert(sizeof(Constants) == 48);

    VertexShader mVertexShader;
    PixelShader mPixelShader;
    ConstantBuffer<Constants> mConstants;
};

}  // namespace Render
