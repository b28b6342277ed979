#include <core/File.h>
#include <render/renderables/ObjLines.h>
#include <render/renderables/ObjMeshLoader.h>

#include <cmath>
#include <cstdint>
#include <iostream>
#include <istream>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

// Absolute coordinates have more digits than a float.
#define TINYOBJLOADER_USE_DOUBLE
#define TINYOBJLOADER_IMPLEMENTATION
#include <tiny_obj_loader.h>

namespace Render {

namespace {

using Vertex = VertexPosNormalTexCoordColor;
using P = Math::Point<float, 3>;
using D = Math::Point<double, 3>;

// For all material files of a mesh together. Materials go unused, so no mesh is worth more.
constexpr std::size_t maxMaterialBytes = std::size_t{16} * 1024 * 1024;
constexpr int maxMaterialFiles = 256;

/// The lines of a material file.
class MaterialLines : public LineBuffer {
public:
    MaterialLines(const std::filesystem::path& file, std::vector<tinyobj::material_t>& materials)
        : LineBuffer(file), mMaterials(materials) {}

protected:
    /// The rest of a material would only take memory: these are its name and what the reader warns of.
    bool admits(std::string_view line) override {
        if (startsWith(line, "newmtl")) {
            // Nobody looks at the materials so far, and each takes kilobytes.
            mMaterials.clear();
            return true;
        }
        return (startsWith(line, "d") || startsWith(line, "Tr")) && !hasEndlessExponent(line);
    }

private:
    std::vector<tinyobj::material_t>& mMaterials;
};

/// Reads material files beside the OBJ file.
class MaterialReader : public tinyobj::MaterialReader {
public:
    explicit MaterialReader(const std::filesystem::path& objFile) : mFolder(objFile.parent_path()) {}

    bool operator()(const std::string& name, std::vector<tinyobj::material_t>* materials,
                    std::map<std::string, int>* indices, std::string* warnings,
                    std::string* errors) override {
        if (++mFiles > maxMaterialFiles) {
            return false;
        }
        std::error_code code;
        const std::filesystem::path file = inFolder(name);
        // Neither a folder nor a device, which could be without end.
        if (std::filesystem::is_regular_file(file, code)) {
            requireSpace(file);
            MaterialLines lines(file, *materials);
            if (lines.isOpen()) {
                std::istream stream(&lines);
                stream.exceptions(std::ios::badbit);
                tinyobj::LoadMtl(indices, materials, &stream, warnings, errors);
                return true;
            }
        }
        *warnings +=
            "Material file [ " + name + " ] not found in a path : " + Core::pathToUtf8(mFolder) + '\n';
        return false;
    }

private:
    /// Never outside by an absolute path or the name of a drive or machine. Empty for a name that is no text.
    std::filesystem::path inFolder(const std::string& name) const {
        try {
            std::filesystem::path file = mFolder.empty() ? std::filesystem::path(".") : mFolder;
            file += '/';
            return file += std::u8string(name.begin(), name.end());
        } catch (const std::system_error&) {
            return {};
        }
    }

    void requireSpace(const std::filesystem::path& file) {
        std::error_code code;
        const std::uintmax_t size = std::filesystem::file_size(file, code);
        if (code || size > mSpace) {
            throw std::runtime_error(Core::pathToUtf8(file) +
                                     ": the material files of a mesh are larger than " +
                                     std::to_string(maxMaterialBytes) + " bytes");
        }
        mSpace -= size;
    }

