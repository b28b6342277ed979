#pragma once

#include <math/StoredMatrix.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace Render {

/// Most levels of colours and of depths that the panorama shader takes, and most tiles of each.
inline constexpr size_t maxPanoLevels = 4;
inline constexpr size_t maxPanoTilesPerLevel = 48;

/// The constants of shaders/pano.hlsl (cbConstant, register b0), byte for byte. Matrices are column-major, as
/// both Eigen and the shader keep them.
struct PanoConstants {
    /// An element of a shader's array fills a register.
    struct Level {
        uint32_t value = 0;
        std::array<uint32_t, 3> padding{};
    };
    using Levels = std::array<Level, maxPanoTilesPerLevel>;
    using Matrix = Math::StoredMatrix4f;

    Matrix viewProjection = Matrix::Identity();
    Matrix inverseModelViewProjection = Matrix::Identity();
    Matrix model = Matrix::Identity();
    /// As of the camera's last change, whatever has moved the panorama since.
    Matrix inverseModelView = Matrix::Identity();
    float zNear = 0.0f;
    float zFar = 0.0f;
    /// Length of the world matrix's first column.
    float scale = 1.0f;
    /// 0 equirectangular, otherwise a cube map.
    uint32_t projectionType = 0;
    uint32_t tileRows = 0;
    uint32_t tileColumns = 0;
    uint32_t colorLevels = 0;
    uint32_t depthLevels = 0;
    /// The finest level that has arrived, by tile.
    Levels maxColorLevelPerTile{};
    Levels maxDepthLevelPerTile{};
};

static_assert(offsetof(PanoConstants, inverseModelViewProjection) == 64);
static_assert(offsetof(PanoConstants, inverseModelView) == 192);
static_assert(offsetof(PanoConstants, zNear) == 256);
static_assert(offsetof(PanoConstants, projectionType) == 268);
static_assert(offsetof(PanoConstants, depthLevels) == 284);
static_assert(offsetof(PanoConstants, maxColorLevelPerTile) == 288);
static_assert(offsetof(PanoConstants, maxDepthLevelPerTile) == 1056);
static_assert(sizeof(PanoConstants) == 1824);

}  // namespace Render
