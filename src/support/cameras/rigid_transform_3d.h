// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>

namespace marlo {

/// A turn about the origin followed by a shift: a point p goes to rotation * p + translation.
/// `rotation` is orthonormal with determinant 1.
struct RigidTransform3D {
    Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();
    Eigen::Vector3d translation = Eigen::Vector3d::Zero();
};

}  // namespace marlo
