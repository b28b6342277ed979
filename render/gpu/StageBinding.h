#pragma once

#include <render/gpu/ShaderConfiguration.h>

#include <d3d11.h>

#include <stdexcept>

// What shader resources, samplers and constant buffers share when they bind to shader stages.

namespace Render::StageBinding {

inline void requireUnbound(ShaderConfiguration stages) {
    if (stages != ShaderConfiguration::None) {
        throw std::logic_error("Error: end call is missing");
    }
}

inline void requireBound(ShaderConfiguration stages) {
    if (stages == ShaderConfiguration::None) {
        throw std::logic_error("Error: begin call is missing");
    }
}

inline void apply(ID3D11DeviceContext* context, ShaderConfiguration stages, unsigned slot,
                  ID3D11ShaderResourceView* view) {
    if (contains(stages, ShaderConfiguration::Vertex)) {
        context->VSSetShaderResources(slot, 1, &view);
    }
    if (contains(stages, ShaderConfiguration::Pixel)) {
        context->PSSetShaderResources(slot, 1, &view);
    }
    if (contains(stages, ShaderConfiguration::Geometry)) {
        context->GSSetShaderResources(slot, 1, &view);
    }
    if (contains(stages, ShaderConfiguration::Compute)) {
        context->CSSetShaderResources(slot, 1, &view);
    }
}

inline void apply(ID3D11DeviceContext* context, ShaderConfiguration stages, unsigned slot,
                  ID3D11SamplerState* sampler) {
    if (contains(stages, ShaderConfiguration::Vertex)) {
        context->VSSetSamplers(slot, 1, &sampler);
    }
    if (contains(stages, ShaderConfiguration::Pixel)) {
        context->PSSetSamplers(slot, 1, &sampler);
    }
    if (contains(stages, ShaderConfiguration::Geometry)) {
        context->GSSetSamplers(slot, 1, &sampler);
    }
    if (contains(stages, ShaderConfiguration::Compute)) {
        context->CSSetSamplers(slot, 1, &sampler);
    }
}

inline void apply(ID3D11DeviceContext* context, ShaderConfiguration stages, unsigned slot,
                  ID3D11Buffer* buffer) {
    if (contains(stages, ShaderConfiguration::Vertex)) {
        context->VSSetConstantBuffers(slot, 1, &buffer);
    }
    if (contains(stages, ShaderConfiguration::Pixel)) {
        context->PSSetConstantBuffers(slot, 1, &buffer);
    }
    if (contains(stages, ShaderConfiguration::Geometry)) {
        context->GSSetConstantBuffers(slot, 1, &buffer);
    }
    if (contains(stages, ShaderConfiguration::Compute)) {
        context->CSSetConstantBuffers(slot, 1, &buffer);
    }
}

}  // namespace Render::StageBinding
