// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <vector>

#include "libfeatures/base/keypoint.h"
#include "support/image.h"

namespace marlo::app {

/// How far the image's curvatures at a keypoint, at the keypoint's own scale, are from those of an
/// edge: (larger / smaller principal curvature); infinite where they differ in sign, as in a
/// saddle. 1 is a round blob. `x`, `y` and `scale` are in pixels of `image`.
double curvatureRatio(const FloatImage& image, double x, double y, double scale);

/// Removes keypoints whose curvatureRatio() is above `most`: along an edge a position is known in
/// one direction only, so matches of such keypoints slide. The test is D. Lowe's (2004, section
/// 4.1), on the image's Hessian instead of that of differences of it. `imageScale`: what keypoints'
/// positions and scales are multiplied by to be pixels of `image`.
void removeEdges(const FloatImage& image, double imageScale, double most,
                 std::vector<Keypoint>& keypoints);

}  // namespace marlo::app
