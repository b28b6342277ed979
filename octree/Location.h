#pragma once

#include <core/Export.h>
#include <octree/copc/FileLocation.h>
#include <octree/entwine/FileSystemLocation.h>
#include <octree/potree/FileSystemLocation.h>

#include <cstddef>
#include <filesystem>
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
    Location(const Entwine::FileSystemLocation& location) : mPlace(location) {}
    Location(const Copc::FileLocation& location) : mPlace(location) {}

    /// Finds out what a path is: a folder with a metadata.json (Potree 2.0) or an ept.json (Entwine), or one
    /// of these files itself, or a COPC file, by its content. Throws StoreError naming the path and what was
    /// looked for, or the kind of store that it is where that kind is known but not read (Potree 1).
    static Location fromPath(const std::filesystem::path& path);

    /// Whether a store of that kind is there now.
    bool exists() const;
    /// For messages and lists; empty for no location.
    std::string toString() const;
    /// The store's folder, or the one that a COPC file lies in; empty for no location.
    std::filesystem::path folder() const;
    /// The store itself: a folder or a COPC file; empty for no location.
    std::filesystem::path path() const;
    /// nullptr when this is not a Potree store.
    const PoTree::FileSystemLocation* potree() const {
        return std::get_if<PoTree::FileSystemLocation>(&mPlace);
    }
    /// nullptr when this is not an Entwine store.
    const Entwine::FileSystemLocation* entwine() const {
        return std::get_if<Entwine::FileSystemLocation>(&mPlace);
    }
    /// nullptr when this is not a COPC file.
    const Copc::FileLocation* copc() const { return std::get_if<Copc::FileLocation>(&mPlace); }

    bool operator==(const Location&) const = default;

private:
    std::variant<std::monostate, PoTree::FileSystemLocation, Entwine::FileSystemLocation, Copc::FileLocation>
        mPlace;
};

}  // namespace Octree

template <>
struct std::hash<Octree::Location> {
    std::size_t operator()(const Octree::Location& location) const {
        return std::hash<std::string>()(location.toString());
    }
};
