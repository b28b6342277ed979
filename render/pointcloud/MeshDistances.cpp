#include <render/pointcloud/MeshDistances.h>

#include <atomic>
#include <utility>
#include <vector>

namespace Render {

bool updateMeshDistances(Octree::OctreeNodeId id, VertexContainer& vertices,
                         const Math::TriangleMesh<float>& mesh, float scale, int group,
                         MeshDistanceCache& cache, const std::stop_token& stop) {
    if (mesh.empty()) {
        return true;
    }
    std::vector<float> distances;
    if (!cache.get(group, id, distances) || distances.size() != vertices.size()) {
        distances.resize(vertices.size());
        for (std::size_t i = 0; i < vertices.size(); ++i) {
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
