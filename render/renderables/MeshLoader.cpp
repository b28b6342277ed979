#include <render/renderables/MeshLoader.h>
#include <render/renderables/ObjMeshLoader.h>

namespace Render {

MeshLoader::~MeshLoader() = default;

std::shared_ptr<MeshLoader> MeshLoader::fromObjFile(const std::filesystem::path& file,
                                                    const Math::Point<double, 3>& origin) {
    return std::make_shared<ObjMeshLoader>(file, origin);
}

}  // namespace Render
