// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <vector>

#include "libfeatures/base/d_match.h"
#include "libfeatures/features_export.h"

namespace marlo {

/// Turns indices into subsets of rows back into indices of the full matrices: after
/// IDescriptorMatcher::matchSubset() with the same two lists, every match names rows of the
/// matrices that the subsets were taken from. Distances stay.
///
/// Every `queryIndex` must be below `idx1.size()` and every `trainIndex` below `idx2.size()`;
/// checked in debug builds of this library only.
FEATURES_EXPORT void updateWrappedIndices(std::vector<DMatch>& matches,
                                          const std::vector<unsigned int>& idx1,
                                          const std::vector<unsigned int>& idx2);

/// Drops every match of which either point is of no use: with a component that is not finite, or
/// the zero vector (of either sign). `points1[i]` belongs to query row i, `points2[i]` to train row
/// i. The others keep their order.
///
/// Every index of a match must have its point; checked in debug builds of this library only.
FEATURES_EXPORT void removeInfiniteMatches(std::vector<DMatch>& matches,
                                           const std::vector<Eigen::Vector3d>& points1,
                                           const std::vector<Eigen::Vector3d>& points2);

/// The matches whose `distance` is above `threshold`, in their order. The matchers of this library
/// store a score there, so these are the better ones. NaN is above nothing.
[[nodiscard]] FEATURES_EXPORT std::vector<DMatch> copyBestMatches(
    const std::vector<DMatch>& matches, float threshold);

}  // namespace marlo
