#pragma once

#include <cstdint>

namespace Render {

/// A set of shader stages, as a bit mask. None means "bound to no stage".
enum class ShaderConfiguration : uint32_t {
    None = 0,
    Vertex = 1,
    Geometry = 2,
    Pixel = 4,
    Compute = 8,
};

constexpr ShaderConfiguration operator|(ShaderConfiguration a, ShaderConfiguration b) {
    return static_cast<ShaderConfiguration>(static_cast<uint32_t>(a) | static_cast<uint32_t>(b));
}

constexpr ShaderConfiguration operator&(ShaderConfiguration a, ShaderConfiguration b) {
    return static_cast<ShaderConfiguration>(static_cast<uint32_t>(a) & static_cast<uint32_t>(b));
}

constexpr ShaderConfiguration& operator|=(ShaderConfiguration& a, ShaderConfiguration b) {
    return a = a | b;
}

/// Whether `stages` holds every stage of `wanted`.
constexpr bool contains(ShaderConfiguration stages, ShaderConfiguration wanted) {
    return (stages & wanted) == wanted;
}

}  // namespace Render
