#pragma once

#include <math/Color.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace PoTree {

/// How a store's 16-bit colour channels become 8 bits.
enum class ColorDepth {
    /// They hold 0 … 255; larger values become 255.
    Eight,
    /// They hold 0 … 65535, or 8-bit values shifted up: the upper byte counts.
    Sixteen
};

/// A 16-bit channel, in the low bits, as 8 bits.
inline std::uint8_t narrowedChannel(std::uint64_t channel, ColorDepth depth) {
    return static_cast<std::uint8_t>(depth == ColorDepth::Eight ? std::min<std::uint64_t>(channel, 255)
                                                                : channel >> 8);
}

/// Unpacks the Morton codes of Brotli stores. A position is two little-endian 64-bit words, first the upper
/// and then the lower 16 bits of each axis, interleaved with x lowest; a colour is one word, interleaved with
/// red lowest. Codes need no alignment.
struct PointCodeKernel {
    void (*positions)(const std::byte* codes, std::size_t count, std::int32_t* x, std::int32_t* y,
                      std::int32_t* z);
    void (*colors)(const std::byte* codes, std::size_t count, ColorDepth depth, Math::Color* colors);
};

/// Runs on any CPU.
const PointCodeKernel& portablePointCodeKernel();
/// nullptr where the CPU lacks BMI2, and where it has it in slow microcode.
const PointCodeKernel* bmi2PointCodeKernel();
/// The faster one that this CPU has; decided once.
const PointCodeKernel& pointCodeKernel();

}  // namespace PoTree
