#pragma once

#include <core/Export.h>
#include <graphics/Image.h>

#include <cfloat>
#include <cstdint>
#include <filesystem>
#include <stop_token>

namespace Graphics {

/// Texels of one 32-bit float.
class LUMARO_API DepthImage : public Image {
public:
    /// In place of a distance that is unknown.
    static constexpr float NOT_MEASURED = FLT_MAX;

    DepthImage() = default;

    /// All zero.
    DepthImage(size_t width, size_t height) { resize(width, height); }

    void fill(float depth);

    /// x to the right, y downwards. Both throw std::out_of_range outside the image.
    float pixel(size_t x, size_t y) const;
    void setPixel(size_t x, size_t y, float depth);

    /// Writes a 16-bit grey file of linear values: 0 … 1 becomes 0 … 65535, rounded; what lies outside is
    /// clamped and NaN becomes 0. The file appears complete or not at all. Throws ImageError.
    void writePng(const std::filesystem::path& file) const;

    /// Reads the same mapping back; other PNG files become their linear luminance. Limits and errors as
    /// ColorImage::readPng.
    static DepthImage readPng(const std::filesystem::path& file);

    /// Reads distances, exactly: a PNG of one 16-bit grey channel in millimetres, whatever gamma it declares,
    /// or a portable float map ("Pf") in metres; told apart by their contents. Each is multiplied by
    /// unitsPerMeter; what is 0, negative or not finite becomes NOT_MEASURED. Throws ImageError, also for
    /// other kinds of files, when `stop` is signalled and for more than memoryLimit bytes, 4 a texel, and
    /// std::invalid_argument unless unitsPerMeter is finite and above 0.
    static DepthImage readDistances(const std::filesystem::path& file, double unitsPerMeter = 1.0,
                                    const std::stop_token& stop = {},
                                    std::uint64_t memoryLimit = DEFAULT_MEMORY_LIMIT);
};

}  // namespace Graphics
