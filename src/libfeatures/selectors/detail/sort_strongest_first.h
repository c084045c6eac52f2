// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <vector>

#include "libfeatures/base/keypoint.h"

namespace marlo::detail {

/// Sorts by Keypoint::operator>. Keypoints that it cannot tell apart keep their order, so the
/// result is the same with every standard library. NaN may stand anywhere: which order comes out
/// is then unspecified, but it is a permutation of the input and the same on every run.
void sortStrongestFirst(std::vector<Keypoint>& keypoints);

}  // namespace marlo::detail
