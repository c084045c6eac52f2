// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <memory>

#include "libfeatures/features_export.h"
#include "support/cameras/abstract_camera.h"
#include "support/cameras/camera_externals.h"

namespace marlo {

/// A calibrated camera: what it sees at which pixel, and where it stands. It owns copies of both
/// parts, so a copy of a CalibCamera is independent of it.
///
///     const auto camera = std::make_shared<CalibCamera>(
///         CameraPerspective(4000, 3000, {3000.0, 3000.0, 1999.5, 1499.5}));
class FEATURES_EXPORT CalibCamera {
public:
    /// A camera in the frame of the world: no rotation, no translation.
    explicit CalibCamera(const AbstractCamera& internals);
    CalibCamera(const AbstractCamera& internals, const CameraExternals& externals);
    CalibCamera(const CalibCamera& other);
    CalibCamera& operator=(const CalibCamera& other);
    ~CalibCamera();

    [[nodiscard]] const AbstractCamera& internals() const noexcept { return *internals_; }
    [[nodiscard]] AbstractCamera& internals() noexcept { return *internals_; }
    [[nodiscard]] const CameraExternals& externals() const noexcept { return *externals_; }
    [[nodiscard]] CameraExternals& externals() noexcept { return *externals_; }

private:
    std::unique_ptr<AbstractCamera> internals_;
    std::unique_ptr<CameraExternals> externals_;
};

/// The ray, of length 1 and in the camera frame (x right, y down, z forward), that is seen at
/// `pixel` (column, row; pixel centres at integers). The pose and a rolling shutter do not enter.
/// False, and three times NaN in `ray`, if there is none: `pixel` is not finite, or lies where no
/// direction of the field of view is seen.
FEATURES_EXPORT bool inverseTransform(const CalibCamera& camera, const Eigen::Vector2d& pixel,
                                      Eigen::Vector3d& ray);

/// The other way: the pixel at which a direction of any length in the camera frame is seen. False,
/// and twice NaN in `pixel`, if it is not seen.
FEATURES_EXPORT bool transform(const CalibCamera& camera, const Eigen::Vector3d& ray,
                               Eigen::Vector2d& pixel);

}  // namespace marlo
