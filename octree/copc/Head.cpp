#include <core/File.h>
#include <octree/OpenStopped.h>
#include <octree/Printable.h>
#include <octree/StoreError.h>
#include <octree/copc/Head.h>
#include <octree/las/LittleEndian.h>
#include <octree/las/Tile.h>
#include <octree/tiles/LasTile.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace Copc {

namespace {

using Octree::StoreError;
using Tiles::Dimension;
using Tiles::NumberType;

constexpr std::size_t HEADER_SIZE = 375;
constexpr std::size_t POINT_OFFSET = 96;
constexpr std::size_t INFO_SIZE = 160;
/// Descriptions and coordinate systems take kilobytes.
constexpr std::uint64_t MAX_SIZE = std::uint64_t{16} << 20;
/// A record of no content takes 54 bytes in the file and not twice as much in memory.
constexpr std::uint64_t KEPT_BYTES_PER_BYTE = 4;
constexpr double MAX_NUMBER = 1e15;
/// Doubles hold every integer up to here.
constexpr double MAX_STEPS = 9007199254740992.0;
constexpr std::size_t MAX_NAME = 100;

std::vector<std::byte> readBytes(const Octree::RandomAccessFile& file, std::uint64_t size,
                                 const std::stop_token& stop) {
    std::vector<std::byte> bytes(static_cast<std::size_t>(size));
    if (!file.read(0, bytes.size(), reinterpret_cast<char*>(bytes.data()), stop)) {
        throw Octree::OpenStopped();
    }
    return bytes;
}

std::vector<std::byte> readHead(const Octree::RandomAccessFile& file, Octree::MemoryBudget& budget,
                                const std::stop_token& stop) {
    const std::vector<std::byte> first =
        readBytes(file, std::min<std::uint64_t>(file.size(), Head::MIN_SIZE), stop);
    if (!Head::isCopc(first)) {
        throw StoreError(file.path(), "is not a COPC file");
    }
    const std::uint64_t size = Las::loadAt<std::uint32_t>(first.data() + POINT_OFFSET);
    if (size < Head::MIN_SIZE || size > file.size() || size > MAX_SIZE) {
        throw StoreError(file.path(), "its points cannot begin at byte " + std::to_string(size));
    }
    budget.keep(KEPT_BYTES_PER_BYTE * size, file.path());
    return readBytes(file, size, stop);
}

Dimension dimension(std::string name, NumberType type) {
    Dimension result;
    result.name = std::move(name);
    result.type = type;
    return result;
}

/// Of point formats 6 to 8, as Entwine calls them.
std::vector<Dimension> schemaOf(const Las::LasFile& las) {
    std::vector<Dimension> schema;
    for (int axis = 0; axis < 3; ++axis) {
        schema.push_back(dimension(std::string(1, "XYZ"[axis]), NumberType::Int32));
        schema.back().scale = las.header().scale[axis];
        schema.back().offset = las.header().offset[axis];
    }
    constexpr std::array<std::pair<const char*, NumberType>, 12> POINT{
        {{"Intensity", NumberType::Uint16},
         {"ReturnNumber", NumberType::Uint8},
         {"NumberOfReturns", NumberType::Uint8},
         {"ClassFlags", NumberType::Uint8},
         {"ScanChannel", NumberType::Uint8},
         {"ScanDirectionFlag", NumberType::Uint8},
         {"EdgeOfFlightLine", NumberType::Uint8},
         {"Classification", NumberType::Uint8},
         {"UserData", NumberType::Uint8},
         {"ScanAngle", NumberType::Int16},
         {"PointSourceId", NumberType::Uint16},
         {"GpsTime", NumberType::Double}}};
    for (const auto& [name, type] : POINT) {
        schema.push_back(dimension(name, type));
    }
    if (las.format().hasColor) {
        for (const char* name : {"Red", "Green", "Blue"}) {
            schema.push_back(dimension(name, NumberType::Uint16));
        }
    }
    if (las.format().hasNearInfrared) {
        schema.push_back(dimension("Infrared", NumberType::Uint16));
    }
    for (const Las::ExtraAttribute& extra : las.extraAttributes()) {
        if (const auto type = Tiles::typeOf(extra)) {
            schema.push_back(dimension(Octree::printable(extra.name, MAX_NAME), *type));
        }
    }
    return schema;
}

}  // namespace

