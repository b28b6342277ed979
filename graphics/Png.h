#pragma once

#include <graphics/ImageFile.h>

namespace Graphics::Png {

enum class Format {
    Bgra8,        ///< Four bytes a texel, sRGB.
    LinearGray16  ///< One uint16_t a texel.
};

/// Writes through a temporary file beside the target, which it then replaces. strideBytes is that of the
/// texels. Throws ImageError.
void write(const std::filesystem::path& file, Format format, size_t width, size_t height, size_t strideBytes,
           const void* texels);

/// Reads a file of any PNG kind as Bgra8. Throws ImageError, also when stopped.
void readBgra8(const std::filesystem::path& file, const AllocateRows& allocate, const std::stop_token& stop);

/// Reads a file of any PNG kind as LinearGray16. Throws ImageError.
void readLinearGray16(const std::filesystem::path& file, const AllocateRows& allocate);

/// Reads a file of one 16-bit grey channel, and no other, as one uint16_t a texel: the very numbers in the
/// file, whatever gamma it declares. Throws ImageError, also when stopped.
void readGray16(const std::filesystem::path& file, const AllocateRows& allocate, const std::stop_token& stop);

}  // namespace Graphics::Png
