#pragma once

#include <math/StoredMatrix.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace Render {

/// Most clipping half-spaces that the point-cloud shader takes.
inline constexpr size_t maxClippingPlanes = 8;

/// The constants of shaders/pointcloud.hlsl that change at most once a frame (cbPerFrame, register b0), byte
/// for byte. Matrices are column-major, as both Eigen and the shader keep them. Flags are 0 or 1.
struct PointCloudFrameConstants {
    using Matrix = Math::StoredMatrix4f;

    Matrix model = Matrix::Identity();
    Matrix invModel = Matrix::Identity();
    Matrix view = Matrix::Identity();
    Matrix proj = Matrix::Identity();
    /// proj × view × model
    Matrix modelViewProj = Matrix::Identity();
    Matrix invModelViewProj = Matrix::Identity();
    Matrix invViewProj = Matrix::Identity();
    /// Half-spaces in model coordinates; those not in use are zero, which passes every point.
    std::array<std::array<float, 4>, maxClippingPlanes> clippingPlanes{};
    /// Colours are r, g, b, a in 0..1.
    std::array<float, 4> uniformColor{};
    std::array<float, 4> tomographicColor{};
    /// Normal and offset, in world coordinates.
    std::array<float, 4> distancePlane{};
    // The shader calls these two "near" and "far", which are macros in the Windows headers.
    float nearDepth = 0.0f;
    float farDepth = 0.0f;
    /// Viewport in pixels.
    float width = 0.0f;
    float height = 0.0f;
    float aspect = 0.0f;
    /// Model units.
    float pointSize = 0.0f;
    /// Edge length of the octree's root cube in model units.
    float rootNodeSize = 0.0f;
    /// Pixels.
    float maxPointSize = 0.0f;
    float tomoContrast = 0.0f;
    /// Length of the first column of the world matrix.
    float modelScale = 0.0f;
    float minDistance = 0.0f;
    float maxDistance = 0.0f;
    float minDistancePassFail = 0.0f;
    float maxDistancePassFail = 0.0f;
    float minDistanceWarn = 0.0f;
    float maxDistanceWarn = 0.0f;
    /// A ColorMap and a RenderMode.
    int32_t colorMap = 0;
    int32_t pointRenderMode = 0;
    int32_t useSignedDistance = 0;
    int32_t selected = 0;
    int32_t useCloudColorsInTomographicRenderModes = 0;
    std::array<int32_t, 3> padding{};
};

/// The constants of one drawn node (cbPerOctreeNode, register b1).
struct PointCloudNodeConstants {
    /// Minimum corner of the node's cube in model coordinates.
    std::array<float, 3> nodeMin{};
    /// The node's texel in the node table.
    uint32_t nodeIndex = 0;
    /// The node's level.
    uint32_t nodeDepth = 0;
    std::array<uint32_t, 3> padding{};
};

static_assert(sizeof(PointCloudFrameConstants::Matrix) == 64);
static_assert(offsetof(PointCloudFrameConstants, invViewProj) == 6 * 64);
static_assert(offsetof(PointCloudFrameConstants, clippingPlanes) == 448);
static_assert(offsetof(PointCloudFrameConstants, uniformColor) == 576);
static_assert(offsetof(PointCloudFrameConstants, tomographicColor) == 592);
static_assert(offsetof(PointCloudFrameConstants, distancePlane) == 608);
static_assert(offsetof(PointCloudFrameConstants, nearDepth) == 624);
static_assert(offsetof(PointCloudFrameConstants, aspect) == 640);
static_assert(offsetof(PointCloudFrameConstants, tomoContrast) == 656);
static_assert(offsetof(PointCloudFrameConstants, minDistancePassFail) == 672);
static_assert(offsetof(PointCloudFrameConstants, colorMap) == 688);
static_assert(offsetof(PointCloudFrameConstants, useCloudColorsInTomographicRenderModes) == 704);
static_assert(sizeof(PointCloudFrameConstants) == 720);
static_assert(offsetof(PointCloudNodeConstants, nodeIndex) == 12);
static_assert(offsetof(PointCloudNodeConstants, nodeDepth) == 16);
static_assert(sizeof(PointCloudNodeConstants) == 32);

}  // namespace Render
