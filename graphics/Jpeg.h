#pragma once

#include <graphics/ImageFile.h>

namespace Graphics::Jpeg {

/// Reads a baseline or progressive file, grey or of three colours, as four bytes a texel: blue, green, red
/// and an alpha of 255. Damaged and truncated data are errors, as are CMYK colours, arithmetic coding and
/// more than 100 scans. An orientation noted by a camera is not applied. While it reads, a progressive file
/// takes up to 6 bytes a texel beside the destination. Throws ImageError.
void read(const std::filesystem::path& file, const AllocateRows& allocate, const std::stop_token& stop);

}  // namespace Graphics::Jpeg
