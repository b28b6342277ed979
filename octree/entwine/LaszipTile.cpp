#include <core/File.h>
#include <octree/StoreError.h>
#include <octree/entwine/NodeKey.h>
#include <octree/entwine/TileReader.h>
#include <octree/las/Tile.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Entwine {

namespace {

using Octree::OctreeNodeId;
using Octree::StoreError;

/// What LAS calls the types of extra bytes, from 1 on.
constexpr std::array<NumberType, 10> EXTRA_TYPES{
    NumberType::Uint8, NumberType::Int8,   NumberType::Uint16, NumberType::Int16, NumberType::Uint32,
    NumberType::Int32, NumberType::Uint64, NumberType::Int64,  NumberType::Float, NumberType::Double};

/// Doubles hold every integer up to here.
constexpr double MAX_STEPS = 9007199254740992.0;

template <class T>
void setColumn(Tile& tile, Known dimension, const std::vector<T>& numbers, NumberType type,
               double scale = 1.0, double offset = 0.0) {
    if (!numbers.empty()) {
        tile[dimension] =
            NumberColumn{reinterpret_cast<const std::byte*>(numbers.data()), sizeof(T), type, scale, offset};
    }
}

/// Each tile is a LAS file with a scale and offset of its own; the schema's layout has no say.
class LaszipTileReader final : public TileReader {
public:
    LaszipTileReader(const Metadata& metadata, const std::filesystem::path& folder,
                     const Octree::MemoryBudget& budget)
        : mBudget(budget),
          mHasNormals(metadata.find(nameOf(Known::NormalX)) != nullptr),
          mBounds(metadata.bounds),
          mFolder(folder / "ept-data") {}

    std::filesystem::path fileOf(OctreeNodeId id) const override {
        return mFolder / (NodeKey(id).text() + ".laz");
    }

    bool read(OctreeNodeId id, std::uint64_t expectedCount, Tile& tile,
              const std::stop_token& stop) const override {
        std::size_t size = 0;
        const std::unique_ptr<std::byte[]> bytes =
            readTileFile(fileOf(id), id, MAX_TILE_SIZE, mBudget, size, stop);
        if (bytes == nullptr) {
            return false;
        }
        try {
            return decode(fileOf(id), {reinterpret_cast<const char*>(bytes.get()), size}, expectedCount, tile,
                          stop);
        } catch (const StoreError&) {
            std::throw_with_nested(StoreError(fileOf(id), NodeKey(id).text(), "its points cannot be read"));
        }
    }

private:
    bool decode(const std::filesystem::path& path, std::string_view bytes, std::uint64_t expectedCount,
                Tile& tile, const std::stop_token& stop) const {
        using Las::Field;
        const std::string name = Core::pathToUtf8(path);
        const Las::LasFile file(name, std::as_bytes(std::span(bytes)));
        const Las::Header& header = file.header();
        const bool hasTooMany =
            header.pointCount > maxPointCount(expectedCount) && header.pointCount <= Octree::MAX_NODE_POINTS;
        if (header.pointCount == 0 || hasTooMany) {  // Still more are too many anywhere.
            throw StoreError(name + ": it has " + std::to_string(header.pointCount) +
                             " points where the hierarchy says " + std::to_string(expectedCount));
        }
        checkGrid(name, header);
        unsigned fields = 0;
        for (const Field field :
             {Field::Position, Field::Intensity, Field::Classification, Field::PointSourceId, Field::Color}) {
            fields |= static_cast<unsigned>(field);
        }
        fields |=
            mHasNormals && !file.extraAttributes().empty() ? static_cast<unsigned>(Field::ExtraBytes) : 0u;
        const std::uint64_t decodedSize = sizeOf(file, fields);
        mBudget.require(bytes.size() + 2 * decodedSize, path);  // Columns double as they grow.
        const auto decoded = std::make_shared<Las::Tile>();
        if (!Las::readTile(name, bytes, fields, stop, *decoded)) {
            return false;
        }
        tile = Tile();
        tile.pointCount = decoded->points.size;
        tile.memory = decoded;
        tile.memorySize = decodedSize;
        setColumns(decoded->points, header, tile);
        setExtraColumns(file, decoded->points, tile);
        return true;
    }

    // Decoded; of more points than any tile may have, those.
    static std::uint64_t sizeOf(const Las::LasFile& file, unsigned fields) {
        return std::min(file.header().pointCount, Octree::MAX_NODE_POINTS) *
               Las::Columns::bytesPerPoint(file.format().fieldsOf(fields), file.format().extraByteCount);
    }

    void checkGrid(const std::string& name, const Las::Header& header) const {
        for (int axis = 0; axis < 3; ++axis) {
            for (const auto& corner : {mBounds.min, mBounds.max}) {
                if (!(std::abs(corner[axis] - header.offset[axis]) / header.scale[axis] <= MAX_STEPS)) {
                    throw StoreError(name + ": the store's bounds are out of reach of its scale and offset");
                }
            }
        }
    }

    static void setColumns(const Las::Columns& points, const Las::Header& header, Tile& tile) {
        const auto position = [&](Known dimension, const std::vector<std::int32_t>& numbers, int axis) {
            setColumn(tile, dimension, numbers, NumberType::Int32, header.scale[axis], header.offset[axis]);
        };
        position(Known::X, points.x, 0);
        position(Known::Y, points.y, 1);
        position(Known::Z, points.z, 2);
        setColumn(tile, Known::Intensity, points.intensity, NumberType::Uint16);
        setColumn(tile, Known::Classification, points.classification, NumberType::Uint8);
        setColumn(tile, Known::PointSourceId, points.pointSourceId, NumberType::Uint16);
        setColumn(tile, Known::Red, points.red, NumberType::Uint16);
        setColumn(tile, Known::Green, points.green, NumberType::Uint16);
        setColumn(tile, Known::Blue, points.blue, NumberType::Uint16);
    }

    static void setExtraColumns(const Las::LasFile& file, const Las::Columns& points, Tile& tile) {
        if (points.extraBytes.empty()) {
            return;
        }
        for (const Las::ExtraAttribute& extra : file.extraAttributes()) {
            for (const Known dimension : {Known::NormalX, Known::NormalY, Known::NormalZ}) {
                if (extra.name == nameOf(dimension) && extra.type >= 1 && extra.type <= EXTRA_TYPES.size()) {
                    tile[dimension] = NumberColumn{points.extraBytes.data() + extra.offset,
                                                   file.format().extraByteCount, EXTRA_TYPES[extra.type - 1]};
                }
            }
        }
    }

    const Octree::MemoryBudget& mBudget;
    const bool mHasNormals;
    const Math::NBoundingBox<double, 3> mBounds;
    const std::filesystem::path mFolder;
};

}  // namespace

std::unique_ptr<TileReader> makeLaszipTileReader(const Metadata& metadata,
                                                 const std::filesystem::path& folder,
                                                 const Octree::MemoryBudget& budget) {
    return std::make_unique<LaszipTileReader>(metadata, folder, budget);
}

}  // namespace Entwine
