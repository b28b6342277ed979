#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>

namespace Graphics::Png {

enum class Format {
    Bgra8,        ///< Four bytes a texel, sRGB.
    LinearGray16  ///< One uint16_t a texel.
};

/// Writes through a temporary file beside the target, which it then replaces. strideBytes is that of the
/// texels. Throws ImageError.
void write(const std::filesystem::path& file, Format format, size_t width, size_t height, size_t strideBytes,
           const void* texels);

/// Where read() shall put the rows.
struct Destination {
    void* texels;
    size_t strideBytes;
};

/// Reads a file of any PNG kind, converted to the format. allocate(width, height) is called once the header
/// was read and its size found acceptable. Throws ImageError.
void read(const std::filesystem::path& file, Format format,
          const std::function<Destination(size_t width, size_t height)>& allocate);

}  // namespace Graphics::Png
