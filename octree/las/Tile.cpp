#include <octree/NodeLimits.h>
#include <octree/StoreError.h>
#include <octree/las/PointReader.h>
#include <octree/las/Tile.h>

#include <algorithm>
#include <span>

namespace Las {

namespace {

/// What is given room to in advance, whatever the header says.
constexpr std::uint64_t RESERVED_BYTES_PER_BYTE = 16;

void checkSize(const LasFile& file, std::size_t bytesPerPoint) {
    const std::uint64_t count = file.header().pointCount;
    if (count > Octree::MAX_NODE_POINTS) {
        throw Octree::StoreError(file.name() + ": " + std::to_string(count) +
                                 " points are more than a tile may have");
    }
    if (file.format().extraByteCount > MAX_EXTRA_BYTES) {
        throw Octree::StoreError(file.name() + ": " + std::to_string(file.format().extraByteCount) +
                                 " extra bytes a point are more than a tile may have");
    }
    if (count * bytesPerPoint > Octree::maxDecodedSize(file.bytes().size())) {
        throw Octree::StoreError(file.name() + ": its " + Octree::pointsText(count, bytesPerPoint) +
                                 " are too many for " + std::to_string(file.bytes().size()) +
                                 " bytes in the file");
    }
}

}  // namespace

bool readPoints(const LasFile& file, unsigned fields, const std::stop_token& stop, Columns& out) {
    out.clear();
    const unsigned present = file.format().fieldsOf(fields);
    const std::size_t extraByteCount = file.format().extraByteCount;
    const std::size_t bytesPerPoint =
        std::max<std::size_t>(1, Columns::bytesPerPoint(present, extraByteCount));
    checkSize(file, bytesPerPoint);
    PointReader reader(file, fields);
    const std::uint64_t reserved = RESERVED_BYTES_PER_BYTE * file.bytes().size() / bytesPerPoint;
    out.reserve(static_cast<std::size_t>(std::min(file.header().pointCount, reserved)), present,
                extraByteCount);
    while (!stop.stop_requested()) {
        if (!reader.read(out)) {
            return true;
        }
    }
    return false;
}

bool readTile(const std::string& fileName, std::string_view bytes, unsigned fields,
              const std::stop_token& stop, Tile& out) {
    const LasFile file(fileName, std::as_bytes(std::span(bytes)));
    out.header = file.header();
    return readPoints(file, fields, stop, out.points);
}

}  // namespace Las
