#pragma once

#include <octree/Limits.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace Tool {

/// "512M", "2G" or so many bytes. Throws UsageError.
std::uint64_t parseBytes(const std::string& text);

/// What files may make the program take, each for itself; said once, before anything is opened. Unless it is,
/// the limits are those of the library.
void setMemoryLimit(std::uint64_t bytes);

Octree::Limits storeLimits();
std::uint64_t meshMemoryLimit();
std::uint64_t imageMemoryLimit();
/// Throws std::runtime_error when the polygon in the file would take more.
void requireMemoryForPolygon(const std::filesystem::path& file, std::uint64_t fileSize);

}  // namespace Tool
