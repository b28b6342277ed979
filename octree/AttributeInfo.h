#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Octree {

/// One attribute of a store's points, as the store describes it.
struct AttributeInfo {
    std::string name;
    std::string description;
    /// "uint16", "double" and the like; empty when the store does not say.
    std::string type;
    /// Bytes per point before any encoding.
    std::size_t size = 0;
    std::size_t elementCount = 1;
    /// One value an element, empty when the store does not say.
    std::vector<double> min, max;
};

}  // namespace Octree
