// SPDX-License-Identifier: BSD-3-Clause
#include <libfeatures/features.h>

#include <iostream>

int main() {
    marlo::registerMainKeypointSelectors();
    auto selector = marlo::extensibleFactoryInstance<marlo::IKeypointSelector>().create("TOP");
    selector->setNumberOfKeypoints(2);
    //                                             x   y  scale  angle  response  octave layer
    const std::vector<marlo::Keypoint> detected{{10, 20, 1.6F, +0.5F, 0.02F, 0, 1},
                                                {30, 15, 2.5F, -1.0F, 0.08F, 0, 2},
                                                {25, 40, 3.2F, +3.0F, 0.05F, 1, 1}};
    std::vector<marlo::Keypoint> strongest;
    selector->select(detected, strongest);
    for (const marlo::Keypoint& keypoint : strongest) std::cout << keypoint << '\n';
}
