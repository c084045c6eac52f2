// SPDX-License-Identifier: BSD-3-Clause
#include "utilities/hand_written_cameras.h"

#include <utility>

namespace marlo::test {

using Eigen::Vector2d;
using Eigen::Vector3d;

PlainCamera::PlainCamera(std::vector<double> parameters, int width, int height)
    : AbstractCamera(width, height, std::move(parameters)) {}

std::unique_ptr<AbstractCamera> PlainCamera::clone() const {
    return std::make_unique<PlainCamera>(*this);
}

QString PlainCamera::modelName() const {
    return QStringLiteral("plain");
}

double PlainCamera::pixelsPerRadian(double angle) const {
    return 10.0 * angle + 1.0;
}

bool PlainCamera::project(const Vector3d& direction, Vector2d& pixel) const {
    if (!(direction.z() > 0.0)) return false;
    pixel = direction.head<2>() / direction.z();
    return true;
}

bool PlainCamera::unproject(const Vector2d& pixel, Vector3d& ray) const {
    if (!(pixel.x() >= 0.0)) return false;
    ray = {pixel.x(), pixel.y(), 1.0};
    return true;
}

bool PlainCamera::projectionJacobian(const Vector3d& /*direction*/,
                                     Eigen::Matrix<double, 2, 3>& /*jacobian*/) const {
    return false;
}

bool PlainCamera::parameterJacobian(const Vector3d& /*direction*/, double* /*jacobian*/) const {
    return false;
}

QString PlainCamera::parameterName(std::size_t index) const {
    return QStringLiteral("p%1").arg(index);
}

void PlainCamera::setParameters(const double* values) {
    storeParameters(values);
}

double PlainCamera::maxAngle() const {
    return 1.5;
}

Eigen::Matrix3d PlainCamera::calibrationMatrix() const {
    return Eigen::Matrix3d::Identity();
}

Vector2d PlainCamera::pixelDifference(const Vector2d& a, const Vector2d& b) const {
    return a - b;
}

bool PlainCamera::equal(const AbstractCamera& other) const {
    return hasSameState(other);
}

bool PlainCamera::unprojectionJacobian(const Vector2d& /*pixel*/,
                                       Eigen::Matrix<double, 3, 2>& /*jacobian*/) const {
    return false;
}

PlainExternals::PlainExternals(const RigidTransform3D& worldToCamera)
    : CameraExternals(worldToCamera) {}

std::unique_ptr<CameraExternals> PlainExternals::clone() const {
    return std::make_unique<PlainExternals>(*this);
}

Vector3d PlainExternals::toCamera(const Vector3d& world) const {
    return worldToCamera().rotation * world + worldToCamera().translation;
}

Vector3d PlainExternals::toWorld(const Vector3d& camera) const {
    return worldToCamera().rotation.transpose() * (camera - worldToCamera().translation);
}

Eigen::Matrix3d PlainExternals::rotationRow(double /*row*/) const {
    return worldToCamera().rotation;
}

bool PlainExternals::hasRollingShutter() const {
    return false;
}

std::size_t PlainExternals::numberOfParameters(OptimExtType /*type*/) const {
    return 0;
}

void PlainExternals::getParameters(double* /*values*/, OptimExtType /*type*/) const {}

void PlainExternals::pointJacobian(const Vector3d& /*world*/, OptimExtType /*type*/,
                                   double* /*jacobian*/) const {}

Vector3d PlainExternals::centreRow(double /*row*/) const {
    return toWorld(Vector3d::Zero());
}

}  // namespace marlo::test
