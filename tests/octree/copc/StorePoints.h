#pragma once

#include <octree/Octree.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace Support {

/// Steps of a grid, colour, intensity, class, source.
using StorePoint = std::array<std::int64_t, 9>;

/// All points of a store in order. Throws StoreError.
inline std::vector<StorePoint> sortedPoints(const Octree::Octree& octree, const Octree::PositionGrid& grid) {
    std::vector<StorePoint> points;
    std::vector<Octree::OctreeNodeId> pending{Octree::OctreeNodeId()};
    while (!pending.empty()) {
        const Octree::OctreeNodeId id = pending.back();
        pending.pop_back();
        const auto children = octree.children(id);
        pending.insert(pending.end(), children.begin(), children.end());
        Octree::NodePointData data;
        octree.getNodePointData(id, data);
        for (std::size_t i = 0; i < data.size(); ++i) {
            const Math::Point<double, 3> place = data.position(i) + octree.referencePosition();
            const Math::Color color = data.has(Octree::Attribute::Color) ? data.color(i) : Math::Color();
            points.push_back({grid.steps(place[0], 0), grid.steps(place[1], 1), grid.steps(place[2], 2),
                              color.r(), color.g(), color.b(), data.intensity(i), data.classification(i),
                              data.scanIndex(i)});
        }
    }
    std::sort(points.begin(), points.end());
    return points;
}

}  // namespace Support
