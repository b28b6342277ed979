#pragma once

#include <core/Lazy.h>
#include <math/TriangleMesh.h>

#include <Eigen/Core>
#include <memory>

namespace Render {

/// A mesh to measure distances to, in the model coordinates of the point clouds that have one world matrix.
/// To make one takes no time: the mesh is moved when it is first asked for, and indexed at the first
/// distance, on the thread that asks. So a host that drags a point cloud waits for neither. Any thread.
class ModelMesh {
public:
    using Mesh = Math::TriangleMesh<float>;

    ModelMesh(std::shared_ptr<const Mesh> worldMesh, const Eigen::Matrix4f& world);

    /// The one that everybody in the process shares who asks with this mesh and an equal matrix.
    static std::shared_ptr<const ModelMesh> shared(const std::shared_ptr<const Mesh>& worldMesh,
                                                   const Eigen::Matrix4f& world);

    /// True without triangles.
    bool empty() const { return mWorldMesh->empty(); }
    const Mesh& get() const;

private:
    const std::shared_ptr<const Mesh> mWorldMesh;
    const Eigen::Matrix4f mWorld;
    mutable Core::Lazy<Mesh> mMesh;
};

}  // namespace Render
