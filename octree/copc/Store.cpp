#include <octree/copc/ChunkReader.h>
#include <octree/copc/Head.h>
#include <octree/copc/HierarchyReader.h>
#include <octree/copc/Store.h>

#include <memory>

namespace Copc {

namespace {

Tiles::TileStore open(const FileLocation& location, const std::stop_token& stop,
                      const Octree::Limits& limits) {
    const auto file = std::make_shared<const Octree::RandomAccessFile>(location.file());
    Tiles::TileStore store;
    store.budget = std::make_shared<Octree::MemoryBudget>(limits);
    const auto head = std::make_shared<const Head>(*file, *store.budget, stop);
    store.description = std::make_unique<const Tiles::StoreDescription>(head->description());
    store.reader = std::make_unique<const ChunkReader>(file, head, store.budget);
    store.hierarchyPlace = location.file();
    store.hasRanges = true;
    store.rootPage = head->rootPage();
    store.readPage =
        [reader = std::make_shared<HierarchyReader>(file, head->las().header().pointCount, store.budget)](
            Octree::OctreeNodeId root, const Octree::ByteRange& range, const std::stop_token& stopPage) {
            return reader->read(root, range, stopPage);
        };
    return store;
}

}  // namespace

Store::Store(const FileLocation& location, const std::stop_token& stop, const Octree::Limits& limits)
    : TileTree(open(location, stop, limits), stop) {}

Store::~Store() = default;

}  // namespace Copc
