#include <render/pointcloud/NodeCaches.h>

#include <core/SharedResources.h>

#include <algorithm>

namespace Render {

namespace {

template <class Cache, class... Sizes>
std::shared_ptr<Cache> createOrGet(const Octree::CacheIdentifier& identifier, Sizes... sizes) {
    static Core::SharedResources<Octree::CacheIdentifier, Cache> caches;
    const auto create = [&] { return std::make_shared<Cache>(sizes...); };
    const std::vector<Octree::Location>& external = identifier.externalAttributes;
    const Octree::Location nowhere;
    if (identifier.location == nowhere ||
        std::find(external.begin(), external.end(), nowhere) != external.end()) {
        return create();
    }
    return caches.getOrCreate(identifier, create);
}

}  // namespace

std::shared_ptr<VertexContainerCache> createOrGetSharedVertexContainerCache(
    const Octree::CacheIdentifier& identifier, std::size_t capacity, std::size_t expectedEntries) {
    return createOrGet<VertexContainerCache>(identifier, capacity, expectedEntries);
}

std::shared_ptr<MeshDistanceCache> createOrGetSharedMeshDistanceCache(
    const Octree::CacheIdentifier& identifier, std::size_t capacity) {
    return createOrGet<MeshDistanceCache>(identifier, capacity);
}

std::shared_ptr<PointDataCache> createOrGetSharedPointDataCache(const Octree::CacheIdentifier& identifier,
                                                                std::size_t capacity,
                                                                std::size_t expectedEntries) {
    return createOrGet<PointDataCache>(identifier, capacity, expectedEntries);
}

std::shared_ptr<VertexContainerCache> createOrGetSharedVertexContainerCache(const Octree::Location& location,
                                                                            double unitScale,
                                                                            std::size_t capacity,
                                                                            std::size_t expectedEntries) {
    return createOrGetSharedVertexContainerCache(Octree::CacheIdentifier{location, unitScale}, capacity,
                                                 expectedEntries);
}

std::shared_ptr<MeshDistanceCache> createOrGetSharedMeshDistanceCache(const Octree::Location& location,
                                                                      double unitScale,
                                                                      std::size_t capacity) {
    return createOrGetSharedMeshDistanceCache(Octree::CacheIdentifier{location, unitScale}, capacity);
}

std::shared_ptr<PointDataCache> createOrGetSharedPointDataCache(const Octree::Location& location,
                                                                double unitScale, std::size_t capacity,
                                                                std::size_t expectedEntries) {
    return createOrGetSharedPointDataCache(Octree::CacheIdentifier{location, unitScale}, capacity,
                                           expectedEntries);
}

}  // namespace Render
