// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <vector>

#include "libfeatures/base/keypoint.h"
#include "support/desc_mat.h"
#include "support/detail/gradient_source.h"

namespace marlo::detail {

/// The gradients of one level of a scale space, and which keypoints they describe.
struct LevelGradients {
    unsigned char octave = 0;
    int layer = 0;
    float octaveFactor = 1.0F;  ///< pixels of the image per pixel of the octave
    /// Directions lie between this and its negative; those that do not are left out.
    float mostDirection = 3.1415927F;
    GradientSource gradients;
};

/// The number of rows for `keypoints`. @throws std::length_error if a matrix cannot have as many.
int rowCount(const std::vector<Keypoint>& keypoints);

/// Computes the rows of all keypoints that belong to one of `levels`, in the form that
/// `descriptors` has been given for `type`; see insertDescriptorsCurrentScaleAndOctave(). All other
/// rows stay as they are. Keypoints are taken in the order in which they lie in the images,
/// whatever their order in the list.
void describeKeypoints(const std::vector<LevelGradients>& levels,
                       const std::vector<Keypoint>& keypoints, float imageScale,
                       DescriptorType type, DescMat& descriptors);

}  // namespace marlo::detail
