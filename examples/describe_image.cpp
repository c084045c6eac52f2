// SPDX-License-Identifier: BSD-3-Clause
#include <libfeatures/features.h>

#include <iostream>

int main() {
    marlo::FloatImage image(240, 320);  // height x width, values from 0 to 1
    for (int y = 0; y < 240; ++y) {
        for (int x = 0; x < 320; ++x) {  // an oval spot at x = 100.25, y = 80, on a slope
            const float u = (static_cast<float>(x) - 100.25F) / 5.0F;
            const float v = (static_cast<float>(y) - 80.0F) / 3.0F;
            image(y, x) = 0.6F / (1 + u * u + v * v) + 0.001F * static_cast<float>(x);
        }
    }
    marlo::registerMainFeatureDetectors();
    marlo::registerMainDescriptorExtractors();
    marlo::registerMainKeypointSelectors();
    marlo::registerMainTransforms();
    marlo::FeaturesController controller("SIFT", "SIFT", "TOP", "Default");
    controller.setFeatureSetParams(1.0, 240, 320, 2);  // unscaled image; the 2 strongest keypoints
    std::vector<marlo::Keypoint> keypoints;
    marlo::DescMat descriptors;
    controller.process(image, keypoints, descriptors);
    for (const marlo::Keypoint& keypoint : keypoints) std::cout << keypoint << '\n';
    std::cout << descriptors.rows << " rows of " << descriptors.cols << " floats\n";
}
