#pragma once

#include <math/NBoundingBox.h>
#include <octree/OctreeNodeId.h>

#include <cstddef>

namespace Octree {

/// The part of a node's box that belongs to its child 4x + 2y + z.
inline Math::NBoundingBox<double, 3> childCube(const Math::NBoundingBox<double, 3>& box, std::size_t child) {
    Math::NBoundingBox<double, 3> result = box;
    for (int axis = 0; axis < 3; ++axis) {
        const double center = (box.min[axis] + box.max[axis]) * 0.5;
        const bool upper = (child >> (2 - axis) & 1) != 0;
        (upper ? result.min : result.max)[axis] = center;
    }
    return result;
}

/// The part of the root's box that belongs to a node.
inline Math::NBoundingBox<double, 3> nodeCube(Math::NBoundingBox<double, 3> box, OctreeNodeId id) {
    for (std::size_t shift = 3 * id.level(); shift > 0;) {
        shift -= 3;
        box = childCube(box, id.code() >> shift & 7);
    }
    return box;
}

}  // namespace Octree
