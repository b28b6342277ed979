#pragma once

#include <cstdint>

namespace Octree {

/// What the files of a store may cost, whatever they say.
struct Limits {
    /// In bytes. Bounds what the store keeps while it is open (its description and as much of its hierarchy
    /// as was asked for, some 200 bytes a node) together with what reading one node takes; several threads
    /// may read at once. What would go beyond is a StoreError before it is allocated. A store of 10^10 points
    /// in a million nodes keeps about 200 MB.
    std::uint64_t memory = std::uint64_t{2} << 30;
};

}  // namespace Octree
