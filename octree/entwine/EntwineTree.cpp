#include <octree/NodeKey.h>
#include <octree/StoreError.h>
#include <octree/entwine/EntwineTree.h>
#include <octree/entwine/HierarchyFile.h>
#include <octree/entwine/Metadata.h>
#include <octree/entwine/TileFiles.h>

#include <memory>
#include <system_error>
#include <utility>

namespace Entwine {

namespace {

using Octree::NodeKey;
using Octree::StoreError;

Metadata readMetadata(const FileSystemLocation& location, Octree::MemoryBudget& budget,
                      const std::stop_token& stop) {
    std::error_code ignored;
    const auto status = std::filesystem::status(location.folder(), ignored);
    if (!std::filesystem::exists(status)) {
        throw StoreError(location.folder(), "there is no such folder");
    }
    if (!std::filesystem::is_directory(status)) {
        throw StoreError(location.folder(), "is not a folder");
    }
    return Metadata::read(location.folder() / "ept.json", budget, stop);
}

Tiles::TileStore open(const FileSystemLocation& location, const std::stop_token& stop,
                      const Octree::Limits& limits) {
    Tiles::TileStore store;
    store.budget = std::make_shared<Octree::MemoryBudget>(limits);
    auto metadata = std::make_unique<const Metadata>(readMetadata(location, *store.budget, stop));
    store.reader = makeTileReader(*metadata, location.folder(), *store.budget);
    store.description = std::move(metadata);
    store.hierarchyPlace = location.folder() / "ept-hierarchy";
    store.readPage = [folder = store.hierarchyPlace, budget = store.budget](Octree::OctreeNodeId root,
                                                                            const Octree::ByteRange&,
                                                                            const std::stop_token& stopPage) {
        return readHierarchyFile(folder / (NodeKey(root).text() + ".json"), root, *budget, stopPage);
    };
    return store;
}

}  // namespace

EntwineTree::EntwineTree(const FileSystemLocation& location, const std::stop_token& stop,
                         const Octree::Limits& limits)
    : Tiles::TileTree(open(location, stop, limits), stop) {}

EntwineTree::~EntwineTree() = default;

}  // namespace Entwine
