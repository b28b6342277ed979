#include <render/pointcloud/NodeCaches.h>

#include <core/SharedResources.h>
#include <octree/CacheIdentifier.h>

namespace Render {

namespace {

template <class Cache, class... Sizes>
std::shared_ptr<Cache> createOrGet(const Octree::Location& location, double unitScale, Sizes... sizes) {
    static Core::SharedResources<Octree::CacheIdentifier, Cache> caches;
    const auto create = [&] { return std::make_shared<Cache>(sizes...); };
    if (location == Octree::Location()) {
        return create();
    }
    return caches.getOrCreate(Octree::CacheIdentifier{location, unitScale}, create);
}

}  // namespace

std::shared_ptr<VertexContainerCache> createOrGetSharedVertexContainerCache(const Octree::Location& location,
                                                                            double unitScale,
                                                                            std::size_t capacity,
                                                                            std::size_t expectedEntries) {
    return createOrGet<VertexContainerCache>(location, unitScale, capacity, expectedEntries);
}

std::shared_ptr<MeshDistanceCache> createOrGetSharedMeshDistanceCache(const Octree::Location& location,
                                                                      double unitScale,
                                                                      std::size_t capacity) {
    return createOrGet<MeshDistanceCache>(location, unitScale, capacity);
}

std::shared_ptr<PointDataCache> createOrGetSharedPointDataCache(const Octree::Location& location,
                                                                double unitScale, std::size_t capacity,
                                                                std::size_t expectedEntries) {
    return createOrGet<PointDataCache>(location, unitScale, capacity, expectedEntries);
}

}  // namespace Render
