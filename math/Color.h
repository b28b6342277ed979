#pragma once

#include <core/Export.h>

#include <array>
#include <cstdint>

namespace Math {

/// A colour of four 8-bit channels, 0 … 255. In memory the bytes stand in the order blue, green, red, alpha,
/// which is that of DXGI_FORMAT_B8G8R8A8_UNORM texels and vertex elements.
class Color {
public:
    /// Transparent black.
    constexpr Color() = default;
    constexpr Color(uint8_t r, uint8_t g, uint8_t b, uint8_t a = 255) : mB(b), mG(g), mR(r), mA(a) {}

    /// From 0xAARRGGBB, which is the four bytes in memory read as a little-endian number.
    constexpr explicit Color(uint32_t packed)
        : mB(static_cast<uint8_t>(packed)),
          mG(static_cast<uint8_t>(packed >> 8)),
          mR(static_cast<uint8_t>(packed >> 16)),
          mA(static_cast<uint8_t>(packed >> 24)) {}

    static constexpr Color black(uint8_t a = 255) { return Color(0, 0, 0, a); }
    static constexpr Color white(uint8_t a = 255) { return Color(255, 255, 255, a); }
    static constexpr Color gray(uint8_t value, uint8_t a = 255) { return Color(value, value, value, a); }

    /// From HSLuv: hue in degrees, any number of turns; saturation, lightness and alpha in 0 … 1, clamped.
    /// Equal lightness looks equally light for every hue.
    LUMARO_API static Color fromHslUv(double hueDegrees, double saturation, double lightness, double alpha);

    /// 0xAARRGGBB.
    constexpr uint32_t packed() const {
        return uint32_t{mB} | uint32_t{mG} << 8 | uint32_t{mR} << 16 | uint32_t{mA} << 24;
    }

    constexpr uint8_t r() const { return mR; }
    constexpr uint8_t g() const { return mG; }
    constexpr uint8_t b() const { return mB; }
    constexpr uint8_t a() const { return mA; }

    constexpr void set(uint8_t r, uint8_t g, uint8_t b, uint8_t a) { *this = Color(r, g, b, a); }

    /// Red, green, blue, alpha, each 0 … 1: what a shader sees.
    constexpr std::array<float, 4> toFloats() const {
        return {static_cast<float>(mR) / 255.0f, static_cast<float>(mG) / 255.0f,
                static_cast<float>(mB) / 255.0f, static_cast<float>(mA) / 255.0f};
    }

    constexpr bool operator==(const Color&) const = default;

private:
    uint8_t mB = 0;
    uint8_t mG = 0;
    uint8_t mR = 0;
    uint8_t mA = 0;
};

static_assert(sizeof(Color) == 4);

}  // namespace Math
