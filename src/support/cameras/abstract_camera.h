// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <QString>
#include <cstddef>
#include <memory>
#include <ostream>
#include <vector>

#include "libfeatures/features_export.h"
#include "support/bin_io.h"

namespace marlo {

/// The inside of a calibrated camera: which direction of view a place in the image belongs to.
///
/// Directions are in the camera frame: x to the right, y down, z forward along the optical axis.
/// They may have any length above 0; rays that come out have length 1, so that a direction behind
/// the camera is one like any other. Pixels are (column, row) with pixel centres at integers: the
/// first pixel's is (0, 0). Pixels outside of the image are as good as those inside, as far as the
/// model carries. Angles are in radians; "angle off the axis" is that between a direction and +z.
///
/// Where a function returns false it has left NaN in its result, in every component.
///
/// The parameters of the model (focal lengths, distortion ...) are what a bundle adjustment may
/// change; image size, name and serial number stay. Const members may be called from several
/// threads at a time. The order of the virtual functions is part of the interface.
class FEATURES_EXPORT AbstractCamera {
public:
    virtual ~AbstractCamera() = default;

    /// A new camera of the same class with the same parameters, name and serial number.
    [[nodiscard]] virtual std::unique_ptr<AbstractCamera> clone() const = 0;
    /// What the model is called: "perspective", "fisheye", "spherical".
    [[nodiscard]] virtual QString modelName() const = 0;
    /// How many pixels the image of a direction moves for each radian that the direction turns away
    /// from the axis, at `angle` off it: the mean over columns and rows (the geometric one) without
    /// decentring. NaN if `angle` is negative, or not seen because it is maxAngle() or more.
    [[nodiscard]] virtual double pixelsPerRadian(double angle) const = 0;
    /// The pixel where `direction` is seen. False if it is not seen: not finite, zero, or outside
    /// of the field of view.
    virtual bool project(const Eigen::Vector3d& direction, Eigen::Vector2d& pixel) const = 0;
    /// The ray, of length 1, that is seen at `pixel`: the one that project() takes there. False if
    /// there is none in the field of view, or `pixel` is not finite.
    virtual bool unproject(const Eigen::Vector2d& pixel, Eigen::Vector3d& ray) const = 0;
    /// The derivative of project(): of the pixel (rows of the matrix) by `direction` (columns).
    /// False where project() is, and where there is no derivative.
    virtual bool projectionJacobian(const Eigen::Vector3d& direction,
                                    Eigen::Matrix<double, 2, 3>& jacobian) const = 0;
    /// The derivative of project() by the parameters: `jacobian` has room for 2 x
    /// parameters().size() values and is filled row by row, the column's derivatives first. False
    /// where project() is.
    virtual bool parameterJacobian(const Eigen::Vector3d& direction, double* jacobian) const = 0;
    /// The name of a parameter ("fx"), of which there must be that many.
    [[nodiscard]] virtual QString parameterName(std::size_t index) const = 0;
    /// Replaces all parameters by the parameters().size() values given.
    /// @throws std::invalid_argument if the model cannot work with them; nothing is changed then.
    virtual void setParameters(const double* values) = 0;
    /// Directions at this angle off the axis or beyond are not seen, in any part of the image.
    [[nodiscard]] virtual double maxAngle() const = 0;
    /// The pinhole camera that agrees with this one around the axis, to first order: its focal
    /// lengths on the diagonal, the pixel that sees +z in the last column, (0, 0, 1) below.
    [[nodiscard]] virtual Eigen::Matrix3d calibrationMatrix() const = 0;
    /// How far and in what direction pixel `a` lies from pixel `b`: a - b, the shorter way round
    /// where the image's left and right side meet. The residual of an adjustment.
    [[nodiscard]] virtual Eigen::Vector2d pixelDifference(const Eigen::Vector2d& a,
                                                          const Eigen::Vector2d& b) const = 0;
    /// Whether `other` is of the same class and has the same image size and parameters. Names do
    /// not count.
    [[nodiscard]] virtual bool equal(const AbstractCamera& other) const = 0;

    /// The factor from an angular error, in radians, of a direction at `angle` off the axis to one
    /// in pixels.
    [[nodiscard]] virtual double getErrorMeasureScalingFactor(double angle) const {
        return pixelsPerRadian(angle);
    }
    /// Nothing, unless the class has a binary form.
    virtual void readBin(BinReader& /*reader*/) {}
    virtual void writeBin(BinWriter& /*writer*/) const {}
    /// One line without its end: the model, the image size and the parameters by name, then name
    /// and serial number where there are any. Numbers are written as the stream is set.
    virtual void print(std::ostream& out) const;

    /// The derivative of unproject(): of the ray (rows of the matrix) by `pixel` (columns). It
    /// carries the uncertainty of a keypoint over to its ray. False where unproject() is, and where
    /// there is no derivative.
    virtual bool unprojectionJacobian(const Eigen::Vector2d& pixel,
                                      Eigen::Matrix<double, 3, 2>& jacobian) const = 0;

    /// Of the image, in pixels.
    [[nodiscard]] int width() const noexcept { return width_; }
    [[nodiscard]] int height() const noexcept { return height_; }
    /// In the order that the class states.
    [[nodiscard]] const std::vector<double>& parameters() const noexcept { return parameters_; }

    /// What the host calls the camera.
    [[nodiscard]] const QString& name() const noexcept { return name_; }
    void setName(const QString& name) { name_ = name; }
    /// Of the body that the calibration was made for.
    [[nodiscard]] const QString& serialNumber() const noexcept { return serialNumber_; }
    void setSerialNumber(const QString& serialNumber) { serialNumber_ = serialNumber; }

protected:
    /// @throws std::invalid_argument if `width` or `height` is below 1.
    AbstractCamera(int width, int height, std::vector<double> parameters);
    AbstractCamera(const AbstractCamera&) = default;
    AbstractCamera& operator=(const AbstractCamera&) = default;

    /// Takes parameters().size() values as they are.
    void storeParameters(const double* values);
    /// equal(), for a class whose state is all in here.
    [[nodiscard]] bool hasSameState(const AbstractCamera& other) const;
    /// The binary form of such a class: width and height (32-bit integers), the number of
    /// parameters (32-bit unsigned), the parameters (64-bit floats).
    void writeState(BinWriter& writer) const;
    /// @throws std::runtime_error if there are too few bytes or another number of parameters, and
    ///         std::invalid_argument for values with which no camera can be made. The camera is
    ///         unchanged in each case.
    void readState(BinReader& reader);
    /// unprojectionJacobian() by unproject() and projectionJacobian().
    bool invertProjectionJacobian(const Eigen::Vector2d& pixel,
                                  Eigen::Matrix<double, 3, 2>& jacobian) const;

private:
    int width_;
    int height_;
    std::vector<double> parameters_;
    QString name_;
    QString serialNumber_;
};

}  // namespace marlo
