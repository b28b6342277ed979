#pragma once

#include <core/Export.h>

#include <filesystem>
#include <string>

namespace Copc {

/// A COPC file: one LAZ file whose points are ordered as an octree (COPC 1.0 specification).
class LUMARO_API FileLocation {
public:
    /// Spellings of one path ("a/b", "a/./b") are the same file; nothing is looked up on disk.
    explicit FileLocation(const std::filesystem::path& file) : mFile(file.lexically_normal()) {}

    const std::filesystem::path& file() const { return mFile; }
    std::string toString() const;
    /// Whether the file is there and begins as a COPC file does.
    bool exists() const;

    bool operator==(const FileLocation&) const = default;

private:
    std::filesystem::path mFile;
};

}  // namespace Copc
