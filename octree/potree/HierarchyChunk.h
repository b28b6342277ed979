#pragma once

#include <octree/potree/FileLoader.h>
#include <octree/potree/Node.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stop_token>
#include <vector>

namespace PoTree {

/// Bytes of one record in hierarchy.bin.
constexpr std::size_t HIERARCHY_RECORD_SIZE = 22;
/// Bytes of memory that a node takes, its places in lists and tables included.
constexpr std::size_t HIERARCHY_NODE_SIZE = sizeof(Node) + 2 * sizeof(std::shared_ptr<Node>) + 64;

/// Whether a chunk may name nodes that it has no records of.
enum class MissingRecords { Allowed, Refused };

/// Appends the nodes of one chunk of hierarchy.bin in breadth-first order, beginning with root, whose own
/// record comes first and is copied into it. The bytes are rounded down to whole records; a node whose record
/// is missing keeps the fields of a new one. Proxies and nodes of the deepest level are not expanded. False
/// when stopped; nodes is then unspecified. Throws StoreError naming root's node, before any node is made,
/// when the bytes are not to be had, for refused missing records, and for more nodes than the loader's budget
/// holds.
bool loadHierarchyChunk(const FileLoader& loader, const std::shared_ptr<Node>& root, std::uint64_t byteOffset,
                        std::uint64_t byteSize, const std::stop_token& stop,
                        std::vector<std::shared_ptr<Node>>& nodes,
                        MissingRecords missing = MissingRecords::Allowed);

}  // namespace PoTree
