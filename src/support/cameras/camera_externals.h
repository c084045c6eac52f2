// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>

#include "libfeatures/features_export.h"
#include "support/cameras/abstract_camera.h"
#include "support/cameras/rigid_transform_3d.h"

namespace marlo {

/// Which parameters of a pose an adjustment changes.
enum class OptimExtType : std::uint8_t {
    None = 0,
    Rotation = 1,
    Translation = 2,
    RotationAndTranslation = 3,  ///< the rotation comes first
};

[[nodiscard]] constexpr bool changesRotation(OptimExtType type) {
    return type == OptimExtType::Rotation || type == OptimExtType::RotationAndTranslation;
}
[[nodiscard]] constexpr bool changesTranslation(OptimExtType type) {
    return type == OptimExtType::Translation || type == OptimExtType::RotationAndTranslation;
}

/// The outside of a calibrated camera: where it stood and how it was turned.
///
/// The pose takes a point from the world to the camera frame, in which x is to the right, y down
/// and z forward: camera = rotation * world + translation. A shutter that exposes row by row has a
/// pose for each row; what is held here is the one of reference. A moment of such an exposure is
/// called lambda: 0 at the first row, 1 at the last.
///
/// Members that this class defines describe a camera whose rows are exposed all at once. Const
/// members may be called from several threads at a time. The order of the virtual functions is part
/// of the interface.
class FEATURES_EXPORT CameraExternals {
public:
    virtual ~CameraExternals();

    /// A new object of the same class with the same pose.
    [[nodiscard]] virtual std::unique_ptr<CameraExternals> clone() const = 0;
    /// A point of the world in the camera frame, and back.
    [[nodiscard]] virtual Eigen::Vector3d toCamera(const Eigen::Vector3d& world) const = 0;
    [[nodiscard]] virtual Eigen::Vector3d toWorld(const Eigen::Vector3d& camera) const = 0;
    /// The rotation of the pose while image row `row` was exposed.
    [[nodiscard]] virtual Eigen::Matrix3d rotationRow(double row) const = 0;
    /// The translation of the pose while image row `row` was exposed.
    [[nodiscard]] virtual Eigen::Vector3d translationRow(double /*row*/) const {
        return worldToCamera_.translation;
    }
    /// How far the translation moves from the first row to the last.
    [[nodiscard]] virtual Eigen::Vector3d readoutDisplacement() const {
        return Eigen::Vector3d::Zero();
    }
    /// Whether rows are exposed one after the other.
    [[nodiscard]] virtual bool hasRollingShutter() const = 0;

    /// Sets the pose by the numberOfParameters(type) values given: a rotation vector (the axis, as
    /// long as the angle in radians), a translation, or both. Where they are `relative`, they move
    /// the pose: the rotation is turned further by the vector, the translation is added. What
    /// `type` leaves out stays.
    /// @throws std::invalid_argument if a value is not finite; nothing is changed then.
    virtual void setParameters(const double* values, OptimExtType type, bool relative);
    /// Moves the world, and the camera with it: a point p of it is now at `transform` of p, and is
    /// seen where it was.
    /// @throws std::invalid_argument as the constructor; nothing is changed then.
    virtual void applyTransform(const RigidTransform3D& transform);

    /// The moment at which `ray`, as it is seen then, is exposed.
    [[nodiscard]] virtual double computeLambda(const AbstractCamera& /*camera*/,
                                               const Eigen::Vector3d& /*ray*/) const {
        return 0.0;
    }
    /// Moves a pixel, or a point or ray in the camera frame, from the pose of reference to that of
    /// the moment `lambda`.
    virtual void applyRollingShutterCorrection(Eigen::Vector2d& /*pixel*/,
                                               double /*lambda*/) const {}
    virtual void applyRollingShutterCorrection(Eigen::Vector3d& /*point*/,
                                               double /*lambda*/) const {}
    /// And back.
    virtual void applyInverseRollingShutterCorrection(Eigen::Vector2d& /*pixel*/,
                                                      double /*lambda*/) const {}
    virtual void applyInverseRollingShutterCorrection(Eigen::Vector3d& /*point*/,
                                                      double /*lambda*/) const {}

    /// How many values setParameters() and getParameters() take: of the classes here 0, 3, 3 or 6.
    [[nodiscard]] virtual std::size_t numberOfParameters(OptimExtType type) const = 0;
    /// Writes the values with which setParameters(values, type, false) sets this pose. The angle is
    /// at most pi.
    virtual void getParameters(double* values, OptimExtType type) const = 0;
    /// The derivative of toCamera(world) by the values of a relative setParameters(), at 0: 3 x
    /// numberOfParameters(type) values, row by row.
    virtual void pointJacobian(const Eigen::Vector3d& world, OptimExtType type,
                               double* jacobian) const = 0;

    /// One line without its end: the pose as rotation vector and translation. Numbers are written
    /// as the stream is set.
    virtual void print(std::ostream& out) const;
    /// Whether `other` is of the same class and has exactly the same pose.
    [[nodiscard]] virtual bool equal(const CameraExternals& other) const;

    /// The projection centre, in the world, while image row `row` was exposed.
    [[nodiscard]] virtual Eigen::Vector3d centreRow(double row) const = 0;

    [[nodiscard]] const RigidTransform3D& worldToCamera() const noexcept { return worldToCamera_; }
    /// The rotation as axis times angle in radians, the angle at most pi.
    [[nodiscard]] Eigen::Vector3d rotationVector() const;

protected:
    /// @throws std::invalid_argument if `worldToCamera` is not finite, or its rotation is not one
    ///         to 1e-6 (orthonormal, determinant 1). Rounding of that size is taken out.
    explicit CameraExternals(const RigidTransform3D& worldToCamera);
    CameraExternals(const CameraExternals&) = default;
    CameraExternals& operator=(const CameraExternals&) = default;

private:
    RigidTransform3D worldToCamera_;
};

}  // namespace marlo
