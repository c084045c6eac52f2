// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "support/desc_mat.h"

namespace marlo::bench {

/// The photographs in a folder, by name. @throws std::runtime_error if there are fewer than two.
std::vector<std::string> photographsIn(const std::string& folder);

/// All keypoints of a photograph, in its pixels, and their SIFT rows; keypoints without a finite
/// row are left out.
struct DescribedPhotograph {
    int width = 0;
    int height = 0;
    std::vector<Keypoint> keypoints;
    DescMat rows;  ///< keypoints.size() x 128 floats
};

/// Photographs of a megapixel or less are enlarged twice first, as the library advises.
/// @throws std::runtime_error if it cannot be read.
DescribedPhotograph describePhotograph(const std::string& path);

/// Which keypoints a new selector of that key keeps, in its order, set up as FeaturesController
/// does; an empty key stands for none, which keeps all. "Default" ignores `count`.
/// @throws std::runtime_error as the selector does.
std::vector<unsigned int> selectKeypoints(const DescribedPhotograph& photograph,
                                          const std::string& selector, std::size_t count);

}  // namespace marlo::bench
