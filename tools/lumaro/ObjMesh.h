#pragma once

#include <math/Point.h>
#include <math/TriangleMesh.h>

#include <filesystem>
#include <memory>
#include <stop_token>

namespace Tool {

/// The faces of an OBJ file as triangles, relative to `origin`. Throws std::runtime_error naming the file
/// when it cannot be read, is damaged or holds no faces, and when stopped.
std::shared_ptr<Math::TriangleMesh<float>> readObjMesh(const std::filesystem::path& file,
                                                       const Math::Point<double, 3>& origin,
                                                       const std::stop_token& stop);

}  // namespace Tool
