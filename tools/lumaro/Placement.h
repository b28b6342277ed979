#pragma once

#include <math/Point.h>

#include <Eigen/Core>
#include <filesystem>

namespace Tool {

/// The matrix from coordinates relative to `ownOrigin` to those relative to `sceneOrigin`, for a thing whose
/// coordinates `placement` turns into absolute ones. Small where the two origins belong together.
Eigen::Matrix4f sceneMatrix(const Eigen::Matrix4d& placement, const Math::Point<double, 3>& ownOrigin,
                            const Math::Point<double, 3>& sceneOrigin);

/// The own coordinates of what `placement` puts at `absolute`.
Math::Point<double, 3> unplaced(const Eigen::Matrix4d& placement, const Math::Point<double, 3>& absolute);

/// A place near the vertices of an OBJ file, found without reading it: its first vertex, if that stands in
/// the file's first megabyte, or zero.
Math::Point<double, 3> firstVertex(const std::filesystem::path& objFile);

}  // namespace Tool
