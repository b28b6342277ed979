#include <octree/NodeKey.h>
#include <octree/RandomAccessFile.h>
#include <octree/StoreError.h>
#include <octree/entwine/TileFiles.h>

#include <exception>
#include <memory>
#include <string>
#include <utility>

namespace Entwine {

using Octree::NodeKey;

std::unique_ptr<std::byte[]> readTileFile(const std::filesystem::path& path, Octree::OctreeNodeId id,
                                          std::uint64_t maxSize, const Octree::MemoryBudget& budget,
                                          std::size_t& size, const std::stop_token& stop) {
    try {
        const Octree::RandomAccessFile file(path);
        if (file.size() > maxSize) {
            throw Octree::StoreError(
                path, "is larger than the node's tile may be: " + std::to_string(file.size()) + " of " +
                          std::to_string(maxSize) + " bytes");
        }
        budget.require(file.size(), path);
        size = static_cast<std::size_t>(file.size());
        auto bytes = std::make_unique_for_overwrite<std::byte[]>(size);
        const bool isRead = file.readAll(reinterpret_cast<char*>(bytes.get()), stop);
        return isRead ? std::move(bytes) : nullptr;
    } catch (const Octree::StoreError&) {
        std::throw_with_nested(Octree::StoreError(path, NodeKey(id).text(), "its points cannot be read"));
    }
}

std::unique_ptr<Tiles::TileReader> makeTileReader(const Metadata& metadata,
                                                  const std::filesystem::path& folder,
                                                  const Octree::MemoryBudget& budget) {
    if (metadata.dataType == "binary" || metadata.dataType == "zstandard") {
        return makeRecordTileReader(metadata, folder, budget);
    }
    if (metadata.dataType == "laszip") {
        return makeLaszipTileReader(metadata, folder, budget);
    }
    throw Octree::StoreError(folder / "ept.json",
                             "dataType \"" + metadata.dataType +
                                 "\" is not supported, only \"binary\", \"laszip\" and \"zstandard\" are");
}

}  // namespace Entwine
