#include <render/pointcloud/NodeVertexLoader.h>

#include <render/pointcloud/MeshDistances.h>
#include <render/pointcloud/NodeVertexPacking.h>

namespace Render {

bool NodeVertexLoader::load(Octree::OctreeNodeId id, VertexContainer& out,
                            const std::stop_token& stop) const {
    const auto read = [&](VertexContainer& loaded) { return loadNodeVertices(*octree, id, loaded, stop); };
    if (!vertexCache->getOrLoad(id, out, read, stop)) {
        return false;
    }
    return !mesh || updateMeshDistances(id, out, mesh->get(), modelScale, meshGroup, *distanceCache, stop);
}

bool NodeVertexLoader::isCached(Octree::OctreeNodeId id) const {
    return vertexCache->contains(id) && (!mesh || distanceCache->contains(meshGroup, id));
}

}  // namespace Render
