// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <vector>

#include "libfeatures/base/d_match.h"
#include "libfeatures/base/detail/two_nearest.h"

namespace marlo::detail {

/// Appends the match of query row `queryIndex` to its nearest train row, if the ratio test accepts
/// it: no further than `limit`, a second-nearest that is not at distance 0, and a ratio below
/// `distanceFraction`.
template <typename Distance>
void appendIfDistinct(const TwoNearest<Distance>& nearest, std::uint32_t queryIndex, Distance limit,
                      float distanceFraction, std::vector<DMatch>& matches) {
    const bool found = nearest.index != TwoNearest<Distance>::kNoIndex;
    if (!found || nearest.best > limit || nearest.second == 0) return;
    const float ratio = static_cast<float>(nearest.best) / static_cast<float>(nearest.second);
    if (distanceFraction > ratio) matches.emplace_back(queryIndex, nearest.index, 1.0F - ratio);
}

/// Larger distances (scores) first, then larger query indices, then larger train indices.
void sortBestFirst(std::vector<DMatch>& matches);

}  // namespace marlo::detail
