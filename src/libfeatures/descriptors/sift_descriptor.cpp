// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/sift_descriptor.h"

#include <stdexcept>

#include "libfeatures/descriptors/detail/describe_keypoints.h"
#include "libfeatures/descriptors/detail/descriptor_kernels.h"
#include "libfeatures/descriptors/detail/ldah_kernels.h"

namespace marlo {
namespace {

bool isOfForm(const DescMat& descriptors, bool sift) {
    if (sift) {
        return descriptors.type() == DescMat::Float && descriptors.cols == detail::kDescriptorSize;
    }
    return descriptors.type() == DescMat::Byte && descriptors.cols == detail::kLdahBytes;
}

}  // namespace

void insertDescriptorsCurrentScaleAndOctave(DescMat& descriptors,
                                            const std::vector<Keypoint>& keypoints,
                                            float octaveFactor, int layer,
                                            const FloatImage& magnitude,
                                            const FloatImage& orientation, float imageScale,
                                            unsigned char octave, bool sift) {
    const detail::GradientSource gradients(magnitude, orientation);
    const bool fits = descriptors.rows == detail::rowCount(keypoints) &&
                      (keypoints.empty() || isOfForm(descriptors, sift));
    if (!fits) {
        throw std::invalid_argument("The descriptor matrix does not have one row per keypoint.");
    }
    constexpr float kMostDirection = 9.424778F;  // 3 pi: whatever turn the directions begin at
    detail::describeKeypoints({{octave, layer, octaveFactor, kMostDirection, gradients}}, keypoints,
                              imageScale, sift ? DescriptorType::SIFT : DescriptorType::LDAH,
                              descriptors);
}

}  // namespace marlo
