#pragma once

#include <render/gpu/VertexTypes.h>

#include <d3d11.h>

#include <vector>

/// The tables that describe the vertex records to Direct3D; all read from slot 0.
namespace Render::VertexLayouts {

/// VertexPosColorIntensityClassIndexScanIndexDistance: one instance a point.
inline std::vector<D3D11_INPUT_ELEMENT_DESC> pointCloud() {
    constexpr UINT append = D3D11_APPEND_ALIGNED_ELEMENT;
    constexpr D3D11_INPUT_CLASSIFICATION instance = D3D11_INPUT_PER_INSTANCE_DATA;
    return {{"POS", 0, DXGI_FORMAT_R32G32B32_FLOAT, 0, 0, instance, 1},
            {"COL", 0, DXGI_FORMAT_B8G8R8A8_UNORM, 0, append, instance, 1},
            {"INTENSITY", 0, DXGI_FORMAT_R8_UNORM, 0, append, instance, 1},
            {"CLASSINDEX", 0, DXGI_FORMAT_R8_UINT, 0, append, instance, 1},
            {"SCANINDEX", 0, DXGI_FORMAT_R16_UINT, 0, append, instance, 1},
            {"DISTANCE", 0, DXGI_FORMAT_R32_FLOAT, 0, append, instance, 1}};
}

/// BoxWithColor: one instance a box.
inline std::vector<D3D11_INPUT_ELEMENT_DESC> box() {
    constexpr UINT append = D3D11_APPEND_ALIGNED_ELEMENT;
    constexpr D3D11_INPUT_CLASSIFICATION instance = D3D11_INPUT_PER_INSTANCE_DATA;
    return {{"POS_MIN", 0, DXGI_FORMAT_R32G32B32_FLOAT, 0, 0, instance, 1},
            {"POS_MAX", 0, DXGI_FORMAT_R32G32B32_FLOAT, 0, append, instance, 1},
            {"COL", 0, DXGI_FORMAT_B8G8R8A8_UNORM, 0, append, instance, 1}};
}

/// VertexPosNormalTexCoordColor: a mesh.
inline std::vector<D3D11_INPUT_ELEMENT_DESC> mesh() {
    constexpr D3D11_INPUT_CLASSIFICATION vertex = D3D11_INPUT_PER_VERTEX_DATA;
    return {{"POS", 0, DXGI_FORMAT_R32G32B32_FLOAT, 0, 0, vertex, 0},
            {"NML", 0, DXGI_FORMAT_R32G32B32_FLOAT, 0, 12, vertex, 0},
            {"UV", 0, DXGI_FORMAT_R32G32_FLOAT, 0, 24, vertex, 0},
            {"COL", 0, DXGI_FORMAT_B8G8R8A8_UNORM, 0, 32, vertex, 0}};
}

}  // namespace Render::VertexLayouts
