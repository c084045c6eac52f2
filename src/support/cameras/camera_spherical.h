// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"
#include "support/cameras/abstract_camera.h"

namespace marlo {

/// The camera of an equirectangular panorama: all directions, longitude along the columns, latitude
/// along the rows. With W and H the image size,
///
///     longitude = atan2(X, Z)                 0 ahead (+z), positive to the right (+x)
///     latitude  = atan2(Y, hypot(X, Z))       positive down (+y)
///     column    = W (longitude / (2 pi) + 1/2)
///     row       = H (latitude / pi + 1/2)
///
/// so row 0 is the pole above and row H the one below: as everywhere, a position is where a pixel
/// centre is if it is a whole number, and the pole lies on the centres of the first row. Column W
/// is column 0. This is the geometry of keypoints that the "Spherical" transform gives back.
///
/// It has no parameters besides the image size, which need not be 2 : 1.
class FEATURES_EXPORT CameraSpherical : public AbstractCamera {
public:
    /// @throws std::invalid_argument if `width` or `height` is below 1.
    CameraSpherical(int width, int height);

    [[nodiscard]] std::unique_ptr<AbstractCamera> clone() const override;
    [[nodiscard]] QString modelName() const override;
    [[nodiscard]] double pixelsPerRadian(double angle) const override;
    /// Columns are from 0 to below W. The poles, exactly above and below, are seen at W / 2.
    bool project(const Eigen::Vector3d& direction, Eigen::Vector2d& pixel) const override;
    /// Columns beyond the image go on around the sphere. False for rows outside of 0 to H, which
    /// are beyond a pole.
    bool unproject(const Eigen::Vector2d& pixel, Eigen::Vector3d& ray) const override;
    /// There is no derivative at the poles.
    bool projectionJacobian(const Eigen::Vector3d& direction,
                            Eigen::Matrix<double, 2, 3>& jacobian) const override;
    bool parameterJacobian(const Eigen::Vector3d& direction, double* jacobian) const override;
    [[nodiscard]] QString parameterName(std::size_t index) const override;
    void setParameters(const double* values) override;
    /// Infinite: every direction is seen.
    [[nodiscard]] double maxAngle() const override;
    [[nodiscard]] Eigen::Matrix3d calibrationMatrix() const override;
    [[nodiscard]] Eigen::Vector2d pixelDifference(const Eigen::Vector2d& a,
                                                  const Eigen::Vector2d& b) const override;
    [[nodiscard]] bool equal(const AbstractCamera& other) const override;
    void readBin(BinReader& reader) override;
    void writeBin(BinWriter& writer) const override;
    bool unprojectionJacobian(const Eigen::Vector2d& pixel,
                              Eigen::Matrix<double, 3, 2>& jacobian) const override;
};

}  // namespace marlo
