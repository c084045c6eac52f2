// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>

#include "support/cameras/camera_fisheye.h"
#include "support/cameras/camera_perspective.h"

/// The camera models by their formulas, in extended precision and without looking for the ends of
/// their fields of view.
namespace marlo::reference {

/// For directions with z > 0.
Eigen::Vector2d slowProject(const BrownConradyParameters& p, const Eigen::Vector3d& direction);
/// For directions off the axis.
Eigen::Vector2d slowProject(const FisheyeParameters& p, const Eigen::Vector3d& direction);

/// Where the smallest eigenvalue of the derivative of the distortion, by differences, first is not
/// positive: along 36 directions, in steps of `step`, up to `end`. Infinite if nowhere.
double slowFoldRadius(const BrownConradyParameters& p, double step, double end);

}  // namespace marlo::reference
