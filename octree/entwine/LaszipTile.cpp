#include <core/File.h>
#include <octree/NodeKey.h>
#include <octree/StoreError.h>
#include <octree/entwine/TileFiles.h>
#include <octree/las/Tile.h>
#include <octree/tiles/LasTile.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace Entwine {

namespace {

using Octree::NodeKey;
using Octree::OctreeNodeId;
using Octree::StoreError;

/// Doubles hold every integer up to here.
constexpr double MAX_STEPS = 9007199254740992.0;

/// Each tile is a LAS file with a scale and offset of its own; the schema's layout has no say.
class LaszipTileReader final : public Tiles::TileReader {
public:
    LaszipTileReader(const Metadata& metadata, const std::filesystem::path& folder,
                     const Octree::MemoryBudget& budget)
        : mBudget(budget),
          mHasNormals(metadata.find(nameOf(Tiles::Known::NormalX)) != nullptr),
          mBounds(metadata.bounds),
          mFolder(folder / "ept-data") {}

    std::filesystem::path fileOf(OctreeNodeId id) const override {
        return mFolder / (NodeKey(id).text() + ".laz");
    }

    bool read(OctreeNodeId id, const Octree::HierarchyNode& node, const Octree::ByteRange&, Tiles::Tile& tile,
              const std::stop_token& stop) const override {
        const std::uint64_t expectedCount = node.pointCount;
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
                Tiles::Tile& tile, const std::stop_token& stop) const {
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
        const bool wantsExtraBytes = mHasNormals && !file.extraAttributes().empty();
        const unsigned fields =
            Tiles::TILE_FIELDS | (wantsExtraBytes ? static_cast<unsigned>(Las::Field::ExtraBytes) : 0u);
        const std::uint64_t decodedSize = sizeOf(file, fields);
        mBudget.require(bytes.size() + 2 * decodedSize, path);  // Columns double as they grow.
        const auto points = std::make_shared<Las::Columns>();
        if (!Las::readPoints(file, fields, stop, *points)) {
            return false;
        }
        tile = Tiles::makeLasTile(points, header, {file.extraAttributes(), file.format().extraByteCount});
        tile.memorySize = decodedSize;
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

    const Octree::MemoryBudget& mBudget;
    const bool mHasNormals;
    const Math::NBoundingBox<double, 3> mBounds;
    const std::filesystem::path mFolder;
};

}  // namespace

std::unique_ptr<Tiles::TileReader> makeLaszipTileReader(const Metadata& metadata,
                                                        const std::filesystem::path& folder,
                                                        const Octree::MemoryBudget& budget) {
    return std::make_unique<LaszipTileReader>(metadata, folder, budget);
}

}  // namespace Entwine
