#pragma once

#include <core/Export.h>

#include <filesystem>
#include <string>

namespace PoTree {

/// A Potree store in a folder (metadata.json, hierarchy.bin, octree.bin).
class LUMARO_API FileSystemLocation {
public:
    /// Spellings of one path ("a/b", "a/./b/") are the same location; nothing is looked up on disk.
    explicit FileSystemLocation(const std::filesystem::path& folder);

    const std::filesystem::path& folder() const { return mFolder; }
    /// Whether the folder holds a metadata.json.
    bool exists() const;
    std::string toString() const;

    bool operator==(const FileSystemLocation&) const = default;

private:
    std::filesystem::path mFolder;
};

}  // namespace PoTree
