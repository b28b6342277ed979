#pragma once

#include <octree/StoreFolder.h>

namespace Entwine {

/// An Entwine Point Tile store in a folder (ept.json, ept-hierarchy, ept-data).
class FileSystemLocation : public Octree::StoreFolder {
public:
    explicit FileSystemLocation(const std::filesystem::path& folder) : StoreFolder(folder) {}

    /// Whether the folder holds the file that describes the store.
    bool exists() const { return holdsFile("ept.json"); }
};

}  // namespace Entwine
