// The input is the hierarchy's first file, a line feed, and the file of node 1-1-0-0.

#include <fuzz/FuzzTarget.h>
#include <octree/StoreError.h>
#include <octree/entwine/EntwineTree.h>

#include <tests/octree/entwine/EptFixture.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

void walk(Entwine::EntwineTree& tree, std::size_t maxNodeCount) {
    std::vector<Octree::OctreeNodeId> pending{Octree::OctreeNodeId()};
    std::size_t nodeCount = 0;
    while (!pending.empty()) {
        const Octree::OctreeNodeId id = pending.back();
        pending.pop_back();
        // Each node has a key of its own, however the files name each other.
        if (++nodeCount > maxNodeCount) {
            std::abort();
        }
        try {
            Octree::NodeFacts facts;
            tree.nodeFacts(id, facts, {});
            for (std::size_t child = 0; child < 8; ++child) {
                if ((facts.childMask >> child & 1) != 0) {
                    pending.push_back(id.child(child));
                }
            }
            Octree::NodePointData data;
            tree.readNode(id, 1.0, data, {});
            if (data.empty() != (facts.pointCount == 0)) {
                std::abort();
            }
        } catch (const Octree::StoreError&) {
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Support::EptFixture fixture;
    const std::string text = Fuzz::textOf(data, size);
    const std::size_t end = std::min(text.find('\n'), size);
    fixture.folder.write(Support::EptFixture::hierarchyFile("0-0-0-0"), text.substr(0, end));
    fixture.folder.write(Support::EptFixture::hierarchyFile("1-1-0-0"),
                         end < size ? text.substr(end + 1) : std::string());
    try {
        Entwine::EntwineTree tree{Entwine::FileSystemLocation(fixture.folder.path())};
        walk(tree, size + 1);
    } catch (const Octree::StoreError&) {
    }
    return 0;
}
