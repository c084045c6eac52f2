// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <vector>

#include "libfeatures/descriptors/descriptor_brief.h"

namespace marlo::detail {

/// Computes the descriptors of Brief: row i of `rows` (64 bytes each), that of keypoints[i], by
/// patterns[rotations[i]]. See Brief::compute().
void computeBriefRows(const ByteImage& image, const std::vector<Keypoint>& keypoints,
                      const std::vector<Brief::Pattern>& patterns,
                      const std::vector<std::uint8_t>& rotations, DescMat& rows);

}  // namespace marlo::detail
