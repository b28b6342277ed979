#include <render/pointcloud/PointCloudQuery.h>
#include <tools/lumaro/AbsoluteRegion.h>
#include <tools/lumaro/QueryExport.h>

#include <chrono>
#include <vector>

namespace Tool {

std::optional<uint64_t> exportPoints(const std::shared_ptr<Octree::Octree>& octree,
                                     const ExportRequest& request, PointWriter& writer,
                                     const std::function<bool(uint64_t)>& onChunk) {
    constexpr size_t CHUNK = size_t{1} << 16;
    constexpr std::chrono::milliseconds OFTEN{100};
    const Math::Point<double, 3>& reference = octree->referencePosition();
    std::optional<AbsoluteRegion> region;
    if (request.region) {
        region.emplace(request.region, reference);
    }
    Render::PointCloudQuery query(octree, nullptr, Eigen::Matrix4f::Identity(), region ? &*region : nullptr,
                                  request.maxLevel, request.minSpacing, OFTEN);
    std::vector<Render::QueryPoint> chunk(CHUNK);
    uint64_t written = 0;
    while (const size_t count = query.getNextPointChunk(chunk.data(), chunk.size())) {
        size_t kept = 0;
        for (size_t i = 0; i < count; ++i) {
            Render::QueryPoint point = chunk[i];
            point.position += reference;
            if (request.grid) {
                point.position = request.grid->snapped(point.position);
            }
            if (!region || region->contains(point.position)) {
                chunk[kept++] = point;
            }
        }
        writer.write(chunk.data(), kept);
        written += kept;
        if (!onChunk(written)) {
            return std::nullopt;
        }
    }
    writer.finish();
    return written;
}

}  // namespace Tool
