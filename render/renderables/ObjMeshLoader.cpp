#include <core/File.h>
#include <render/renderables/FileWithin.h>
#include <render/renderables/ObjLines.h>
#include <render/renderables/ObjMeshLoader.h>
#include <render/renderables/PolygonCutter.h>

#include <algorithm>
#include <array>
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
    MaterialLines(const std::filesystem::path& file, const std::stop_token& stop,
                  std::vector<tinyobj::material_t>& materials)
        : LineBuffer(file, stop), mMaterials(materials) {}

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
    MaterialReader(const std::filesystem::path& objFile, std::stop_token stop)
        : mFolder(objFile.parent_path()), mStop(std::move(stop)) {}

    bool operator()(const std::string& name, std::vector<tinyobj::material_t>* materials,
                    std::map<std::string, int>* indices, std::string* warnings,
                    std::string* errors) override {
        if (++mFiles > maxMaterialFiles) {
            return false;
        }
        const std::filesystem::path file = fileWithin(mFolder, name);
        if (!file.empty()) {
            requireSpace(file);
            MaterialLines lines(file, mStop, *materials);
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
    std::stop_token mStop;
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

struct Contents {
    tinyobj::attrib_t attributes;
    std::vector<tinyobj::shape_t> shapes;
    std::vector<ObjLines::LargeFace> largeFaces;
};

using Corners = std::array<tinyobj::index_t, 3>;

void addTriangle(const tinyobj::attrib_t& attributes, const Corners& corners, const D& origin,
                 std::vector<Vertex>& vertices) {
    bool hasNormals = true;
    for (const tinyobj::index_t& corner : corners) {
        hasNormals &= readCorner(attributes, corner, origin, vertices.emplace_back());
    }
    if (!hasNormals) {
        const P normal = faceNormal(&vertices[vertices.size() - 3]);
        for (std::size_t i = vertices.size() - 3; i < vertices.size(); ++i) {
            vertices[i].normal = normal;
        }
    }
}

void addLargeFace(const tinyobj::attrib_t& attributes, const ObjLines::LargeFace& face, const D& origin,
                  const std::stop_token& stop, std::vector<Vertex>& vertices) {
    std::vector<D> places;
    places.reserve(face.corners.size());
    for (const ObjLines::Indices& corner : face.corners) {
        const double* const place = &attributes.vertices[static_cast<std::size_t>(corner.vertex) * 3];
        places.emplace_back(place[0], place[1], place[2]);
    }
    for (const PolygonCutter::Triangle& triangle : PolygonCutter(places).cut(stop)) {
        Corners corners;
        std::transform(triangle.begin(), triangle.end(), corners.begin(), [&](std::uint32_t number) {
            const ObjLines::Indices& corner = face.corners[number];
            return tinyobj::index_t{corner.vertex, corner.normal, corner.texCoord};
        });
        addTriangle(attributes, corners, origin, vertices);
    }
}

std::vector<Vertex> readFaces(const Contents& contents, const tinyobj::mesh_t& mesh, const D& origin,
                              const std::stop_token& stop) {
    std::vector<Vertex> vertices;
    vertices.reserve(mesh.indices.size());
    for (std::size_t first = 0; first + 2 < mesh.indices.size() && !stop.stop_requested(); first += 3) {
        const Corners corners{mesh.indices[first], mesh.indices[first + 1], mesh.indices[first + 2]};
        if (corners[0].vertex_index < ObjLines::firstLargeFace) {
            addTriangle(contents.attributes, corners, origin, vertices);
            continue;
        }
        const auto& face =
            contents.largeFaces[static_cast<std::size_t>(corners[0].vertex_index - ObjLines::firstLargeFace)];
        try {
            addLargeFace(contents.attributes, face, origin, stop, vertices);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error("line " + std::to_string(face.line) + ": " + error.what());
        }
    }
    return vertices;
}

/// What a file makes the reader say: not without end, and nothing that a terminal obeys.
std::string harmless(std::string text) {
    constexpr std::size_t longest = 4096;
    if (text.size() > longest) {
        text.resize(longest);
        text += "...\n";
    }
    std::replace_if(
        text.begin(), text.end(),
        [](char c) { return c != '\n' && (static_cast<unsigned char>(c) < ' ' || c == '\x7f'); }, '?');
    return text;
}

/// The reader warns of the vertices that stand for large faces; what is beyond the others is an error.
void dropWarningOfRange(std::string& warnings) {
    const std::size_t begin = warnings.find("Vertex indices out of bounds");
    if (begin != std::string::npos) {
        warnings.erase(begin, warnings.find("\n\n", begin) + 2 - begin);
    }
}

Contents read(const std::filesystem::path& file, const std::stop_token& stop, std::uint64_t memoryLimit) {
    ObjLines lines(file, stop, memoryLimit);
    if (!lines.isOpen()) {
        throw std::runtime_error("TinyObjReader: Cannot open file [" + lines.name() + ']');
    }
    std::istream stream(&lines);
    stream.exceptions(std::ios::badbit);
    MaterialReader materialReader(file, stop);
    Contents contents;
    std::vector<tinyobj::material_t> materials;
    std::string warnings;
    std::string errors;
    const bool isRead = tinyobj::LoadObj(&contents.attributes, &contents.shapes, &materials, &warnings,
                                         &errors, &stream, &materialReader, /*triangulate=*/true,
                                         /*default_vcols_fallback=*/true);
    if (!isRead && !errors.empty()) {
        errors.erase(errors.find_last_not_of('\n') + 1);
        throw std::runtime_error("TinyObjReader: " + harmless(errors) + " in file [" + lines.name() + ']');
    }
    lines.requireIndicesInRange();
    contents.largeFaces = std::move(lines.largeFaces());
    dropWarningOfRange(warnings);
    if (!warnings.empty()) {
        std::cout << "TinyObjReader: " << harmless(std::move(warnings));
    }
    return contents;
}

}  // namespace

ObjMeshLoader::ObjMeshLoader(std::filesystem::path file, const D& origin, std::stop_token stop,
                             std::uint64_t memoryLimit)
    : mFile(std::move(file)), mOrigin(origin), mStop(std::move(stop)), mMemoryLimit(memoryLimit) {}

void ObjMeshLoader::load(OnPart onPart) {
    Contents contents = read(mFile, mStop, mMemoryLimit);
    for (tinyobj::shape_t& shape : contents.shapes) {
        std::vector<Vertex> vertices;
        try {
            vertices = readFaces(contents, shape.mesh, mOrigin, mStop);
        } catch (const std::out_of_range& error) {
            throw std::runtime_error(Core::pathToUtf8(mFile) + ": a face of \"" + harmless(shape.name) +
                                     "\" " + error.what());
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(Core::pathToUtf8(mFile) + ", " + error.what());
        }
        if (mStop.stop_requested()) {
            throw std::runtime_error(Core::pathToUtf8(mFile) + ": loading was stopped");
        }
        shape = {};
        onPart(vertices);
    }
}

}  // namespace Render
