// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "support/desc_mat.h"
#include "support/image.h"

namespace marlo::tools {

/// The strongest keypoints of a photograph, strongest first, and their SIFT rows; keypoints without
/// a finite row are left out.
struct DescribedImage {
    std::vector<Keypoint> keypoints;
    DescMat rows;  ///< keypoints.size() x 128 floats
};

/// Every photograph of a folder, by name. @throws std::runtime_error if there is none.
std::vector<std::string> photographsIn(const std::string& folder);

/// A photograph in grey, values from 0 to 1, made smaller where its longer side has more than
/// `longestSide` pixels. @throws std::runtime_error if it cannot be read.
FloatImage readPhotograph(const std::string& path, int longestSide);

DescribedImage describe(const FloatImage& image, int mostKeypoints);

/// The row of keypoint i.
const float* rowOf(const DescribedImage& image, int i);

}  // namespace marlo::tools
