#include <render/pointcloud/MeshDistances.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <numeric>
#include <utility>
#include <vector>

namespace Render {

namespace {

constexpr unsigned AXIS_BITS = 8;
constexpr std::size_t HALF_KEYS = std::size_t(1) << 3 * AXIS_BITS / 2;

// How many distances are measured between two looks at the stop token.
constexpr std::size_t AT_A_TIME = 256;

// Two zeros after each bit.
std::uint32_t spread(std::uint32_t bits) {
    bits = (bits | bits << 8) & 0x00f00f;
    bits = (bits | bits << 4) & 0x0c30c3;
    return (bits | bits << 2) & 0x249249;
}

// Along a Morton curve.
std::vector<std::uint32_t> spatialKeys(const VertexContainer& vertices) {
    constexpr float CELLS = 1 << AXIS_BITS;
    Math::NBoundingBox<float, 3> box;
    for (std::size_t i = 0; i < vertices.size(); ++i) {
        box.extend(vertices.position(i));
    }
    const Math::Point<float, 3> size = box.size();
    std::vector<std::uint32_t> keys(vertices.size());
    for (std::size_t i = 0; i < vertices.size(); ++i) {
        for (int axis = 0; axis < 3; ++axis) {
            const float cell = (vertices.position(i)[axis] - box.min[axis]) / size[axis] * (CELLS - 1);
            const bool isInside = cell > 0 && cell < CELLS;
            keys[i] = keys[i] << 1 | spread(isInside ? static_cast<std::uint32_t>(cell) : 0);
        }
    }
    return keys;
}

// Sorts by one half of the keys, and keeps the order of what is equal there.
void sortByHalf(const std::vector<std::uint32_t>& keys, unsigned shift, std::vector<std::uint32_t>& order) {
    const auto half = [&](std::uint32_t i) { return keys[i] >> shift & (HALF_KEYS - 1); };
    std::array<std::uint32_t, HALF_KEYS> next{};
    for (const std::uint32_t i : order) {
        ++next[half(i)];
    }
    std::exclusive_scan(next.begin(), next.end(), next.begin(), 0u);
    std::vector<std::uint32_t> sorted(order.size());
    for (const std::uint32_t i : order) {
        sorted[next[half(i)]++] = i;
    }
    order = std::move(sorted);
}

// Indices of the vertices so that neighbours in the list lie close together.
std::vector<std::uint32_t> spatialOrder(const VertexContainer& vertices) {
    const std::vector<std::uint32_t> keys = spatialKeys(vertices);
    std::vector<std::uint32_t> order(keys.size());
    std::iota(order.begin(), order.end(), 0u);
    sortByHalf(keys, 0, order);
    sortByHalf(keys, 3 * AXIS_BITS / 2, order);
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
        const std::vector<std::uint32_t> order = spatialOrder(vertices);
        std::array<Math::Point<float, 3>, AT_A_TIME> points;
        std::array<float, AT_A_TIME> measured;
        for (std::size_t begin = 0; begin < order.size(); begin += AT_A_TIME) {
            if (stop.stop_requested()) {
                return false;
            }
            const std::size_t count = std::min(AT_A_TIME, order.size() - begin);
            for (std::size_t i = 0; i < count; ++i) {
                points[i] = vertices.position(order[begin + i]);
            }
            mesh.signedDistances({points.data(), count}, {measured.data(), count});
            for (std::size_t i = 0; i < count; ++i) {
                distances[order[begin + i]] = measured[i] * scale;
            }
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
