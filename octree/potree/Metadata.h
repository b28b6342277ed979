#pragma once

#include <math/NBoundingBox.h>
#include <math/Point.h>
#include <octree/AttributeInfo.h>
#include <octree/JsonValue.h>
#include <octree/MemoryBudget.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stop_token>
#include <string>
#include <vector>

namespace PoTree {

/// What a store is opened for.
enum class StoreRole {
    /// Its points are a cloud's: there must be positions.
    Cloud,
    /// It adds columns to the points of another store.
    ExternalAttributes
};

/// How a node's points lie in its chunk.
enum class ChunkLayout {
    /// One column after another, compressed; positions and colours are interleaved bit by bit.
    BrotliColumns,
    /// One point after another, each attribute as declared.
    Records
};

/// What a store's metadata.json says, checked: every number is finite, scales are positive, boxes are not
/// inverted, the bounding box of a cloud is a cube, and it can be reached on the integer grid.
struct Metadata {
    /// Throws StoreError naming the file and the key that is missing or wrong, OpenStopped when stopped.
    static Metadata read(const std::filesystem::path& file, StoreRole role, Octree::MemoryBudget& budget,
                         const std::stop_token& stop = {});
    static Metadata parse(const std::string& text, const std::filesystem::path& file,
                          StoreRole role = StoreRole::Cloud);

    /// Bytes a point takes in a chunk, decompressed: as declared, but in Brotli columns 16 for "position" and
    /// 8 for "rgb".
    std::size_t chunkSize(const Octree::AttributeInfo& attribute) const;

    /// nullptr when the store has no such attribute of that declared size.
    const Octree::AttributeInfo* find(const std::string& wanted, std::size_t size) const;

    std::string name;
    std::string encoding;
    ChunkLayout layout = ChunkLayout::BrotliColumns;
    std::uint64_t pointCount = 0;
    std::uint64_t firstChunkSize = 0;
    double spacing = 0.0;
    /// Coordinate = integer * scale + offset.
    Math::Point<double, 3> scale;
    Math::Point<double, 3> offset;
    /// The root's cube; of external attributes, which have no use for it, any box.
    Math::NBoundingBox<double, 3> boundingBox;
    /// Around the points as "position" has it; the root's box when it does not say.
    Math::NBoundingBox<double, 3> tightBox;
    /// Key "nodeVisibility": the hierarchy's records say which nodes are visible or hidden as a whole.
    bool hasNodeVisibility = false;
    std::vector<Octree::AttributeInfo> attributes;
    /// Sum of the attributes' sizes in a chunk; at least 1.
    std::size_t bytesPerPoint = 0;

private:
    static Metadata make(const Octree::JsonValue& root, const std::filesystem::path& file, StoreRole role);
};

}  // namespace PoTree
