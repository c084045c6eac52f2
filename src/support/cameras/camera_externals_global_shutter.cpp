// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/camera_externals_global_shutter.h"

#include <algorithm>

namespace marlo {
CameraExternalsGlobalShutter::CameraExternalsGlobalShutter(const RigidTransform3D& worldToCamera)
    : CameraExternals(worldToCamera) {}

std::unique_ptr<CameraExternals> CameraExternalsGlobalShutter::clone() const {
    return std::make_unique<CameraExternalsGlobalShutter>(*this);
}

Eigen::Vector3d CameraExternalsGlobalShutter::toCamera(const Eigen::Vector3d& world) const {
    return worldToCamera().rotation * world + worldToCamera().translation;
}

Eigen::Vector3d CameraExternalsGlobalShutter::toWorld(const Eigen::Vector3d& camera) const {
    return worldToCamera().rotation.transpose() * (camera - worldToCamera().translation);
}

Eigen::Matrix3d CameraExternalsGlobalShutter::rotationRow(double /*row*/) const {
    return worldToCamera().rotation;
}

bool CameraExternalsGlobalShutter::hasRollingShutter() const {
    return false;
}

std::size_t CameraExternalsGlobalShutter::numberOfParameters(OptimExtType type) const {
    return (changesRotation(type) ? 3U : 0U) + (changesTranslation(type) ? 3U : 0U);
}

void CameraExternalsGlobalShutter::getParameters(double* values, OptimExtType type) const {
    const auto append = [&values](const Eigen::Vector3d& v) {
        values = std::copy(v.data(), v.data() + 3, values);
    };
    if (changesRotation(type)) append(rotationVector());
    if (changesTranslation(type)) append(worldToCamera().translation);
}

void CameraExternalsGlobalShutter::pointJacobian(const Eigen::Vector3d& world, OptimExtType type,
                                                 double* jacobian) const {
    // exp(w) p = p + w x p to first order.
    const Eigen::Vector3d p = worldToCamera().rotation * world;
    const double rotation[3][3] = {
        {0.0, p.z(), -p.y()}, {-p.z(), 0.0, p.x()}, {p.y(), -p.x(), 0.0}};
    const double translation[3][3] = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}};
    for (int row = 0; row < 3; ++row) {
        if (changesRotation(type)) jacobian = std::copy_n(rotation[row], 3, jacobian);
        if (changesTranslation(type)) jacobian = std::copy_n(translation[row], 3, jacobian);
    }
}

Eigen::Vector3d CameraExternalsGlobalShutter::centreRow(double /*row*/) const {
    return toWorld(Eigen::Vector3d::Zero());
}

}  // namespace marlo