    std::filesystem::path mFolder;
    std::uintmax_t mSpace = maxMaterialBytes;
    int mFiles = 0;
};

template <int N>
Math::Point<float, N> narrowed(const std::vector<double>& values, int index,
                               const Math::Point<double, N>& origin = {}) {
    const auto first = static_cast<std::size_t>(index) * N;
    if (index < 0 || first + N > values.size()) {
        throw std::out_of_range("refers to what is not there");
    }
    Math::Point<float, N> point;
    for (int i = 0; i < N; ++i) {
        point[i] = static_cast<float>(values[first + static_cast<std::size_t>(i)] - origin[i]);
    }
    return point;
}

/// The low byte of 255 times the value, which wraps around beyond 1.
std::uint8_t colorChannel(float value) {
    const float scaled = value * 255.0f;
    constexpr float end = 2147483648.0f;
    return scaled > -end && scaled < end ? static_cast<std::uint8_t>(static_cast<std::int32_t>(scaled)) : 0;
}

/// In double, where neither a tiny triangle's nor a huge one's vanishes.
P faceNormal(const Vertex* corners) {
    const D first = corners[0].position.cast<double>();
    const D normal =
        (corners[1].position.cast<double>() - first).cross(corners[2].position.cast<double>() - first);
    const double squaredLength = normal.squaredLength();
    return (squaredLength > 0.0 ? normal / std::sqrt(squaredLength) : normal).cast<float>();
}

/// False without a normal.
bool readCorner(const tinyobj::attrib_t& attributes, const tinyobj::index_t& index, const D& origin,
                Vertex& corner) {
    corner.position = narrowed<3>(attributes.vertices, index.vertex_index, origin);
    for (const float coordinate : corner.position.values) {
        if (!std::isfinite(coordinate)) {
            throw std::out_of_range("has a vertex too far away");
        }
    }
    const P color = narrowed<3>(attributes.colors, index.vertex_index);
    corner.color = {colorChannel(color.x()), colorChannel(color.y()), colorChannel(color.z()), 255};
    corner.texCoord = {};
    if (index.texcoord_index >= 0) {
        corner.texCoord = narrowed<2>(attributes.texcoords, index.texcoord_index);
    }
    if (index.normal_index < 0) {
        return false;
    }
    corner.normal = narrowed<3>(attributes.normals, index.normal_index);
    return true;
}

std::vector<Vertex> readFaces(const tinyobj::attrib_t& attributes, const tinyobj::mesh_t& mesh,
                              const D& origin) {
    std::vector<Vertex> vertices(3 * mesh.num_face_vertices.size());
    for (std::size_t first = 0; first < vertices.size(); first += 3) {
        bool hasNormals = true;
        for (std::size_t i = first; i < first + 3; ++i) {
            hasNormals &= readCorner(attributes, mesh.indices[i], origin, vertices[i]);
        }
        if (!hasNormals) {
            const P normal = faceNormal(&vertices[first]);
            for (std::size_t i = first; i < first + 3; ++i) {
                vertices[i].normal = normal;
            }
        }
    }
    return vertices;
}

struct Contents {
    tinyobj::attrib_t attributes;
    std::vector<tinyobj::shape_t> shapes;
};

Contents read(const std::filesystem::path& file) {
    ObjLines lines(file);
    if (!lines.isOpen()) {
        throw std::runtime_error("TinyObjReader: Cannot open file [" + lines.name() + ']');
    }
    std::istream stream(&lines);
    stream.exceptions(std::ios::badbit);
    MaterialReader materialReader(file);
    Contents contents;
    std::vector<tinyobj::material_t> materials;
    std::string warnings;
    std::string errors;
    const bool isRead = tinyobj::LoadObj(&contents.attributes, &contents.shapes, &materials, &warnings,
                                         &errors, &stream, &materialReader, /*triangulate=*/true,
                                         /*default_vcols_fallback=*/true);
    if (!isRead && !errors.empty()) {
        errors.erase(errors.find_last_not_of('\n') + 1);
        throw std::runtime_error("TinyObjReader: " + errors + " in file [" + lines.name() + ']');
    }
    lines.requireIndicesInRange();
    if (!warnings.empty()) {
        std::cout << "TinyObjReader: " << warnings;
    }
    return contents;
}

}  // namespace

ObjMeshLoader::ObjMeshLoader(std::filesystem::path file, const D& origin)
    : mFile(std::move(file)), mOrigin(origin) {}

void ObjMeshLoader::load(OnPart onPart) {
    Contents contents = read(mFile);
    for (tinyobj::shape_t& shape : contents.shapes) {
        std::vector<Vertex> vertices;
        try {
            vertices = readFaces(contents.attributes, shape.mesh, mOrigin);
        } catch (const std::out_of_range& error) {
            throw std::runtime_error(Core::pathToUtf8(mFile) + ": a face of \"" + shape.name + "\" " +
                                     error.what());
        }
        shape = {};
        onPart(vertices);
    }
}

}  // namespace Render
