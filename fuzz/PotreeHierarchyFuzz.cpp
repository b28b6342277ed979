// The input is the size of the first chunk in two bytes, then a hierarchy.bin.

#include <fuzz/FuzzTarget.h>
#include <octree/Octree.h>
#include <octree/StoreError.h>
#include <octree/potree/HierarchyChunk.h>

#include <tests/support/PotreeFixture.h>

#include <cstdlib>
#include <vector>

namespace {

void walk(const Octree::Octree& octree, std::size_t recordCount) {
    std::vector<Octree::OctreeNodeId> pending{Octree::OctreeNodeId()};
    std::size_t nodeCount = 0;
    while (!pending.empty()) {
        const Octree::OctreeNodeId id = pending.back();
        pending.pop_back();
        // Each node has a record of its own, however the chunks point at each other.
        if (++nodeCount > recordCount) {
            std::abort();
        }
        const Octree::NodeChildren children = octree.children(id);
        pending.insert(pending.end(), children.begin(), children.end());
        try {
            Octree::NodePointData data;
            octree.getNodePointData(id, data);
            if (data.size() != octree.pointCount(id)) {
                std::abort();
            }
        } catch (const Octree::StoreError&) {
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Support::PotreeFixture fixture;
    if (size < 2) {
        return 0;
    }
    fixture.metadata["hierarchy"]["firstChunkSize"] = data[0] + 256 * data[1];
    fixture.writeMetadata();
    fixture.folder.write("hierarchy.bin", std::string(reinterpret_cast<const char*>(data + 2), size - 2));
    try {
        walk(Octree::Octree(PoTree::FileSystemLocation(fixture.folder.path())),
             size / PoTree::HIERARCHY_RECORD_SIZE);
    } catch (const Octree::StoreError&) {
    }
    return 0;
}
