#pragma once

#include <core/CacheEntrySizeCount.h>
#include <core/GroupedLruCache.h>
#include <core/LruCache.h>
#include <octree/CacheIdentifier.h>
#include <octree/Location.h>
#include <octree/NodePointData.h>
#include <octree/OctreeNodeId.h>
#include <render/gpu/VertexContainer.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace Render {

/// Vertices of nodes, charged by points.
using VertexContainerCache =
    Core::LruCache<Octree::OctreeNodeId, VertexContainer, Core::CacheEntrySizeCount<VertexContainer>>;
/// Distances of the points of nodes to a mesh, by nodes; a group belongs to one mesh in one place.
using MeshDistanceCache = Core::GroupedLruCache<Octree::OctreeNodeId, std::vector<float>, int>;
/// Decoded points of nodes, charged by points.
using PointDataCache = Core::LruCache<Octree::OctreeNodeId, Octree::NodePointData,
                                      Core::CacheEntrySizeCount<Octree::NodePointData>>;

/// The caches of a point cloud. They are shared in the whole process by all that show or query the same
/// location at the same unit scale and with the same external attributes: who asks first decides the sizes.
/// Nothing is shared between clouds without a location, or with external attributes that have none. What is
/// cached under an identifier must come from an octree that keeps it, such as a snapshot.
std::shared_ptr<VertexContainerCache> createOrGetSharedVertexContainerCache(
    const Octree::CacheIdentifier& identifier, std::size_t capacity, std::size_t expectedEntries);
std::shared_ptr<MeshDistanceCache> createOrGetSharedMeshDistanceCache(
    const Octree::CacheIdentifier& identifier, std::size_t capacity);
std::shared_ptr<PointDataCache> createOrGetSharedPointDataCache(const Octree::CacheIdentifier& identifier,
                                                                std::size_t capacity,
                                                                std::size_t expectedEntries);

/// The same for clouds without external attributes.
std::shared_ptr<VertexContainerCache> createOrGetSharedVertexContainerCache(const Octree::Location& location,
                                                                            double unitScale,
                                                                            std::size_t capacity,
                                                                            std::size_t expectedEntries);
std::shared_ptr<MeshDistanceCache> createOrGetSharedMeshDistanceCache(const Octree::Location& location,
                                                                      double unitScale, std::size_t capacity);
std::shared_ptr<PointDataCache> createOrGetSharedPointDataCache(const Octree::Location& location,
                                                                double unitScale, std::size_t capacity,
                                                                std::size_t expectedEntries);

}  // namespace Render
