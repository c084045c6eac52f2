// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/calib_camera.h"

#include <limits>

#include "support/cameras/camera_externals_global_shutter.h"

namespace marlo {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

}  // namespace

CalibCamera::CalibCamera(const AbstractCamera& internals)
    : CalibCamera(internals, CameraExternalsGlobalShutter()) {}

CalibCamera::CalibCamera(const AbstractCamera& internals, const CameraExternals& externals)
    : internals_(internals.clone()), externals_(externals.clone()) {}

CalibCamera::CalibCamera(const CalibCamera& other)
    : CalibCamera(other.internals(), other.externals()) {}

CalibCamera& CalibCamera::operator=(const CalibCamera& other) {
    CalibCamera copy(other);
    internals_.swap(copy.internals_);
    externals_.swap(copy.externals_);
    return *this;
}

CalibCamera::~CalibCamera() = default;

bool inverseTransform(const CalibCamera& camera, const Eigen::Vector2d& pixel,
                      Eigen::Vector3d& ray) {
    if (camera.internals().unproject(pixel, ray)) return true;
    ray.setConstant(kNaN);  // whatever the camera's class has left there
    return false;
}

bool transform(const CalibCamera& camera, const Eigen::Vector3d& ray, Eigen::Vector2d& pixel) {
    if (camera.internals().project(ray, pixel)) return true;
    pixel.setConstant(kNaN);
    return false;
}

}  // namespace marlo
