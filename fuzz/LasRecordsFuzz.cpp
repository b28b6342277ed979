// The input is the fields to read in two bytes, then a LAS or LAZ file.

#include <fuzz/FuzzTarget.h>
#include <octree/StoreError.h>
#include <octree/las/LasFile.h>
#include <octree/las/Tile.h>

#include <span>

namespace {

/// What a compressed file's header may promise is more than a fuzzer has time for.
constexpr std::uint64_t MAX_POINTS = 20000;

Las::Columns read(const std::string& bytes, unsigned fields) {
    Las::Tile tile;
    Fuzz::require(Las::readTile("input", bytes, fields, {}, tile));
    Fuzz::require(tile.points.size == tile.header.pointCount);
    return std::move(tile.points);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    const std::string bytes = Fuzz::textOf(data + 2, size - 2);
    try {
        const Las::LasFile file("input", std::as_bytes(std::span(bytes)));
        if (file.header().pointCount > MAX_POINTS) {
            return 0;
        }
        const unsigned wanted = data[0] + 256U * data[1];
        const unsigned present = file.format().fieldsOf(wanted);
        const Las::Columns all = read(bytes, Las::ALL_FIELDS);
        const Las::Columns some = read(bytes, wanted);
        const auto check = [&](Las::Field field, const auto& column, const auto& full,
                               std::size_t perPoint = 1) {
            const bool isPresent = (present & static_cast<unsigned>(field)) != 0;
            Fuzz::require(column.size() == (isPresent ? some.size * perPoint : 0));
            Fuzz::require(!isPresent || column == full);
        };
        using Las::Field;
        check(Field::Position, some.x, all.x);
        check(Field::Position, some.z, all.z);
        check(Field::Intensity, some.intensity, all.intensity);
        check(Field::Returns, some.returnNumber, all.returnNumber);
        check(Field::Returns, some.returnCount, all.returnCount);
        check(Field::Flags, some.flags, all.flags);
        check(Field::Classification, some.classification, all.classification);
        check(Field::ScanAngle, some.scanAngle, all.scanAngle);
        check(Field::UserData, some.userData, all.userData);
        check(Field::PointSourceId, some.pointSourceId, all.pointSourceId);
        check(Field::Color, some.blue, all.blue);
        check(Field::NearInfrared, some.nearInfrared, all.nearInfrared);
        check(Field::ExtraBytes, some.extraBytes, all.extraBytes, file.format().extraByteCount);
        Fuzz::require(some.gpsTime.empty() || some.gpsTime.size() == some.size);  // May be no numbers.
    } catch (const Octree::StoreError&) {
    }
    return 0;
}
