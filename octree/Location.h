#pragma once

#include <core/Export.h>
#include <octree/potree/FileSystemLocation.h>

#include <cstddef>
#include <functional>
#include <string>
#include <variant>

namespace Octree {

/// Where a store lies and of which kind it is. A value: compared, hashed and copied freely.
class LUMARO_API Location {
public:
    /// No location; a cloud from a host's own NodeSource may have none.
    Location() = default;
    Location(const PoTree::FileSystemLocation& location) : mPlace(location) {}

    /// Whether a store of that kind is there now.
    bool exists() const;
    /// For messages and lists; empty for no location.
    std::string toString() const;
    /// nullptr when this is not a Potree store.
    const PoTree::FileSystemLocation* potree() const {
        return std::get_if<PoTree::FileSystemLocation>(&mPlace);
    }

    bool operator==(const Location&) const = default;

private:
    std::variant<std::monostate, PoTree::FileSystemLocation> mPlace;
};

}  // namespace Octree

template <>
struct std::hash<Octree::Location> {
    std::size_t operator()(const Octree::Location& location) const {
        return std::hash<std::string>()(location.toString());
    }
};
