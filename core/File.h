#pragma once

#include <core/Export.h>

#include <filesystem>
#include <string>

namespace Core {

/// The whole file as bytes. Throws std::system_error, whose text names the file, when it cannot be read.
LUMARO_API std::string readLocalFile(const std::filesystem::path& file);

/// The path as UTF-8 with forward slashes, for messages; never fails, unlike path::string() on Windows.
LUMARO_API std::string pathToUtf8(const std::filesystem::path& path);

}  // namespace Core
