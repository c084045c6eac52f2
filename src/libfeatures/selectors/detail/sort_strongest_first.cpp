// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/detail/sort_strongest_first.h"

#include <algorithm>
#include <functional>

namespace marlo::detail {

void sortStrongestFirst(std::vector<Keypoint>& keypoints) {
    // A merge sort compares only within the range whatever the answers are. std::sort relies on
    // them being consistent, which NaN is not, and would run over the end of the list.
    std::stable_sort(keypoints.begin(), keypoints.end(), std::greater<>());
}

}  // namespace marlo::detail
