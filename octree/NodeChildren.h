#pragma once

#include <octree/OctreeNodeId.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace Octree {

/// The children of one node in ascending order: a list of at most eight ids that allocates nothing.
class NodeChildren {
public:
    NodeChildren() = default;
    /// Bit i of the mask set: child i exists. A node of the deepest representable level has none.
    NodeChildren(OctreeNodeId parent, std::uint8_t mask) {
        if (parent.level() == OctreeNodeId::MAX_REPRESENTABLE_LEVEL) {
            return;
        }
        for (std::size_t i = 0; i < 8; ++i) {
            if ((mask >> i & 1) != 0) {
                mIds[mSize++] = parent.child(i);
            }
        }
    }

    const OctreeNodeId* begin() const { return mIds.data(); }
    const OctreeNodeId* end() const { return mIds.data() + mSize; }
    std::size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    const OctreeNodeId& operator[](std::size_t i) const { return mIds[i]; }

private:
    std::array<OctreeNodeId, 8> mIds{};
    std::size_t mSize = 0;
};

}  // namespace Octree
