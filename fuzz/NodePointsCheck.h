#pragma once

#include <fuzz/FuzzTarget.h>
#include <octree/NodePointData.h>

#include <cmath>

namespace Fuzz {

/// What any points read must be: positions not farther than that from the reference, normals of length 1 or
/// 0.
inline void requireSound(const Octree::NodePointData& points, double reach) {
    for (const Math::Point<double, 3>& position : points.positions()) {
        for (const double value : position.values) {
            require(std::abs(value) <= reach);
        }
    }
    for (const Math::Point<float, 3>& normal : points.normals()) {
        require(normal.length() <= 1.001f);
    }
}

}  // namespace Fuzz
