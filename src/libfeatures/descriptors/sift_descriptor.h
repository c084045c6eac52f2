// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/features_export.h"
#include "support/desc_mat.h"
#include "support/image.h"

namespace marlo {

/// Describes the keypoints of one level of a scale space.
///
/// Computes row i of `descriptors` for every keypoint i whose `octave` and `layer` are those given,
/// and leaves all other rows alone. `magnitude` and `orientation` (radians, [-pi, pi],
/// counter-clockwise as displayed; see gradOriImages()) are the gradient images of that level, both
/// of the octave's size. Keypoint positions and scales times `imageScale` / `octaveFactor` are
/// pixels of the octave.
///
/// A row is a histogram of gradient directions in 4 x 4 cells of 3 sigma, 8 directions each, turned
/// with the keypoint: value (rowCell * 4 + colCell) * 8 + direction. Values are cut at 0.2 times
/// the norm and the row is scaled to length 1. (D. Lowe, IJCV 60(2), 2004, sec. 6; here the
/// fraction of a pixel between keypoint and window centre is added after the rotation, unrotated.)
/// A keypoint without any gradient in its window gets NaN, as does one of no finite position or
/// size. Unless `sift`, the row is the 128 bits that ldahRowsFromSift() makes of these values: all
/// clear where they are NaN. Samples whose direction is not a number, or lies beyond 3 pi on either
/// side, are left out. Angles beyond 50 radians are first reduced to [-pi, pi].
///
/// `descriptors` has been sized by allocateDescriptors() for these keypoints and for `sift`.
/// Runs on OpenMP threads; the result has the same bits for any number of them and on any
/// processor.
/// @throws std::invalid_argument if the images differ in size or `descriptors` does not have the
///         form and number of rows; std::length_error if there are more keypoints than a matrix
///         can have rows. Nothing has been written then.
FEATURES_EXPORT void insertDescriptorsCurrentScaleAndOctave(
    DescMat& descriptors, const std::vector<Keypoint>& keypoints, float octaveFactor, int layer,
    const FloatImage& magnitude, const FloatImage& orientation, float imageScale,
    unsigned char octave, bool sift);

}  // namespace marlo
