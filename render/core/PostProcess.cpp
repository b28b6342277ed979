#include <render/core/PostProcess.h>

#include <algorithm>
#include <array>

namespace Render {

PostProcess::PostProcess(const ATL::CComPtr<ID3D11Device>& device)
    : mVertexShader(VertexShader::fromHlslResource(device, "shaders/postprocessing.hlsl", {})),
      mPixelShader(PixelShader::fromHlslResource(device, "shaders/postprocessing.hlsl")),
      mConstants(device) {}

void PostProcess::setViewport(const Viewport& viewport) {
    Constants& constants = mConstants.edit();
    constants.width = static_cast<float>(viewport.width());
    constants.height = static_cast<float>(viewport.height());
}

void PostProcess::setBrightness(float brightness) {
    mConstants.edit().brightness = brightness;
}

float PostProcess::brightness() const {
    return mConstants.data().brightness;
}

void PostProcess::setContrast(float contrast) {
    mConstants.edit().contrast = contrast;
}

float PostProcess::contrast() const {
    return mConstants.data().contrast;
}

void PostProcess::setOpacity(float opacity) {
    mConstants.edit().opacity = opacity;
}

float PostProcess::opacity() const {
    return mConstants.data().opacity;
}

void PostProcess::setBackgroundColor(const Math::Color& color) {
    const std::array<float, 4> floats = color.toFloats();
    std::copy(floats.begin(), floats.end(), mConstants.edit().backgroundColor);
}

void PostProcess::setRenderMode(RenderMode renderMode) {
    mConstants.edit().renderMode = static_cast<int>(renderMode);
}

RenderMode PostProcess::renderMode() const {
    return static_cast<RenderMode>(mConstants.data().renderMode);
}

void PostProcess::draw(ID3D11DeviceContext* context) {
    mConstants.upload(context);  // Before anything is bound, because it may fail.
    mVertexShader.begin(context);
    mPixelShader.begin(context);
    mConstants.begin(context, ShaderConfiguration::Pixel, 0);
    context->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLESTRIP);
    context->DrawInstanced(4, 1, 0, 0);
    mVertexShader.end(context);
    mPixelShader.end(context);
    mConstants.end(context);
}

}  // namespace Render
