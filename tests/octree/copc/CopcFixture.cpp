#include <core/File.h>
#include <octree/ChildCube.h>
#include <octree/NodeKey.h>
#include <octree/las/Tile.h>
#include <tests/octree/copc/CopcFixture.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <span>

namespace Support {

namespace {

using Octree::OctreeNodeId;

constexpr std::size_t HEADER_SIZE = 375, POINT_OFFSET = 96, RECORD_COUNT = 100;

template <class T>
void put(std::string& bytes, std::size_t offset, T value) {
    bytes.replace(offset, sizeof value, reinterpret_cast<const char*>(&value), sizeof value);
}

template <class T>
void append(std::string& bytes, T value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// The child's cube that a point lies in.
std::size_t childAt(const Math::NBoundingBox<double, 3>& cube, const Math::Point<double, 3>& point) {
    std::size_t child = 0;
    for (int axis = 0; axis < 3; ++axis) {
        child = 2 * child + (point[axis] >= (cube.min[axis] + cube.max[axis]) * 0.5 ? 1 : 0);
    }
    return child;
}

}  // namespace

std::string CopcFixture::source() {
    return Core::readLocalFile(std::filesystem::path(LUMARO_SOURCE_DIR) /
                               "tests/octree/las/data/format7-extra2-chunk1.laz");
}

CopcFixture::CopcFixture() {
    const std::string laz = source();
    appendRecords(laz);
    appendChunks(laz);
    write();
}

// The header, the description of the octree, and the records of the LAZ file.
void CopcFixture::appendRecords(const std::string& laz) {
    std::uint32_t recordCount = 0, pointOffset = 0;
    std::memcpy(&recordCount, laz.data() + RECORD_COUNT, sizeof recordCount);
    std::memcpy(&pointOffset, laz.data() + POINT_OFFSET, sizeof pointOffset);
    beginning = laz.substr(0, HEADER_SIZE);
    beginning += std::string("\0\0copc\0\0\0\0\0\0\0\0\0\0\0\0\1\0\xa0\0", 22) + std::string(32, '\0');
    beginning += std::string(160, '\0') + laz.substr(HEADER_SIZE, pointOffset - HEADER_SIZE);
    put(beginning, RECORD_COUNT, recordCount + 1);
    put(beginning, POINT_OFFSET, static_cast<std::uint32_t>(beginning.size()));
}

void CopcFixture::appendChunks(const std::string& laz) {
    const Las::LasFile las("source", std::as_bytes(std::span(laz)));
    Las::Tile tile;
    ASSERT_TRUE(Las::readTile("source", laz, Las::ALL_FIELDS, {}, tile));
    const auto coordinate = [&](const std::vector<std::int32_t>& column, std::size_t i, int axis) {
        return column[i] * tile.header.scale[axis] + tile.header.offset[axis];
    };
    Math::NBoundingBox<double, 3> cube;
    for (int axis = 0; axis < 3; ++axis) {
        const auto& scale = tile.header.scale;
        const double half = 2147483648.0 * std::max({scale[0], scale[1], scale[2]});
        put(beginning, COPC_INFO + 8 * static_cast<std::size_t>(axis), tile.header.offset[axis]);
        put(beginning, COPC_INFO + 24, half);
        cube.min[axis] = tile.header.offset[axis] - half;
        cube.max[axis] = tile.header.offset[axis] + half;
    }
    put(beginning, COPC_INFO + 32, 1000.0);
    std::map<OctreeNodeId, Entry> nodes;
    for (std::size_t i = 0; i < tile.points.size; ++i) {
        const Math::Point<double, 3> point(coordinate(tile.points.x, i, 0), coordinate(tile.points.y, i, 1),
                                           coordinate(tile.points.z, i, 2));
        OctreeNodeId id;
        while (nodes.contains(id)) {
            id = id.child(childAt(Octree::nodeCube(cube, id), point));
        }
        const Las::ChunkTable::Chunk& chunk = las.chunks().chunks[i];
        nodes[id] = {id, beginning.size(), static_cast<std::int32_t>(chunk.size), 1};
        beginning += laz.substr(chunk.offset, chunk.size);
    }
    for (const auto& [id, entry] : nodes) {
        OctreeNodeId root = id;
        while (root.level() > 1) {
            root = root.parent();
        }
        if (id.level() == 1) {
            pages[OctreeNodeId()].push_back({id, 0, 0, -1});
        }
        pages[root].push_back(entry);
    }
}

void CopcFixture::write() {
    file = beginning;
    std::map<OctreeNodeId, std::uint64_t> offsets;
    // The root's page is the first in order and the last in the file, where all others are known.
    for (auto page = pages.rbegin(); page != pages.rend(); ++page) {
        offsets[page->first] = file.size();
        for (Entry& entry : page->second) {
            if (entry.count == -1 && offsets.contains(entry.id)) {
                entry.offset = offsets[entry.id];
                entry.size = static_cast<std::int32_t>(32 * pages[entry.id].size());
            }
            const Octree::NodeKey key(entry.id);
            for (const std::uint64_t number : {key.depth, key.x, key.y, key.z}) {
                append(file, static_cast<std::int32_t>(number));
            }
            append(file, entry.offset);
            append(file, entry.size);
            append(file, entry.count);
        }
    }
    put(file, COPC_ROOT_PAGE, offsets[OctreeNodeId()]);
    put(file, COPC_ROOT_PAGE + 8, static_cast<std::uint64_t>(32 * pages[OctreeNodeId()].size()));
    folder.write("cloud.copc.laz", file);
}

}  // namespace Support
