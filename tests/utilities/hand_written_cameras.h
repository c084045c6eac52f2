// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <memory>
#include <vector>

#include "support/cameras/abstract_camera.h"
#include "support/cameras/camera_externals.h"

/// Cameras that define what they must and nothing else, so that the rest is the interface's own.
namespace marlo::test {

/// Pixel (x, y) is seen in the direction (x, y, 1), which is not made 1 long. Pixels left of the
/// image have no ray; what was in the output stays there.
class PlainCamera : public AbstractCamera {
public:
    explicit PlainCamera(std::vector<double> parameters = {}, int width = 200, int height = 100);

    [[nodiscard]] std::unique_ptr<AbstractCamera> clone() const override;
    [[nodiscard]] QString modelName() const override;
    [[nodiscard]] double pixelsPerRadian(double angle) const override;
    bool project(const Eigen::Vector3d& direction, Eigen::Vector2d& pixel) const override;
    bool unproject(const Eigen::Vector2d& pixel, Eigen::Vector3d& ray) const override;
    bool projectionJacobian(const Eigen::Vector3d& direction,
                            Eigen::Matrix<double, 2, 3>& jacobian) const override;
    bool parameterJacobian(const Eigen::Vector3d& direction, double* jacobian) const override;
    [[nodiscard]] QString parameterName(std::size_t index) const override;
    void setParameters(const double* values) override;
    [[nodiscard]] double maxAngle() const override;
    [[nodiscard]] Eigen::Matrix3d calibrationMatrix() const override;
    [[nodiscard]] Eigen::Vector2d pixelDifference(const Eigen::Vector2d& a,
                                                  const Eigen::Vector2d& b) const override;
    [[nodiscard]] bool equal(const AbstractCamera& other) const override;
    bool unprojectionJacobian(const Eigen::Vector2d& pixel,
                              Eigen::Matrix<double, 3, 2>& jacobian) const override;
};

class PlainExternals : public CameraExternals {
public:
    explicit PlainExternals(const RigidTransform3D& worldToCamera = {});

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

}  // namespace marlo::test
