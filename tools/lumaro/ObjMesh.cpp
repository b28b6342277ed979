#include <tools/lumaro/Console.h>
#include <tools/lumaro/ObjMesh.h>

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

// Absolute coordinates have more digits than a float.
#define TINYOBJLOADER_USE_DOUBLE
#define TINYOBJLOADER_IMPLEMENTATION
#include <tiny_obj_loader.h>

namespace Tool {

using Mesh = Math::TriangleMesh<float>;

std::shared_ptr<Mesh> readObjMesh(const std::filesystem::path& file, const Math::Point<double, 3>& origin) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("cannot read the mesh " + utf8FromPath(file));
    }
    tinyobj::attrib_t attributes;
    std::vector<tinyobj::shape_t> shapes;
    std::vector<tinyobj::material_t> materials;
    std::string warnings;
    std::string errors;
    if (!tinyobj::LoadObj(&attributes, &shapes, &materials, &warnings, &errors, &stream) || stream.bad()) {
        throw std::runtime_error("the mesh " + utf8FromPath(file) + " is damaged: " + errors);
    }
    std::vector<Math::Point<float, 3>> vertices;
    for (size_t i = 0; i + 2 < attributes.vertices.size(); i += 3) {
        const double* const v = &attributes.vertices[i];
        vertices.push_back((Math::Point<double, 3>(v[0], v[1], v[2]) - origin).cast<float>());
    }
    std::vector<Mesh::Triangle> triangles;
    for (const tinyobj::shape_t& shape : shapes) {
        const auto& indices = shape.mesh.indices;
        for (size_t i = 0; i + 2 < indices.size(); i += 3) {
            triangles.push_back({static_cast<uint32_t>(indices[i].vertex_index),
                                 static_cast<uint32_t>(indices[i + 1].vertex_index),
                                 static_cast<uint32_t>(indices[i + 2].vertex_index)});
        }
    }
    if (triangles.empty()) {
        throw std::runtime_error("the mesh " + utf8FromPath(file) + " has no faces");
    }
    try {
        return std::make_shared<Mesh>(std::move(vertices), std::move(triangles));
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error("the mesh " + utf8FromPath(file) + " is damaged: " + error.what());
    }
}

}  // namespace Tool
