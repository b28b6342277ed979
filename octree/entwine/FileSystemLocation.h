#pragma once

#include <core/Export.h>

#include <filesystem>
#include <string>

namespace Entwine {

/// An Entwine Point Tile store in a folder (ept.json, ept-hierarchy, ept-data).
class LUMARO_API FileSystemLocation {
public:
    /// Spellings of one path ("a/b", "a/./b/") are the same location; nothing is looked up on disk.
    explicit FileSystemLocation(const std::filesystem::path& folder);

    const std::filesystem::path& folder() const { return mFolder; }
    /// Whether the folder holds an ept.json.
    bool exists() const;
    std::string toString() const;

    bool operator==(const FileSystemLocation&) const = default;

private:
    std::filesystem::path mFolder;
};

}  // namespace Entwine
