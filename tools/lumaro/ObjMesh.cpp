#include <render/renderables/MeshLoader.h>
#include <tools/lumaro/Console.h>
#include <tools/lumaro/MemoryLimit.h>
#include <tools/lumaro/ObjMesh.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Tool {

using Mesh = Math::TriangleMesh<float>;

std::shared_ptr<Mesh> readObjMesh(const std::filesystem::path& file, const Math::Point<double, 3>& origin,
                                  const std::stop_token& stop) {
    std::vector<Math::Point<float, 3>> vertices;
    Render::MeshLoader::fromObjFile(file, origin, stop, meshMemoryLimit())->load([&](const auto& part) {
        for (const Render::VertexPosNormalTexCoordColor& vertex : part) {
            vertices.push_back(vertex.position);
        }
    });
    if (vertices.empty()) {
        throw std::runtime_error("the mesh " + utf8FromPath(file) + " has no faces");
    }
    std::vector<Mesh::Triangle> triangles;
    triangles.reserve(vertices.size() / 3);
    for (std::size_t i = 0; i < vertices.size(); i += 3) {
        const auto first = static_cast<std::uint32_t>(i);
        triangles.push_back({first, first + 1, first + 2});
    }
    return std::make_shared<Mesh>(std::move(vertices), std::move(triangles));
}

}  // namespace Tool
