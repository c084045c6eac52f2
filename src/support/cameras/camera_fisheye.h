// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"
#include "support/cameras/abstract_camera.h"

namespace marlo {

/// Focal lengths and principal point in pixels, and the distortion of a fisheye lens.
///
/// These are the numbers of OpenCV's fisheye module in its order, the camera matrix without skew
/// and then the four coefficients, and of COLMAP's OPENCV_FISHEYE, whose principal point is larger
/// by 0.5 because its pixel centres are at halves.
struct FisheyeParameters {
    double fx = 0.0;
    double fy = 0.0;
    double cx = 0.0;
    double cy = 0.0;
    double k1 = 0.0;
    double k2 = 0.0;
    double k3 = 0.0;
    double k4 = 0.0;
};

/// An equidistant fisheye lens and its distortion. A direction at the angle theta off the axis is
/// seen, with phi its direction around the axis from column to row, at
///
///     d      = theta (1 + k1 theta^2 + k2 theta^4 + k3 theta^6 + k4 theta^8)
///     column = fx d cos(phi) + cx
///     row    = fy d sin(phi) + cy
///
/// J. Kannala and S. S. Brandt, A Generic Camera Model and Calibration Method for Conventional,
/// Wide-Angle, and Fish-Eye Lenses, IEEE Transactions on Pattern Analysis and Machine Intelligence
/// 28(8), 2006, equation 6 with the first coefficient in the focal lengths.
///
/// Fields of view may be wider than 180 degrees: theta goes up to where d first stops growing, or
/// else to pi, the direction straight back, which has no phi and is not seen.
class FEATURES_EXPORT CameraFisheye : public AbstractCamera {
public:
    /// `width` and `height` are those of the image.
    /// @throws std::invalid_argument if they are below 1, if `fx` or `fy` is not positive and
    ///         finite, or another parameter is not finite.
    CameraFisheye(int width, int height, const FisheyeParameters& parameters);

    [[nodiscard]] std::unique_ptr<AbstractCamera> clone() const override;
    [[nodiscard]] QString modelName() const override;
    [[nodiscard]] double pixelsPerRadian(double angle) const override;
    bool project(const Eigen::Vector3d& direction, Eigen::Vector2d& pixel) const override;
    /// By Newton's method kept between bounds. The result projects back to within 1e-8 pixels.
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
    void readBin(BinReader& reader) override;
    void writeBin(BinWriter& writer) const override;
    bool unprojectionJacobian(const Eigen::Vector2d& pixel,
                              Eigen::Matrix<double, 3, 2>& jacobian) const override;

private:
    FEATURES_HIDDEN void findFold();
    [[nodiscard]] FEATURES_HIDDEN FisheyeParameters values() const;
    [[nodiscard]] FEATURES_HIDDEN double angleAt(double distorted) const;

    double maxAngle_ = 0.0;
    double largestDistortedAngle_ = 0.0;  // d at maxAngle_
};

}  // namespace marlo
