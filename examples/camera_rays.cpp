// SPDX-License-Identifier: BSD-3-Clause
#include <libfeatures/features.h>

#include <iostream>

int main() {
    // fx, fy, cx, cy, k1, k2, p1, p2, k3 as OpenCV has them
    const auto camera = std::make_shared<marlo::CalibCamera>(marlo::CameraPerspective(
        4000, 3000, {2900.5, 2895.25, 2011.25, 1488.5, -0.28, 0.09, 0.0007, -0.0004, -0.012}));
    const std::vector<marlo::Keypoint> keypoints = {{2011.25F, 1488.5F}, {100.0F, 200.0F}};
    std::vector<Eigen::Vector3d> rays;
    marlo::keypoint::keypointsToHomPoints(keypoints, camera, rays);
    for (const Eigen::Vector3d& ray : rays) std::cout << ray.transpose() << '\n';
}
