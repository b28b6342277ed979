#include <render/pointcloud/PublishedNodes.h>

#include <algorithm>

namespace Render {

void PublishedNodes::buildNodeTable() {
    nodeTable.assign(nodes.size(), Texel{});
    // Parents come in the order of their children, so one sweep over each finds them all.
    std::size_t parent = 0;
    for (std::size_t child = 0; child < nodes.size(); ++child) {
        if (nodes[child].id.isRoot()) {
            continue;
        }
        const Octree::OctreeNodeId parentId = nodes[child].id.parent();
        while (parent < child && nodes[parent].id < parentId) {
            ++parent;
        }
        if (parent >= child || nodes[parent].id != parentId) {
            continue;
        }
        Texel& texel = nodeTable[parent];
        if (texel[0] == 0) {
            const std::size_t offset = child - parent;  // Below maxNodes, so two bytes hold it.
            texel[1] = static_cast<std::uint8_t>(offset >> 8);
            texel[2] = static_cast<std::uint8_t>(offset & 0xffu);
        }
        texel[0] = static_cast<std::uint8_t>(texel[0] | 1u << nodes[child].id.childIndex());
    }
}

}  // namespace Render
