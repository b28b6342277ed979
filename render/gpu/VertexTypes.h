#pragma once

#include <math/Color.h>
#include <math/Point.h>

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

// The vertex records as the GPU reads them: the order, width and offset of every field is a wire format.
// Positions and normals are 32-bit floats, colours four bytes read as B8G8R8A8_UNORM. Unless said otherwise a
// default constructor sets positions, normals and texture coordinates to 0.

namespace Render {

struct VertexPosColor {
    Math::Point<float, 3> position;
    Math::Color color;

    VertexPosColor() = default;
    VertexPosColor(const Math::Point<float, 3>& p, const Math::Color& c) : position(p), color(c) {}
    VertexPosColor(float x, float y, float z, unsigned int rgba) : position(x, y, z), color(rgba) {}
    VertexPosColor(float x, float y, float z, unsigned char r, unsigned char g, unsigned char b,
                   unsigned char a)
        : position(x, y, z), color(r, g, b, a) {}
};

struct VertexPosNormalColor {
    Math::Point<float, 3> position;
    Math::Point<float, 3> normal;
    Math::Color color;

    VertexPosNormalColor() = default;
    VertexPosNormalColor(const Math::Point<float, 3>& p, const Eigen::Vector3f& n, const Math::Color& c)
        : position(p), normal(n.x(), n.y(), n.z()), color(c) {}
    VertexPosNormalColor(float x, float y, float z, float nx, float ny, float nz, unsigned int rgba)
        : position(x, y, z), normal(nx, ny, nz), color(rgba) {}
    VertexPosNormalColor(float x, float y, float z, float nx, float ny, float nz, unsigned char r,
                         unsigned char g, unsigned char b, unsigned char a)
        : position(x, y, z), normal(nx, ny, nz), color(r, g, b, a) {}
};

/// The vertex of a mesh.
struct VertexPosNormalTexCoordColor {
    Math::Point<float, 3> position;
    Math::Point<float, 3> normal;
    Math::Point<float, 2> texCoord;
    Math::Color color;

    VertexPosNormalTexCoordColor() = default;
    VertexPosNormalTexCoordColor(const Math::Point<float, 3>& p, const Eigen::Vector3f& n,
                                 const Math::Point<float, 2>& uv, const Math::Color& c)
        : position(p), normal(n.x(), n.y(), n.z()), texCoord(uv), color(c) {}
    VertexPosNormalTexCoordColor(float x, float y, float z, float nx, float ny, float nz, float u, float v,
                                 unsigned int rgba)
        : position(x, y, z), normal(nx, ny, nz), texCoord(u, v), color(rgba) {}
    VertexPosNormalTexCoordColor(float x, float y, float z, float nx, float ny, float nz, float u, float v,
                                 unsigned char r, unsigned char g, unsigned char b, unsigned char a)
        : position(x, y, z), normal(nx, ny, nz), texCoord(u, v), color(r, g, b, a) {}
};

struct VertexPosColorIntensityClassIndexScanIndex {
    Math::Point<float, 3> position;
    Math::Color color;
    uint8_t intensity = 0;
    uint8_t classIndex = 0;
    uint16_t scanIndex = 0;

    VertexPosColorIntensityClassIndexScanIndex() = default;
};

/// The vertex of a point cloud, drawn as one instance a point.
struct VertexPosColorIntensityClassIndexScanIndexDistance {
    Math::Point<float, 3> position;
    Math::Color color;
    uint8_t intensity = 0;
    uint8_t classIndex = 0;
    uint16_t scanIndex = 0;
    /// Distance to a reference mesh in model units; the largest float when none is known.
    float distance = (std::numeric_limits<float>::max)();

    VertexPosColorIntensityClassIndexScanIndexDistance() = default;
    VertexPosColorIntensityClassIndexScanIndexDistance(const Math::Point<float, 3>& p, const Math::Color& c,
                                                       unsigned char intensityValue, unsigned char classValue,
                                                       unsigned short scanValue, float distanceValue)
        : position(p),
          color(c),
          intensity(intensityValue),
          classIndex(classValue),
          scanIndex(scanValue),
          distance(distanceValue) {}
};

struct VertexPosNormalColorIntensityClassIndexScanIndex {
    Math::Point<float, 3> position;
    Math::Point<float, 3> normal;
    Math::Color color;
    uint8_t intensity = 0;
    uint8_t classIndex = 0;
    uint16_t scanIndex = 0;

    VertexPosNormalColorIntensityClassIndexScanIndex() = default;
};

/// An axis-aligned box drawn as a wire frame, one instance a box.
struct BoxWithColor {
    Math::Point<float, 3> posMin;
    Math::Point<float, 3> posMax;
    Math::Color color;
};

static_assert(sizeof(VertexPosColor) == 16 && offsetof(VertexPosColor, color) == 12);
static_assert(sizeof(VertexPosNormalColor) == 28 && offsetof(VertexPosNormalColor, normal) == 12 &&
              offsetof(VertexPosNormalColor, color) == 24);
static_assert(sizeof(VertexPosNormalTexCoordColor) == 36 &&
              offsetof(VertexPosNormalTexCoordColor, normal) == 12 &&
              offsetof(VertexPosNormalTexCoordColor, texCoord) == 24 &&
              offsetof(VertexPosNormalTexCoordColor, color) == 32);
static_assert(sizeof(VertexPosColorIntensityClassIndexScanIndex) == 20 &&
              offsetof(VertexPosColorIntensityClassIndexScanIndex, intensity) == 16 &&
              offsetof(VertexPosColorIntensityClassIndexScanIndex, classIndex) == 17 &&
              offsetof(VertexPosColorIntensityClassIndexScanIndex, scanIndex) == 18);
static_assert(sizeof(VertexPosColorIntensityClassIndexScanIndexDistance) == 24 &&
              offsetof(VertexPosColorIntensityClassIndexScanIndexDistance, intensity) == 16 &&
              offsetof(VertexPosColorIntensityClassIndexScanIndexDistance, classIndex) == 17 &&
              offsetof(VertexPosColorIntensityClassIndexScanIndexDistance, scanIndex) == 18 &&
              offsetof(VertexPosColorIntensityClassIndexScanIndexDistance, distance) == 20);
static_assert(sizeof(VertexPosNormalColorIntensityClassIndexScanIndex) == 32 &&
              offsetof(VertexPosNormalColorIntensityClassIndexScanIndex, color) == 24 &&
              offsetof(VertexPosNormalColorIntensityClassIndexScanIndex, intensity) == 28 &&
              offsetof(VertexPosNormalColorIntensityClassIndexScanIndex, scanIndex) == 30);
static_assert(sizeof(BoxWithColor) == 28 && offsetof(BoxWithColor, posMax) == 12 &&
              offsetof(BoxWithColor, color) == 24);
static_assert(std::is_trivially_copyable_v<VertexPosColorIntensityClassIndexScanIndexDistance> &&
              std::is_trivially_copyable_v<VertexPosNormalTexCoordColor> &&
              std::is_trivially_copyable_v<BoxWithColor>);

}  // namespace Render
