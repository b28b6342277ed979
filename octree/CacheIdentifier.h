#pragma once

#include <octree/Location.h>

#include <cstddef>
#include <functional>

namespace Octree {

/// What caches of decoded nodes are shared by: coordinates of one location differ with the unit scale.
struct CacheIdentifier {
    Location location;
    double unitScale = 1.0;

    bool operator==(const CacheIdentifier&) const = default;
};

}  // namespace Octree

template <>
struct std::hash<Octree::CacheIdentifier> {
    std::size_t operator()(const Octree::CacheIdentifier& identifier) const {
        return std::hash<Octree::Location>()(identifier.location) * 31 +
               std::hash<double>()(identifier.unitScale);
    }
};
