// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <vector>

#include "libfeatures/base/keypoint.h"
#include "support/image.h"

namespace marlo::test {

/// The working image of a panorama, pixel by pixel.
ByteImage sphericalWorkingImage(const ByteImage& panorama);
FloatImage sphericalWorkingImage(const FloatImage& panorama);

struct KeypointsBack {
    std::vector<Keypoint> forDescriptors;
    std::vector<Keypoint> output;
};

/// The keypoints of a working image that are kept, as they are and in the panorama.
KeypointsBack sphericalKeypointsBack(const std::vector<Keypoint>& transformed, int width,
                                     int height);

}  // namespace marlo::test
