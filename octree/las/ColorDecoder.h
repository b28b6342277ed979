#pragma once

#include <octree/las/SymbolModel.h>

#include <array>
#include <cstdint>

namespace Las {

/// Red, green, blue.
using Rgb = std::array<std::uint16_t, 3>;

/// Colours (LAZ specification, RGB12 version 2; LASzip for LAS 1.4, RGB layer): the low and the high byte of
/// each channel as differences, those of green and blue from the byte moved by what the channels before it
/// moved.
class ColorDecoder {
public:
    void reset();
    /// Turns the last colour into the next.
    void next(ArithmeticDecoder& decoder, Rgb& color);

private:
    SymbolModel<128> mChanges;
    /// By channel and byte, low byte first.
    std::array<std::array<SymbolModel<256>, 2>, 3> mBytes;
};

/// Near infrared (LASzip for LAS 1.4, NIR layer): the two bytes as differences.
class NearInfraredDecoder {
public:
    void reset();
    void next(ArithmeticDecoder& decoder, std::uint16_t& value);

private:
    SymbolModel<4> mChanges;
    std::array<SymbolModel<256>, 2> mBytes;
};

}  // namespace Las