bool Head::isCopc(std::span<const std::byte> bytes) {
    // The record that describes the octree is the first one behind a header of LAS 1.4.
    constexpr std::array<char, 18> RECORD{'c', 'o', 'p', 'c', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0};
    return bytes.size() >= MIN_SIZE && std::memcmp(bytes.data(), "LASF", 4) == 0 &&
           std::memcmp(bytes.data() + HEADER_SIZE + 2, RECORD.data(), RECORD.size()) == 0;
}

Head::Head(const Octree::RandomAccessFile& file, Octree::MemoryBudget& budget, const std::stop_token& stop)
    : mBytes(readHead(file, budget, stop)), mLas(Las::LasFile::head(Core::pathToUtf8(file.path()), mBytes)) {
    try {
        const std::vector<Las::VariableRecord>& records = mLas.records();
        if (records.empty() || records.front().userId != "copc" || records.front().data.size() < INFO_SIZE) {
            throw Las::DataError("its first record does not describe an octree");
        }
        if (!mLas.items() || !mLas.format().isLayered()) {
            throw Las::DataError("it has point format " + std::to_string(mLas.header().pointFormat) +
                                 ", not 6, 7 or 8, compressed");
        }
        if (mLas.format().extraByteCount > Las::MAX_EXTRA_BYTES) {
            throw Las::DataError(std::to_string(mLas.format().extraByteCount) +
                                 " extra bytes a point are more than a file may have");
        }
        readInfo(records.front().data);
    } catch (const Las::DataError& error) {
        throw StoreError(file.path(), error.what());
    }
}

void Head::readInfo(std::span<const std::byte> info) {
    Las::FieldReader reader(info, "the description of the octree");
    const auto number = [&reader](const char* name) {
        const auto value = reader.next<double>();
        if (!(std::abs(value) <= MAX_NUMBER)) {
            throw Las::DataError(std::string("the octree's ") + name + " is out of range");
        }
        return value;
    };
    Math::Point<double, 3> center;
    for (int axis = 0; axis < 3; ++axis) {
        center[axis] = number("centre");
    }
    const double half = number("size");
    mSpacing = number("spacing");
    mRootPage.offset = reader.next<std::uint64_t>();
    mRootPage.size = reader.next<std::uint64_t>();
    if (!(half > 0.0) || !(mSpacing >= 0.0)) {
        throw Las::DataError("the octree's size and spacing make no sense");
    }
    for (int axis = 0; axis < 3; ++axis) {
        mCube.min[axis] = center[axis] - half;
        mCube.max[axis] = center[axis] + half;
        if (!(mLas.header().scale[axis] > 0.0)) {
            throw Las::DataError("scale and offset are not usable");
        }
        for (const double end : {mCube.min[axis], mCube.max[axis]}) {
            if (!(std::abs(end - mLas.header().offset[axis]) / mLas.header().scale[axis] <= MAX_STEPS)) {
                throw Las::DataError("the octree's bounds are out of reach of the scale and offset");
            }
        }
        if (!(mCube.min[axis] < mCube.max[axis])) {
            throw Las::DataError("the octree is too small for where it lies");
        }
    }
}

Tiles::StoreDescription Head::description() const {
    Tiles::StoreDescription result;
    result.dataType = "laszip";
    result.pointCount = mLas.header().pointCount;
    result.spacing = mSpacing;
    result.bounds = mCube;
    result.schema = schemaOf(mLas);
    // The header's box need not be right; without points it often is not even one.
    for (int axis = 0; axis < 3; ++axis) {
        const double low = std::max(mLas.header().min[axis], mCube.min[axis]);
        const double high = std::min(mLas.header().max[axis], mCube.max[axis]);
        const bool isBox = low <= high;
        result.boundsConforming.min[axis] = isBox ? low : mCube.min[axis];
        result.boundsConforming.max[axis] = isBox ? high : mCube.max[axis];
    }
    return result;
}

}  // namespace Copc
