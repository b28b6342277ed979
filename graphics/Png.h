#pragma once

#include <graphics/ImageFile.h>

#include <cstdint>

namespace Graphics::Png {

/// Four bytes a texel, sRGB. Both write through a temporary file beside the target, which it then replaces,
/// and throw ImageError; this one also when stopped.
void writeBgra8(const std::filesystem::path& file, size_t width, size_t height, size_t strideBytes,
                const uint8_t* texels, const std::stop_token& stop);

/// One number a texel, 65535 for 1, rows without padding.
void writeLinearGray16(const std::filesystem::path& file, size_t width, size_t height,
                       const uint16_t* texels);

/// Reads a file of any PNG kind as the first of these. Throws ImageError, also when stopped.
void readBgra8(const std::filesystem::path& file, const AllocateRows& allocate, const std::stop_token& stop);

/// Reads a file of any PNG kind as the second. Throws ImageError.
void readLinearGray16(const std::filesystem::path& file, const AllocateRows& allocate);

/// Reads a file of one 16-bit grey channel, and no other, as one uint16_t a texel: the very numbers in the
/// file, whatever gamma it declares. Throws ImageError, also when stopped.
void readGray16(const std::filesystem::path& file, const AllocateRows& allocate, const std::stop_token& stop);

}  // namespace Graphics::Png
