#pragma once

#include <octree/Octree.h>
#include <octree/OctreeNodeId.h>
#include <render/gpu/VertexContainer.h>
#include <render/pointcloud/ModelMesh.h>
#include <render/pointcloud/NodeCaches.h>

#include <memory>
#include <stop_token>

namespace Render {

/// All that it takes to have a node's vertices, with their distances to the mesh if there is one, from the
/// caches or from the store. A value; its operations may be called from any thread.
struct NodeVertexLoader {
    /// What the caches are filled from.
    std::shared_ptr<const Octree::Octree> octree;
    std::shared_ptr<VertexContainerCache> vertexCache;
    std::shared_ptr<MeshDistanceCache> distanceCache;
    std::shared_ptr<const ModelMesh> mesh;  ///< Null without one.
    int meshGroup = 0;
    float modelScale = 1.0f;

    bool operator==(const NodeVertexLoader&) const = default;

    /// False when stopped; throws as the octree does.
    bool load(Octree::OctreeNodeId id, VertexContainer& out, const std::stop_token& stop) const;
    /// Whether load() would find it in the caches.
    bool isCached(Octree::OctreeNodeId id) const;
};

}  // namespace Render
