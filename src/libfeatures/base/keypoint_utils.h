// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <memory>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/features_export.h"

namespace marlo {

class CalibCamera;

/// The position of a keypoint as the column vector (x, y).
[[nodiscard]] FEATURES_EXPORT Eigen::Vector2f keypoint2p2(const Keypoint& keypoint);

namespace keypoint {

/// Fills `coords` with the position of every keypoint, in order; its old content is dropped.
FEATURES_EXPORT void keypointsToKeypointCoord(const std::vector<Keypoint>& keypoints,
                                              std::vector<Eigen::Vector2f>& coords);

/// Fills `rays` with the ray on which each keypoint lies, in order; its old content is dropped.
/// Rays have length 1 and are in the camera frame: x to the right, y down, z forward
/// (inverseTransform() in support/cameras/calib_camera.h). Keypoints must be in the unscaled
/// image that the camera was calibrated for, as the detectors give them.
///
/// Where a keypoint has no ray, three times NaN takes its place and an information line is logged:
/// removeInfiniteMatches() drops the matches of such keypoints.
/// @throws std::invalid_argument if `camera` is null, std::bad_alloc if there is no memory. `rays`
///         keeps its content in the first case.
FEATURES_EXPORT void keypointsToHomPoints(const std::vector<Keypoint>& keypoints,
                                          std::shared_ptr<CalibCamera> camera,
                                          std::vector<Eigen::Vector3d>& rays);

}  // namespace keypoint
}  // namespace marlo
