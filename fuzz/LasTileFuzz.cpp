// The input is a LAS or LAZ file.

#include <fuzz/FuzzTarget.h>
#include <octree/StoreError.h>
#include <octree/las/PointReader.h>
#include <octree/las/Tile.h>

#include <cstdlib>

namespace {

/// What a header may promise is more than a fuzzer has time for.
constexpr std::uint64_t MAX_POINTS = 20000;

Las::Columns readSome(const Las::LasFile& file, unsigned fields) {
    Las::PointReader reader(file, fields);
    Las::Columns columns;
    while (columns.size < MAX_POINTS && reader.read(columns)) {
    }
    if (columns.size < MAX_POINTS && columns.size != file.header().pointCount) {
        std::abort();
    }
    return columns;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const Las::LasFile file("input", std::as_bytes(std::span(data, size)));
        file.extraAttributes();
        const Las::Columns positions = readSome(file, static_cast<unsigned>(Las::Field::Position));
        const Las::Columns all = readSome(file, Las::ALL_FIELDS);
        if (all.x != positions.x || all.y != positions.y || all.z != positions.z) {
            std::abort();
        }
    } catch (const Octree::StoreError&) {
    }
    return 0;
}
