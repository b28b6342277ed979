#pragma once

#include <core/Export.h>
#include <math/Point.h>
#include <render/gpu/VertexTypes.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <vector>

namespace Render {

/// Where the triangles of a mesh come from. A host may derive its own.
class LUMARO_API MeshLoader {
public:
    /// Receives one part of the mesh: three vertices a triangle.
    using OnPart = std::function<void(const std::vector<VertexPosNormalTexCoordColor>& vertices)>;

    MeshLoader() = default;
    MeshLoader(const MeshLoader&) = default;
    MeshLoader& operator=(const MeshLoader&) = default;
    virtual ~MeshLoader();

    /// Delivers the whole mesh part by part in the caller's thread, and returns when it is complete. May be
    /// called again. What it throws, or onPart, leaves the mesh incomplete.
    virtual void load(OnPart onPart) = 0;

    /// Room for a hundred million triangles.
    static constexpr std::uint64_t DEFAULT_MEMORY_LIMIT = std::uint64_t{64} << 30;

    /// The faces of a Wavefront OBJ file with the colours of its vertices, one part a shape, relative to
    /// `origin`: coordinates are read and moved in double, so that those of a survey keep their digits.
    /// Polygons are cut into triangles; lines, points and materials do not count. A face that lacks a normal
    /// is flat. Nothing is read before load(), which throws std::runtime_error naming the file when it cannot
    /// be read, is damaged, has lines of unreasonable length or a face of more than 128 corners that is made
    /// to take long, when reading it would take more than memoryLimit bytes of memory, which are counted
    /// before they are allocated, and when `stop` is signalled; it prints the reader's warnings. Material
    /// files are looked for in the file's own folder and nowhere else.
    static std::shared_ptr<MeshLoader> fromObjFile(const std::filesystem::path& file,
                                                   const Math::Point<double, 3>& origin = {0, 0, 0},
                                                   std::stop_token stop = {},
                                                   std::uint64_t memoryLimit = DEFAULT_MEMORY_LIMIT);
};

}  // namespace Render
