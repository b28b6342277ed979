#pragma once

#include <octree/NodeSource.h>
#include <octree/OctreeNodeId.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

/// The store that LUMARO_BENCH_STORE names, or else the sample scene with a million points, which is written
/// to the temporary folder when it is not there yet.
std::filesystem::path benchStore();

/// That store, whatever its kind, opened anew.
std::shared_ptr<Octree::NodeSource> openBenchSource();

/// The hierarchy of a Potree store of a billion points in a million nodes, 16384 across, written to the
/// temporary folder when it is not there yet. The points are not there.
std::filesystem::path millionNodeStore();

struct NodeChunk {
    Octree::OctreeNodeId id;
    uint32_t points = 0;
    std::string bytes;  ///< compressed
};

/// All nodes of a store that have points.
std::vector<NodeChunk> readNodeChunks(const std::filesystem::path& store);
