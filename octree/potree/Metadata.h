#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <octree/AttributeInfo.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace PoTree {

/// What a store's metadata.json says, checked: every number is finite, scales are positive, boxes are not
/// inverted, and the bounding box can be reached on the integer grid.
struct Metadata {
    /// Throws StoreError naming the file and the key that is missing or wrong.
    static Metadata read(const std::filesystem::path& file);
    static Metadata parse(const std::string& text, const std::filesystem::path& file);

    /// Bytes a point takes in a decompressed chunk: 16 for "position", 8 for "rgb", else as declared.
    static std::size_t encodedSize(const Octree::AttributeInfo& attribute);

    /// nullptr when the store has no such attribute of that declared size.
    const Octree::AttributeInfo* find(const std::string& wanted, std::size_t size) const;

    std::string name;
    std::string encoding;
    std::uint64_t pointCount = 0;
    std::uint64_t firstChunkSize = 0;
    double spacing = 0.0;
    /// Coordinate = integer * scale + offset.
    Math::Point<double, 3> scale;
    Math::Point<double, 3> offset;
    /// The root's box.
    Math::NBoundingBox<double, 3> boundingBox;
    /// Around the points as "position" has it; the root's box when it does not say.
    Math::NBoundingBox<double, 3> tightBox;
    /// Key "nodeVisibility": the hierarchy's records say which nodes are visible or hidden as a whole.
    bool hasNodeVisibility = false;
    std::vector<Octree::AttributeInfo> attributes;
    /// Sum of the attributes' encoded sizes; at least 16.
    std::size_t bytesPerPoint = 0;
};

}  // namespace PoTree
