#include <octree/StoreError.h>
#include <octree/las/PointReader.h>
#include <octree/las/Tile.h>

#include <algorithm>
#include <span>

namespace Las {

namespace {

/// No tile of a sensible store comes near.
constexpr std::uint64_t MAX_POINTS = std::uint64_t{1} << 26;
/// What is given room to in advance, whatever the header says.
constexpr std::uint64_t POINTS_PER_BYTE = 8;

}  // namespace

bool readTile(const std::string& fileName, std::string_view bytes, unsigned fields,
              const std::stop_token& stop, Tile& out) {
    const LasFile file(fileName, std::as_bytes(std::span(bytes)));
    out.header = file.header();
    out.points.clear();
    const std::uint64_t count = file.header().pointCount;
    if (count > MAX_POINTS) {
        throw Octree::StoreError(fileName + ": " + std::to_string(count) +
                                 " points are more than a tile may have");
    }
    PointReader reader(file, fields);
    out.points.reserve(static_cast<std::size_t>(std::min(count, bytes.size() * POINTS_PER_BYTE)),
                       file.format().fieldsOf(fields), file.format().extraByteCount);
    while (!stop.stop_requested()) {
        if (!reader.read(out.points)) {
            return true;
        }
    }
    return false;
}

}  // namespace Las
