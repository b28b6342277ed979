#pragma once

#include <core/Export.h>
#include <graphics/Image.h>
#include <math/Color.h>

#include <cstdint>
#include <filesystem>
#include <stop_token>

namespace Graphics {

/// Texels of 8-bit blue, green, red, alpha, alpha not multiplied in.
class LUMARO_API ColorImage : public Image {
public:
    ColorImage() = default;

    /// Transparent black.
    ColorImage(size_t width, size_t height) { resize(width, height); }

    void fill(const Math::Color& color);

    /// x to the right, y downwards. Both throw std::out_of_range outside the image.
    Math::Color pixel(size_t x, size_t y) const;
    void setPixel(size_t x, size_t y, const Math::Color& color);

    /// Writes an 8-bit RGBA file. The file appears complete or not at all. Throws ImageError, also when
    /// `stop` is signalled.
    void writePng(const std::filesystem::path& file, const std::stop_token& stop = {}) const;

    /// Reads a PNG of any kind or a JPEG, grey or coloured, baseline or progressive; told apart by their
    /// contents. CMYK files are refused, and a noted orientation is not applied. Throws ImageError, also for
    /// damaged files, sides above 65535, more than 2^28 texels, progressive JPEGs of more than 2^27, when
    /// `stop` is signalled, and for more than memoryLimit bytes: 4 a texel of a PNG, 10 of a JPEG.
    static ColorImage read(const std::filesystem::path& file, const std::stop_token& stop = {},
                           std::uint64_t memoryLimit = DEFAULT_MEMORY_LIMIT);

    /// Reads a PNG of any kind. Throws ImageError, also for sides above 65535 or more than 2^28 texels, and
    /// when `stop` is signalled.
    static ColorImage readPng(const std::filesystem::path& file, const std::stop_token& stop = {});
};

}  // namespace Graphics
