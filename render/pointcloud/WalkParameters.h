#pragma once

#include <math/ConvexPolytope.h>
#include <math/Frustum.h>
#include <math/NBoundingBox.h>
#include <math/NPlane.h>
#include <math/Point.h>
#include <render/core/RenderMode.h>
#include <render/gpu/Viewport.h>
#include <render/pointcloud/ModelMesh.h>
#include <render/pointcloud/NodePriority.h>

#include <Eigen/Core>
#include <cstddef>
#include <memory>

namespace Render {

/// All that decides how much a node of a point cloud matters. A value: a walk works on its own copy.
struct WalkParameters {
    Eigen::Matrix4f world = Eigen::Matrix4f::Identity();
    float modelScale = 1.0f;  ///< Length of the first column of `world`.

    // In model coordinates.
    Math::Frustum<float> frustum;
    Math::ConvexPolytope<float, 3> clippingVolume;
    Math::Point<float, 3> eye;

    Viewport viewport;
    float fovY = 1.0471976f;  ///< Radians.
    bool isOrthographic = false;
    Eigen::Matrix4f projection = Eigen::Matrix4f::Identity();

    float threshold = 15.0f;  ///< Least priority that is loaded.
    std::size_t minLevelToKeep = 0;
    std::size_t maxLevelToKeep = 23;

    RenderMode renderMode = RenderMode::Default;
    float minDistance = 0.0f;  ///< World units, as are all distances.
    float maxDistance = 1.0f;
    bool useSignedDistance = true;
    Math::NPlane<float, 3> plane;           ///< World coordinates.
    std::shared_ptr<const ModelMesh> mesh;  ///< Null without a mesh.
    int meshGroup = 0;  ///< Changes with the mesh and its place: where its distances lie in the cache.

    /// The priority of a node of the given level with the given cube in model coordinates.
    NodePriority boundingBoxPriority(std::size_t level, const Math::NBoundingBox<float, 3>& box) const;

    /// False when no point of the box, in model coordinates, can lie in the range of the colour map; true
    /// when one does, or may.
    bool needsPlaneDistanceColorization(const Math::NBoundingBox<float, 3>& box) const;
    bool needsMeshDistanceColorization(const Math::NBoundingBox<float, 3>& box) const;
};

}  // namespace Render
