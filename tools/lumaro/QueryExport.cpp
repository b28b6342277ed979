#include <render/pointcloud/PointCloudQuery.h>
#include <tools/lumaro/QueryExport.h>

#include <chrono>
#include <vector>

namespace Tool {

std::optional<uint64_t> exportPoints(const std::shared_ptr<Octree::Octree>& octree,
                                     const ExportRequest& request, PointWriter& writer,
                                     const std::function<bool(uint64_t)>& onChunk,
                                     const std::stop_token& stop) {
    constexpr size_t CHUNK = size_t{1} << 16;
    constexpr std::chrono::milliseconds OFTEN{100};
    Render::PointCloudQuery query(octree, nullptr, Eigen::Matrix4f::Identity(), request.region.get(),
                                  request.maxLevel, request.minSpacing, OFTEN);
    query.setAbsoluteCoordinates(true);
    std::vector<Render::QueryPoint> chunk(CHUNK);
    uint64_t written = 0;
    while (!query.isExhausted()) {
        const size_t count = query.getNextPointChunk(chunk.data(), chunk.size(), stop);
        writer.write(chunk.data(), count);
        written += count;
        if (stop.stop_requested() || !onChunk(written)) {
            return std::nullopt;
        }
    }
    writer.finish();
    return written;
}

}  // namespace Tool
