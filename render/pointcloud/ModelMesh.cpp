#include <render/pointcloud/ModelMesh.h>

#include <core/SharedResources.h>

#include <Eigen/LU>
#include <array>
#include <cstddef>
#include <functional>
#include <utility>

namespace Render {

namespace {

// A mesh lives as long as the ModelMesh registered for it, so no other can have its address meanwhile.
struct Key {
    const ModelMesh::Mesh* worldMesh = nullptr;
    std::array<float, 16> world{};

    bool operator==(const Key&) const = default;
};

}  // namespace

}  // namespace Render

template <>
struct std::hash<Render::Key> {
    std::size_t operator()(const Render::Key& key) const {
        std::size_t result = std::hash<const void*>()(key.worldMesh);
        for (const float element : key.world) {
            result = result * 31 + std::hash<float>()(element);
        }
        return result;
    }
};

namespace Render {

ModelMesh::ModelMesh(std::shared_ptr<const Mesh> worldMesh, const Eigen::Matrix4f& world)
    : mWorldMesh(std::move(worldMesh)), mWorld(world) {}

std::shared_ptr<const ModelMesh> ModelMesh::shared(const std::shared_ptr<const Mesh>& worldMesh,
                                                   const Eigen::Matrix4f& world) {
    static Core::SharedResources<Key, const ModelMesh> meshes;
    Key key{worldMesh.get()};
    Eigen::Map<Eigen::Matrix4f>(key.world.data()) = world;
    return meshes.getOrCreate(key, [&] { return std::make_shared<const ModelMesh>(worldMesh, world); });
}

const ModelMesh::Mesh& ModelMesh::get() const {
    return mMesh.get(
        [this] { return mWorldMesh->transformed(Eigen::Matrix4d(mWorld.cast<double>().inverse())); });
}

}  // namespace Render
