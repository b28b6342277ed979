#pragma once

#include <d3dcompiler.h>
#include <math/Color.h>
#include <render/core/Renderer.h>
#include <render/gpu/ConstantBuffer.h>
#include <render/gpu/PixelShader.h>
#include <render/gpu/VertexShader.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <string>

/// A rectangle in clip coordinates with one colour, depth and world position, drawn into the targets of a
/// scene.
class Patch {
public:
    struct Shape {
        float left, bottom, right, top;
        float depth;
        Math::Color color;
    };

    explicit Patch(const Render::Renderer& renderer)
        : mContext(renderer.deviceContext()),
          mVertexShader(
              Render::VertexShader::fromCsoString(renderer.device(), compile("vs_main", "vs_5_0"), {})),
          mPixelShader(Render::PixelShader::fromCsoString(renderer.device(), compile("ps_main", "ps_5_0"))),
          mConstants(renderer.device()) {}

    void draw(const Shape& shape) {
        const std::array<float, 4> color = shape.color.toFloats();
        mConstants.set({{shape.left, shape.bottom, shape.right, shape.top},
                        {color[0], color[1], color[2], color[3]},
                        {shape.depth}});
        mVertexShader.begin(mContext);
        mPixelShader.begin(mContext);
        mConstants.begin(mContext, Render::ShaderConfiguration::Vertex | Render::ShaderConfiguration::Pixel,
                         0);
        mContext->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLESTRIP);
        mContext->DrawInstanced(4, 1, 0, 0);
        mConstants.end(mContext);
        mPixelShader.end(mContext);
        mVertexShader.end(mContext);
    }

private:
    struct Constants {
        float rectangle[4];
        float color[4];
        float depth[4];
    };

    static std::string compile(const char* entry, const char* target) {
        static const char source[] = R"(
            cbuffer Constants : register(b0) { float4 rectangle; float4 color; float4 depth; };
            struct Targets { float4 color : SV_TARGET0; float4 position : SV_TARGET1; float4 exact : SV_TARGET2; };
            float4 vs_main(uint id : SV_VertexID) : SV_POSITION {
                return float4(lerp(rectangle.xy, rectangle.zw, float2(id >> 1, id & 1)), depth.x, 1.0);
            }
            Targets ps_main() {
                Targets targets;
                targets.color = color;
                targets.position = targets.exact = float4(1.0, 2.0, 3.0, 1.0);
                return targets;
            })";
        ATL::CComPtr<ID3DBlob> code;
        ATL::CComPtr<ID3DBlob> errors;
        if (FAILED(D3DCompile(source, std::strlen(source), "patch", nullptr, nullptr, entry, target, 0, 0,
                              &code, &errors))) {
            throw std::runtime_error(errors ? static_cast<const char*>(errors->GetBufferPointer())
                                            : "no compiler");
        }
        return {static_cast<const char*>(code->GetBufferPointer()), code->GetBufferSize()};
    }

    ID3D11DeviceContext* mContext;
    Render::VertexShader mVertexShader;
    Render::PixelShader mPixelShader;
    Render::ConstantBuffer<Constants> mConstants;
};
