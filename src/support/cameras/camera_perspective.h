// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"
#include "support/cameras/abstract_camera.h"

namespace marlo {

/// Focal lengths and principal point in pixels, and the distortion of a lens.
///
/// These are OpenCV's numbers in OpenCV's order: its camera matrix, then its first five distortion
/// coefficients. They are also COLMAP's FULL_OPENCV parameters with k4 to k6 at 0, and with k3 at 0
/// its OPENCV parameters, but for the principal point: COLMAP's pixel centres are at halves, so
/// `cx` and `cy` are its values less 0.5.
struct BrownConradyParameters {
    double fx = 0.0;
    double fy = 0.0;
    double cx = 0.0;
    double cy = 0.0;
    double k1 = 0.0;
    double k2 = 0.0;
    double p1 = 0.0;
    double p2 = 0.0;
    double k3 = 0.0;
};

/// The camera of an ordinary lens: a pinhole with radial and decentring distortion. With x = X / Z,
/// y = Y / Z and r^2 = x^2 + y^2 for a direction (X, Y, Z), Z > 0:
///
///     L      = 1 + k1 r^2 + k2 r^4 + k3 r^6
///     column = fx (x L + 2 p1 x y + p2 (r^2 + 2 x^2)) + cx
///     row    = fy (y L + p1 (r^2 + 2 y^2) + 2 p2 x y) + cy
///
/// A. Conrady, Decentred Lens-Systems, Monthly Notices of the Royal Astronomical Society 79, 1919;
/// D. C. Brown, Decentering Distortion of Lenses, Photogrammetric Engineering 32(3), 1966, and
/// Close-Range Camera Calibration, 37(8), 1971.
///
/// Strong distortion folds over: beyond some r, points move back inwards, and two directions share
/// a pixel. The field of view ends there, at foldRadius(), so that every pixel has one ray at most.
class FEATURES_EXPORT CameraPerspective : public AbstractCamera {
public:
    /// `width` and `height` are those of the image.
    /// @throws std::invalid_argument if they are below 1, if `fx` or `fy` is not positive and
    ///         finite, or another parameter is not finite.
    CameraPerspective(int width, int height, const BrownConradyParameters& parameters);

    [[nodiscard]] std::unique_ptr<AbstractCamera> clone() const override;
    [[nodiscard]] QString modelName() const override;
    [[nodiscard]] double pixelsPerRadian(double angle) const override;
    bool project(const Eigen::Vector3d& direction, Eigen::Vector2d& pixel) const override;
    /// By Newton's method with backtracking. The result projects back to within 1e-8 pixels. Only
    /// IEEE arithmetic and square roots: the same bits on every processor.
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

    /// The r at which the field of view ends: no two directions within it share a pixel. It is the
    /// first zero of 1 + 3 k1 r^2 + 5 k2 r^4 + 7 k3 r^6 - 6.4 r sqrt(p1^2 + p2^2), infinite if
    /// there is none: without decentring the first r that no longer moves outwards, with it a
    /// little less.
    [[nodiscard]] double foldRadius() const noexcept { return foldRadius_; }

private:
    FEATURES_HIDDEN void findFold();
    [[nodiscard]] FEATURES_HIDDEN BrownConradyParameters values() const;

    double foldRadius_ = 0.0;
    double largestDistortedRadius_ = 0.0;
};

}  // namespace marlo
