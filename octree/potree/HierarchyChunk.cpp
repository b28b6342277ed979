#include <octree/ChildCube.h>
#include <octree/StoreError.h>
#include <octree/potree/HierarchyChunk.h>

#include <bit>
#include <cstring>
#include <deque>
#include <exception>
#include <string>
#include <utility>

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

bool hasChildren(NodeType type, std::size_t level) {
    return type != NodeType::Proxy && level < Octree::OctreeNodeId::MAX_REPRESENTABLE_LEVEL;
}

/// The nodes of one chunk: few allocations, which a chunk that is given up frees fast.
using Storage = std::shared_ptr<std::deque<Node>>;

void appendChildren(const Node& node, const Storage& storage, std::vector<std::shared_ptr<Node>>& nodes) {
    for (std::size_t i = 0; i < 8; ++i) {
        if ((node.childMask >> i & 1) != 0) {
            Node& child = storage->emplace_back(node.id.child(i), Octree::childCube(node.boundingBox, i));
            nodes.emplace_back(storage, &child);
        }
    }
}

class ChunkLoader {
public:
    ChunkLoader(const FileLoader& loader, std::shared_ptr<Node> root, std::uint64_t byteOffset,
                std::uint64_t byteSize)
        : mLoader(loader),
          mRoot(std::move(root)),
          mByteOffset(byteOffset),
          mRecordCount(byteSize / HIERARCHY_RECORD_SIZE) {}

    bool load(const std::stop_token& stop, MissingRecords missing,
              std::vector<std::shared_ptr<Node>>& nodes) {
        if (mRecordCount == 0) {
            return true;
        }
        if (!fetch(stop)) {
            return false;
        }
        std::uint64_t named = 0;
        if (!countNodes(stop, named)) {
            return false;
        }
        if (named > mRecordCount && missing == MissingRecords::Refused) {
            fail("its hierarchy chunk is cut short: it names " + std::to_string(named) + " nodes and has " +
                 std::to_string(mRecordCount) + " records");
        }
        mLoader.budget().require(mBytes.size() + named * HIERARCHY_NODE_SIZE, mLoader.hierarchyFile(),
                                 mRoot->id.name());
        nodes.reserve(nodes.size() + static_cast<std::size_t>(named));
        return makeNodes(stop, nodes);
    }

private:
    /// Nodes made between two looks at the stop token.
    static constexpr std::size_t STOP_STEP = 4096;

    [[noreturn]] void fail(const std::string& problem) const {
        throw Octree::StoreError(mLoader.hierarchyFile(), mRoot->id.name(), problem);
    }

    bool fetch(const std::stop_token& stop) {
        try {
            return mLoader.fetchHierarchyChunk(mByteOffset, mRecordCount * HIERARCHY_RECORD_SIZE, mBytes,
                                               stop);
        } catch (const Octree::StoreError&) {
            std::throw_with_nested(Octree::StoreError(mLoader.hierarchyFile(), mRoot->id.name(),
                                                      "its hierarchy chunk cannot be read"));
        }
    }

    const char* recordAt(std::size_t index) const { return mBytes.data() + index * HIERARCHY_RECORD_SIZE; }

    // Walks the records as makeNodes does, level by level, but makes nothing. False when stopped.
    bool countNodes(const std::stop_token& stop, std::uint64_t& named) const {
        named = 1;
        std::uint64_t levelEnd = 1;
        std::size_t level = mRoot->id.level();
        for (std::uint64_t k = 0; k < mRecordCount && k < named; ++k) {
            if (k % STOP_STEP == 0 && stop.stop_requested()) {
                return false;
            }
            if (k == levelEnd) {
                ++level;
                levelEnd = named;
            }
            const auto type = static_cast<NodeType>(readAt<std::uint8_t>(recordAt(k)) & 15);
            if (hasChildren(type, level)) {
                named += static_cast<unsigned>(std::popcount(readAt<std::uint8_t>(recordAt(k) + 1)));
            }
        }
        return true;
    }

    bool makeNodes(const std::stop_token& stop, std::vector<std::shared_ptr<Node>>& nodes) const {
        const auto storage = std::make_shared<std::deque<Node>>();
        const std::size_t first = nodes.size();
        nodes.push_back(mRoot);
        for (std::size_t k = 0; k < mRecordCount && first + k < nodes.size(); ++k) {
            if (k % STOP_STEP == 0 && stop.stop_requested()) {
                return false;
            }
            const std::shared_ptr<Node> node = nodes[first + k];
            readRecord(recordAt(k), *node);
            if (hasChildren(node->type, node->id.level())) {
                appendChildren(*node, storage, nodes);
            }
        }
        return true;
    }

    const FileLoader& mLoader;
    const std::shared_ptr<Node> mRoot;
    const std::uint64_t mByteOffset;
    const std::uint64_t mRecordCount;
    std::string mBytes;
};

}  // namespace

bool loadHierarchyChunk(const FileLoader& loader, const std::shared_ptr<Node>& root, std::uint64_t byteOffset,
                        std::uint64_t byteSize, const std::stop_token& stop,
                        std::vector<std::shared_ptr<Node>>& nodes, MissingRecords missing) {
    return ChunkLoader(loader, root, byteOffset, byteSize).load(stop, missing, nodes);
}

}  // namespace PoTree
