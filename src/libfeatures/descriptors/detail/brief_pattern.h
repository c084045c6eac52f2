// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <vector>

#include "libfeatures/descriptors/descriptor_brief.h"

namespace marlo::detail {

constexpr int kBriefRotations = 72;
/// No point of a pattern, turned and rounded, is farther from the keypoint in either direction.
constexpr int kBriefReach = 24;

/// The pairs of points of Brief as they are drawn, the same on every platform.
Brief::Pattern drawBriefPattern();

/// The drawn pattern turned by 0, 5, 10 ... 355 degrees from the x axis towards the y axis.
std::vector<Brief::Pattern> rotatedBriefPatterns();

}  // namespace marlo::detail
