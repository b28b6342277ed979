#pragma once

#include <math/TriangleMesh.h>
#include <octree/OctreeNodeId.h>
#include <render/gpu/VertexContainer.h>
#include <render/pointcloud/NodeCaches.h>

#include <stop_token>

namespace Render {

/// Gives a node's vertices their signed distances to a mesh in model coordinates, times `scale`. Distances
/// are kept in the cache under the group, which must belong to this mesh and scale alone. An empty mesh
/// leaves them unknown. False when stopped.
bool updateMeshDistances(Octree::OctreeNodeId id, VertexContainer& vertices,
                         const Math::TriangleMesh<float>& mesh, float scale, int group,
                         MeshDistanceCache& cache, const std::stop_token& stop);

/// A group that was never used before in the process.
int nextMeshDistanceGroup();

}  // namespace Render
