#pragma once

#include <octree/Octree.h>
#include <render/pointcloud/filters/RegionFilter.h>
#include <tools/lumaro/PointWriter.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

namespace Tool {

struct ExportRequest {
    /// In absolute coordinates; null is all of space.
    std::shared_ptr<Render::RegionFilter> region;
    size_t maxLevel = 21;
    float minSpacing = 0.0f;
};

/// Hands the points that are asked for to the writer, chunk by chunk, in absolute coordinates, and finishes
/// it. `onChunk` is told the number of points so far, several times a second, and ends it by returning false,
/// as `stop` does: then the result is nullopt, else the number of points.
std::optional<uint64_t> exportPoints(const std::shared_ptr<Octree::Octree>& octree,
                                     const ExportRequest& request, PointWriter& writer,
                                     const std::function<bool(uint64_t)>& onChunk,
                                     const std::stop_token& stop = {});

}  // namespace Tool
