// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/camera_externals.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <typeinfo>

namespace marlo {
namespace {

Eigen::Matrix3d rotationOf(const Eigen::Vector3d& vector) {
    const double angle = vector.stableNorm();
    if (angle == 0.0) return Eigen::Matrix3d::Identity();
    return Eigen::AngleAxisd(angle, vector / angle).toRotationMatrix();
}

// The rotation nearest to a matrix that is one but for rounding, which would add up otherwise.
Eigen::Matrix3d withoutRounding(const Eigen::Matrix3d& rotation) {
    return Eigen::Quaterniond(rotation).normalized().toRotationMatrix();
}

void check(const RigidTransform3D& transform) {
    constexpr double kTolerance = 1e-6;  // more than rounding to single precision
    const Eigen::Matrix3d& r = transform.rotation;
    if (!r.allFinite() || !transform.translation.allFinite()) {
        throw std::invalid_argument("Invalid camera pose: a value is not finite");
    }
    if ((r * r.transpose() - Eigen::Matrix3d::Identity()).cwiseAbs().maxCoeff() > kTolerance ||
        r.row(0).cross(r.row(1)).dot(r.row(2)) < 0.0) {
        throw std::invalid_argument("Invalid camera pose: the matrix is not a rotation");
    }
}

// A matrix that is exactly a rotation, as the identity is, stays as it is.
Eigen::Matrix3d asRotation(const Eigen::Matrix3d& matrix) {
    return (matrix * matrix.transpose()).isIdentity(1e-15) ? matrix : withoutRounding(matrix);
}

void printVector(std::ostream& out, const Eigen::Vector3d& v) {
    out << '(' << v.x() << ", " << v.y() << ", " << v.z() << ')';
}

}  // namespace

CameraExternals::CameraExternals(const RigidTransform3D& worldToCamera)
    : worldToCamera_(worldToCamera) {
    check(worldToCamera);
    worldToCamera_.rotation = asRotation(worldToCamera.rotation);
}

CameraExternals::~CameraExternals() = default;

void CameraExternals::setParameters(const double* values, OptimExtType type, bool relative) {
    const double* const end =
        values + (changesRotation(type) ? 3 : 0) + (changesTranslation(type) ? 3 : 0);
    if (!std::all_of(values, end, [](double value) { return std::isfinite(value); })) {
        throw std::invalid_argument("Invalid camera pose: a value is not finite");
    }
    if (changesRotation(type)) {
        const Eigen::Matrix3d rotation =
            rotationOf(Eigen::Vector3d(values[0], values[1], values[2]));
        worldToCamera_.rotation =
            relative ? withoutRounding(rotation * worldToCamera_.rotation) : rotation;
        values += 3;
    }
    if (changesTranslation(type)) {
        const Eigen::Vector3d translation(values[0], values[1], values[2]);
        worldToCamera_.translation =
            relative ? worldToCamera_.translation + translation : translation;
    }
}

void CameraExternals::applyTransform(const RigidTransform3D& transform) {
    check(transform);
    // camera = R world + t, and world = M^T (moved - m).
    worldToCamera_.rotation =
        withoutRounding(worldToCamera_.rotation * transform.rotation.transpose());
    worldToCamera_.translation -= worldToCamera_.rotation * transform.translation;
}

void CameraExternals::print(std::ostream& out) const {
    out << "rotation vector ";
    printVector(out, rotationVector());
    out << ", translation ";
    printVector(out, worldToCamera_.translation);
}

bool CameraExternals::equal(const CameraExternals& other) const {
    return typeid(*this) == typeid(other) &&
           worldToCamera_.rotation == other.worldToCamera_.rotation &&
           worldToCamera_.translation == other.worldToCamera_.translation;
}

Eigen::Vector3d CameraExternals::rotationVector() const {
    const Eigen::AngleAxisd angleAxis(worldToCamera_.rotation);
    return angleAxis.angle() * angleAxis.axis();
}

}  // namespace marlo
