// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/features_export.h"

namespace marlo {

/// The position of a keypoint as the column vector (x, y).
[[nodiscard]] FEATURES_EXPORT Eigen::Vector2f keypoint2p2(const Keypoint& keypoint);

namespace keypoint {

/// Fills `coords` with the position of every keypoint, in order; its old content is dropped.
FEATURES_EXPORT void keypointsToKeypointCoord(const std::vector<Keypoint>& keypoints,
                                              std::vector<Eigen::Vector2f>& coords);

}  // namespace keypoint
}  // namespace marlo
