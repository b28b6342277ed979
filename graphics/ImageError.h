#pragma once

#include <core/File.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace Graphics {

/// An image file could not be read or written; the text names the file.
class ImageError : public std::runtime_error {
public:
    ImageError(const std::filesystem::path& file, const std::string& reason)
        : std::runtime_error("Image \"" + Core::pathToUtf8(file) + "\": " + reason) {}
};

}  // namespace Graphics
