#pragma once

#include <octree/OctreeNodeId.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// The store that LUMARO_BENCH_STORE names, or else the sample scene with a million points, which is written
/// to the temporary folder when it is not there yet.
std::filesystem::path benchStore();

struct NodeChunk {
    Octree::OctreeNodeId id;
    uint32_t points = 0;
    std::string bytes;  ///< compressed
};

/// All nodes of a store that have points.
std::vector<NodeChunk> readNodeChunks(const std::filesystem::path& store);
