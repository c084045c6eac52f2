// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/keypoint_utils.h"

namespace marlo {

Eigen::Vector2f keypoint2p2(const Keypoint& keypoint) {
    return {keypoint.x, keypoint.y};
}

namespace keypoint {

void keypointsToKeypointCoord(const std::vector<Keypoint>& keypoints,
                              std::vector<Eigen::Vector2f>& coords) {
    coords.clear();
    coords.reserve(keypoints.size());
    for (const Keypoint& keypoint : keypoints) {
        coords.push_back(keypoint2p2(keypoint));
    }
}

}  // namespace keypoint
}  // namespace marlo
