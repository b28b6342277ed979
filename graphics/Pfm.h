#pragma once

#include <graphics/ImageFile.h>

namespace Graphics::Pfm {

/// Reads a portable float map of one channel ("Pf"), of either byte order, as one float a texel. A file
/// longer or shorter than its header says is an error, as is a scale other than 1 and -1, on whose meaning
/// programs disagree. Throws ImageError,
/// also when stopped.
void read(const std::filesystem::path& file, const AllocateRows& allocate, const std::stop_token& stop);

}  // namespace Graphics::Pfm
