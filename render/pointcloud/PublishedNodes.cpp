#include <render/pointcloud/PublishedNodes.h>

namespace Render {

namespace {

template <class IdAt>
void fillNodeTable(std::vector<PublishedNodes::Texel>& table, std::size_t count, IdAt idAt) {
    table.assign(count, PublishedNodes::Texel{});
    // Parents come in the order of their children, so one sweep over each finds them all.
    std::size_t parent = 0;
    for (std::size_t child = 0; child < count; ++child) {
        const Octree::OctreeNodeId id = idAt(child);
        if (id.isRoot()) {
            continue;
        }
        const Octree::OctreeNodeId parentId = id.parent();
        while (parent < child && idAt(parent) < parentId) {
            ++parent;
        }
        if (parent >= child || idAt(parent) != parentId) {
            continue;
        }
        PublishedNodes::Texel& texel = table[parent];
        if (texel[0] == 0) {
            const std::size_t offset = child - parent;  // Below maxNodes, so two bytes hold it.
            texel[1] = static_cast<std::uint8_t>(offset >> 8);
            texel[2] = static_cast<std::uint8_t>(offset & 0xffu);
        }
        texel[0] = static_cast<std::uint8_t>(texel[0] | 1u << id.childIndex());
    }
}

}  // namespace

void PublishedNodes::dropVertices() {
    if (hasVertices) {
        for (PublishedNode& node : nodes) {
            node.vertices.reset();
        }
        hasVertices = false;
    }
}

void PublishedNodes::buildNodeTable() {
    fillNodeTable(nodeTable, nodes.size(), [this](std::size_t i) { return nodes[i].id; });
}

std::vector<PublishedNodes::Texel> PublishedNodes::nodeTableOf(
    const std::vector<std::size_t>& indices) const {
    std::vector<Texel> table;
    fillNodeTable(table, indices.size(), [&](std::size_t i) { return nodes[indices[i]].id; });
    return table;
}

}  // namespace Render
