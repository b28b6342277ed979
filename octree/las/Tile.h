#pragma once

#include <octree/las/Columns.h>
#include <octree/las/LasFile.h>

#include <cstddef>
#include <stop_token>
#include <string>
#include <string_view>

namespace Las {

/// More extra bytes a point are refused: each takes kilobytes of a decoder, and files have some dozens.
constexpr std::size_t MAX_EXTRA_BYTES = 4096;

/// A whole small file.
struct Tile {
    Header header;
    Columns points;
};

/// Reads all points of a small file. The fields or Field values. False when stopped, which is looked at every
/// few thousand points. Throws Octree::StoreError naming the file, and the chunk and the point where they are
/// concerned, and for more points, or more bytes of points, than a node of so small a file may have. Memory
/// grows with the points decoded.
bool readPoints(const LasFile& file, unsigned fields, const std::stop_token& stop, Columns& out);

/// The same for a file in memory, whose name is for errors.
bool readTile(const std::string& fileName, std::string_view bytes, unsigned fields,
              const std::stop_token& stop, Tile& out);

}  // namespace Las
