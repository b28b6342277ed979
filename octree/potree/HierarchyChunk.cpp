#include <octree/ChildCube.h>
#include <octree/potree/HierarchyChunk.h>

#include <bit>
#include <cstring>
#include <string>

namespace PoTree {

namespace {

static_assert(std::endian::native == std::endian::little, "Records are read in place");

template <class T>
T readAt(const char* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

void readRecord(const char* record, Node& node) {
    const auto kind = readAt<std::uint8_t>(record);
    node.type = static_cast<NodeType>(kind & 15);
    node.visibility = static_cast<VisibilityType>(kind >> 4);
    node.childMask = readAt<std::uint8_t>(record + 1);
    node.pointCount = readAt<std::uint32_t>(record + 2);
    node.byteOffset = readAt<std::uint64_t>(record + 6);
    node.byteSize = readAt<std::uint64_t>(record + 14);
}

void appendChildren(const Node& node, std::vector<std::shared_ptr<Node>>& nodes) {
    for (std::size_t i = 0; i < 8; ++i) {
        if ((node.childMask >> i & 1) != 0) {
            nodes.push_back(std::make_shared<Node>(node.id.child(i), Octree::childCube(node.boundingBox, i)));
        }
    }
}

}  // namespace

bool loadHierarchyChunk(const FileLoader& loader, const std::shared_ptr<Node>& root, std::uint64_t byteOffset,
                        std::uint64_t byteSize, const std::stop_token& stop,
                        std::vector<std::shared_ptr<Node>>& nodes) {
    const std::uint64_t recordCount = byteSize / HIERARCHY_RECORD_SIZE;
    if (recordCount == 0) {
        return true;
    }
    std::string bytes;
    if (!loader.fetchHierarchyChunk(byteOffset, recordCount * HIERARCHY_RECORD_SIZE, bytes, stop)) {
        return false;
    }
    const std::size_t first = nodes.size();
    nodes.push_back(root);
    for (std::size_t k = 0; k < recordCount && first + k < nodes.size(); ++k) {
        const std::shared_ptr<Node> node = nodes[first + k];
        readRecord(bytes.data() + k * HIERARCHY_RECORD_SIZE, *node);
        if (!node->isProxy() && node->id.level() < Octree::OctreeNodeId::MAX_REPRESENTABLE_LEVEL) {
            appendChildren(*node, nodes);
        }
    }
    return true;
}

}  // namespace PoTree
