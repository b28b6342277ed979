#pragma once

#include <octree/Location.h>

#include <cstddef>
#include <functional>
#include <vector>

namespace Octree {

/// What caches of decoded nodes are shared by: coordinates of one location differ with the unit scale, and
/// points come, go and change with external attributes.
struct CacheIdentifier {
    Location location;
    double unitScale = 1.0;
    /// In the order they were added.
    std::vector<Location> externalAttributes = {};

    bool operator==(const CacheIdentifier&) const = default;
};

}  // namespace Octree

template <>
struct std::hash<Octree::CacheIdentifier> {
    std::size_t operator()(const Octree::CacheIdentifier& identifier) const {
        std::size_t result = std::hash<Octree::Location>()(identifier.location) * 31 +
                             std::hash<double>()(identifier.unitScale);
        for (const Octree::Location& external : identifier.externalAttributes) {
            result = result * 31 + std::hash<Octree::Location>()(external);
        }
        return result;
    }
};
