#include <octree/las/ColorDecoder.h>

#include <algorithm>

namespace Las {

namespace {

// Bits of the symbol that says what changed: the low and high bytes of red, green and blue, then whether the
// colour is not grey.
constexpr unsigned changeBit(unsigned channel, unsigned byte) {
    return 1U << (2 * channel + byte);
}
constexpr unsigned IS_COLORED = 64;

int byteOf(std::uint16_t value, unsigned byte) {
    return value >> (8 * byte) & 255;
}

}  // namespace

void ColorDecoder::reset() {
    mChanges.reset();
    for (auto& channel : mBytes) {
        for (SymbolModel<256>& model : channel) {
            model.reset();
        }
    }
}

void ColorDecoder::next(ArithmeticDecoder& decoder, Rgb& color) {
    const unsigned changes = mChanges.decode(decoder);
    const auto decodeByte = [&](unsigned channel, unsigned byte, int prediction) {
        if ((changes & changeBit(channel, byte)) == 0) {
            return byteOf(color[channel], byte);
        }
        return static_cast<int>((mBytes[channel][byte].decode(decoder) + static_cast<unsigned>(prediction)) &
                                255);
    };
    const int redLow = decodeByte(0, 0, byteOf(color[0], 0));
    const int redHigh = decodeByte(0, 1, byteOf(color[0], 1));
    const auto red = static_cast<std::uint16_t>(redHigh << 8 | redLow);
    if ((changes & IS_COLORED) == 0) {
        color.fill(red);
        return;
    }
    const std::array<int, 2> redBytes{redLow, redHigh};
    std::array<int, 2> green{}, blue{};
    for (unsigned byte = 0; byte < 2; ++byte) {
        int moved = redBytes[byte] - byteOf(color[0], byte);
        const int oldGreen = byteOf(color[1], byte);
        green[byte] = decodeByte(1, byte, std::clamp(moved + oldGreen, 0, 255));
        if ((changes & changeBit(2, byte)) != 0) {
            moved = (moved + green[byte] - oldGreen) / 2;
        }
        blue[byte] = decodeByte(2, byte, std::clamp(moved + byteOf(color[2], byte), 0, 255));
    }
    color = {red, static_cast<std::uint16_t>(green[1] << 8 | green[0]),
             static_cast<std::uint16_t>(blue[1] << 8 | blue[0])};
}

void NearInfraredDecoder::reset() {
    mChanges.reset();
    for (SymbolModel<256>& model : mBytes) {
        model.reset();
    }
}

void NearInfraredDecoder::next(ArithmeticDecoder& decoder, std::uint16_t& value) {
    const unsigned changes = mChanges.decode(decoder);
    const unsigned old = value;
    unsigned bytes[2];
    for (unsigned byte = 0; byte < 2; ++byte) {
        bytes[byte] = old >> (8 * byte) & 255U;
        if ((changes >> byte & 1) != 0) {
            bytes[byte] = (bytes[byte] + mBytes[byte].decode(decoder)) & 255U;
        }
    }
    value = static_cast<std::uint16_t>(bytes[1] << 8 | bytes[0]);
}

}  // namespace Las
