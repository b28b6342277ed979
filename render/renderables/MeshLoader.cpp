#include <render/renderables/MeshLoader.h>
#include <render/renderables/ObjMeshLoader.h>

#include <utility>

namespace Render {

MeshLoader::~MeshLoader() = default;

std::shared_ptr<MeshLoader> MeshLoader::fromObjFile(const std::filesystem::path& file,
                                                    const Math::Point<double, 3>& origin,
                                                    std::stop_token stop, std::uint64_t memoryLimit) {
    return std::make_shared<ObjMeshLoader>(file, origin, std::move(stop), memoryLimit);
}

}  // namespace Render
