#pragma once

#include <octree/StoreFolder.h>

namespace PoTree {

/// A Potree store in a folder (metadata.json, hierarchy.bin, octree.bin).
class FileSystemLocation : public Octree::StoreFolder {
public:
    explicit FileSystemLocation(const std::filesystem::path& folder) : StoreFolder(folder) {}

    /// Whether the folder holds the file that describes the store.
    bool exists() const { return holdsFile("metadata.json"); }
};

}  // namespace PoTree
