#pragma once

#include <Eigen/Core>

namespace Math {

/// Matrices as members of public classes. Their alignment, and so the class's layout, does not depend on the
/// vector instructions that a host's compiler may use. Convert to Eigen::Matrix4f or Matrix4d to compute.
using StoredMatrix4f = Eigen::Matrix<float, 4, 4, Eigen::DontAlign>;
using StoredMatrix4d = Eigen::Matrix<double, 4, 4, Eigen::DontAlign>;

}  // namespace Math
