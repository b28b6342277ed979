#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

/// Internal: the read-only table of the shader sources that the library carries inside itself. Made on first
/// use; every function may be called on any thread.
namespace Render::ShaderLibrary {

/// One entry of the table. A directory has no bytes at all: data is null.
struct EmbeddedFile {
    std::string_view path;
    const unsigned char* data;
    size_t size;
};

/// The generated entries.
std::span<const EmbeddedFile> embeddedFiles();

/// `path` without leading and trailing slashes, every run of slashes as one. Backslashes stay.
std::string normalizedPath(std::string_view path);

/// The entry of a path in any spelling that normalizedPath() evens out, or null. Case-sensitive.
const EmbeddedFile* find(const std::string& path);

/// The content of an entry. Throws std::system_error (no such file or directory, naming `path`) when there is
/// none or it is a directory.
std::string_view content(const std::string& path);

}  // namespace Render::ShaderLibrary
