#pragma once

#include <core/Export.h>

#include <filesystem>
#include <string>

namespace Octree {

/// The folder of a store on disk: what the locations of all kinds of stores are made of.
class LUMARO_API StoreFolder {
public:
    const std::filesystem::path& folder() const { return mFolder; }
    std::string toString() const;

    bool operator==(const StoreFolder&) const = default;

protected:
    /// Spellings of one path ("a/b", "a/./b/") are the same folder; nothing is looked up on disk.
    explicit StoreFolder(const std::filesystem::path& folder);
    bool holdsFile(const char* name) const;

private:
    std::filesystem::path mFolder;
};

}  // namespace Octree
