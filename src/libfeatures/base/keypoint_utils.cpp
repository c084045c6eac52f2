// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/keypoint_utils.h"

#include <stdexcept>

#include "support/cameras/calib_camera.h"
#include "support/log.h"

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

// The signature is the interface's: the camera is shared for as long as the call takes.
void keypointsToHomPoints(const std::vector<Keypoint>& keypoints,
                          std::shared_ptr<CalibCamera> camera,  // NOLINT(performance-*)
                          std::vector<Eigen::Vector3d>& rays) {
    if (!camera) throw std::invalid_argument("keypointsToHomPoints: there is no camera");
    rays.clear();
    rays.reserve(keypoints.size());
    Eigen::Vector3d ray;
    for (const Keypoint& keypoint : keypoints) {
        const Eigen::Vector2d point = keypoint2p2(keypoint).cast<double>();
        if (!inverseTransform(*camera, point, ray)) {
            log::LogStreamer(log::defaultLogSource(), log::Level::Information, {},
                             {"keypoint_utils", 37})
                << "Inverse transform for point " << point << " failed";
        }
        rays.push_back(ray);
    }
}

}  // namespace keypoint
}  // namespace marlo
