#include <render/pointcloud/MeshDistances.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <utility>
#include <vector>

namespace Render {

namespace {

// Two zeros after each of the lowest ten bits.
std::uint64_t spread(std::uint64_t bits) {
    bits = (bits | bits << 16) & 0x030000ff;
    bits = (bits | bits << 8) & 0x0300f00f;
    bits = (bits | bits << 4) & 0x030c30c3;
    return (bits | bits << 2) & 0x09249249;
}

// Indices of the vertices along a Morton curve: neighbours need the same parts of a mesh, which are then
// still in the processor's caches.
std::vector<std::uint32_t> spatialOrder(const VertexContainer& vertices) {
    Math::NBoundingBox<float, 3> box;
    for (std::size_t i = 0; i < vertices.size(); ++i) {
        box.extend(vertices.position(i));
    }
    const Math::Point<float, 3> size = box.size();
    std::vector<std::uint64_t> keys(vertices.size());
    for (std::size_t i = 0; i < vertices.size(); ++i) {
        std::uint64_t curve = 0;
        for (int axis = 0; axis < 3; ++axis) {
            const float cell = (vertices.position(i)[axis] - box.min[axis]) / size[axis] * 1023;
            curve = curve << 1 | spread(cell > 0 && cell < 1024 ? static_cast<std::uint64_t>(cell) : 0);
        }
        keys[i] = curve << 32 | i;
    }
    std::sort(keys.begin(), keys.end());
    std::vector<std::uint32_t> order(keys.size());
    std::transform(keys.begin(), keys.end(), order.begin(),
                   [](std::uint64_t key) { return static_cast<std::uint32_t>(key); });
    return order;
}

}  // namespace

bool updateMeshDistances(Octree::OctreeNodeId id, VertexContainer& vertices,
                         const Math::TriangleMesh<float>& mesh, float scale, int group,
                         MeshDistanceCache& cache, const std::stop_token& stop) {
    if (mesh.empty()) {
        return true;
    }
    std::vector<float> distances;
    if (!cache.get(group, id, distances) || distances.size() != vertices.size()) {
        distances.resize(vertices.size());
        for (const std::uint32_t i : spatialOrder(vertices)) {
            if (stop.stop_requested()) {
                return false;
            }
            distances[i] = mesh.signedDistance(vertices.position(i)) * scale;
        }
        cache.insert(group, id, distances);
    }
    vertices.setDistances(distances);
    return true;
}

int nextMeshDistanceGroup() {
    static std::atomic<int> last{0};
    return ++last;
}

}  // namespace Render
