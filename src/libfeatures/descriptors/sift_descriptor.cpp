// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/sift_descriptor.h"

#include <stdexcept>

#include "libfeatures/descriptors/detail/describe_keypoints.h"
#include "libfeatures/descriptors/detail/descriptor_kernels.h"

namespace marlo {

void insertDescriptorsCurrentScaleAndOctave(DescMat& descriptors,
                                            const std::vector<Keypoint>& keypoints,
                                            float octaveFactor, int layer,
                                            const FloatImage& magnitude,
                                            const FloatImage& orientation, float imageScale,
                                            unsigned char octave, bool sift) {
    const detail::GradientSource gradients(magnitude, orientation);
    detail::requireDescribable(sift);
    const bool fits = descriptors.rows == detail::rowCount(keypoints) &&
                      (keypoints.empty() || (descriptors.type() == DescMat::Float &&
                                             descriptors.cols == detail::kDescriptorSize));
    if (!fits) {
        throw std::invalid_argument("The descriptor matrix does not have one row per keypoint.");
    }
    constexpr float kMostDirection = 9.424778F;  // 3 pi: whatever turn the directions begin at
    detail::describeKeypoints({{octave, layer, octaveFactor, kMostDirection, gradients}}, keypoints,
                              imageScale, descriptors);
}

}  // namespace marlo
