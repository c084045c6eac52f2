// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/transforms/default_transform.h"

namespace marlo {

const ByteImage& DefaultTransform::transformImage(const ByteImage& image) {
    return image;
}

const FloatImage& DefaultTransform::transformImage(const FloatImage& image) {
    return image;
}

void DefaultTransform::transformKeypointsBack(const std::vector<Keypoint>& transformed,
                                              std::vector<Keypoint>& forDescriptors,
                                              std::vector<Keypoint>& output, int /*width*/,
                                              int /*height*/) {
    forDescriptors = transformed;
    output = transformed;
}

}  // namespace marlo
