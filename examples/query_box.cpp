// query_box STORE FILE.txt: all points in the middle eighth of a cloud, at full detail and in absolute
// coordinates. No renderer, no device.

#include <octree/Location.h>
#include <octree/Octree.h>
#include <render/pointcloud/PointCloudQuery.h>
#include <render/pointcloud/filters/BoxFilter.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <iomanip>
#include <limits>
#include <locale>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

void writePoints(const char* store, const char* file) {
    const auto octree = std::make_shared<Octree::Octree>(Octree::Location::fromPath(store));
    const auto bounds = octree->boundingBox();
    const auto center = octree->referencePosition() + bounds.center().cast<double>();
    const auto quarter = (bounds.size() * 0.25f).cast<double>();
    Render::BoxFilter region({center - quarter, center + quarter});

    // Down to the deepest level and any spacing. The region stays ours and outlives the query.
    Render::PointCloudQuery query(octree, nullptr, Eigen::Matrix4f::Identity(), &region,
                                  std::numeric_limits<size_t>::max(), 0.0f, std::chrono::nanoseconds::zero());
    query.setAbsoluteCoordinates(true);
    std::ofstream text(file);
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(octree->positionGrid() ? octree->positionGrid()->decimals() : 4);
    std::vector<Render::QueryPoint> chunk(100'000);
    size_t total = 0;
    while (const size_t count = query.getNextPointChunk(chunk.data(), chunk.size())) {
        for (size_t i = 0; i < count; ++i) {
            const auto& place = chunk[i].position;
            text << place.x() << ' ' << place.y() << ' ' << place.z() << ' ' << chunk[i].intensity << '\n';
        }
        total += count;
    }
    if (!text.flush()) {
        throw std::runtime_error("the points could not be written");
    }
    std::printf("%zu points\n", total);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: query_box STORE FILE.txt\n", stderr);
        return 2;
    }
    try {
        writePoints(argv[1], argv[2]);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "query_box: %s\n", exception.what());
        return 1;
    }
}
