// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"
#include "support/cameras/camera_externals.h"

namespace marlo {

/// One pose for the whole image: every row is exposed at the same moment.
class FEATURES_EXPORT CameraExternalsGlobalShutter : public CameraExternals {
public:
    /// The camera frame is the world's unless `worldToCamera` says otherwise.
    /// @throws std::invalid_argument if it is not finite or its rotation is not one to 1e-6.
    explicit CameraExternalsGlobalShutter(const RigidTransform3D& worldToCamera = {});

    [[nodiscard]] std::unique_ptr<CameraExternals> clone() const override;
    [[nodiscard]] Eigen::Vector3d toCamera(const Eigen::Vector3d& world) const override;
    [[nodiscard]] Eigen::Vector3d toWorld(const Eigen::Vector3d& camera) const override;
    [[nodiscard]] Eigen::Matrix3d rotationRow(double row) const override;
    [[nodiscard]] bool hasRollingShutter() const override;
    [[nodiscard]] std::size_t numberOfParameters(OptimExtType type) const override;
    void getParameters(double* values, OptimExtType type) const override;
    void pointJacobian(const Eigen::Vector3d& world, OptimExtType type,
                       double* jacobian) const override;
    [[nodiscard]] Eigen::Vector3d centreRow(double row) const override;
};

}  // namespace marlo
