// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/selectors/feature_selector_anms_base.h"

namespace marlo::detail {

using AnmsRecord = KeypointSelectorAnmsBase::SelectionRecord;

/// Which records a keypoint p is suppressed by: the first of the list, as long as
enum class AnmsRule {
    multiplied,  ///< p's response < record's response * c
    divided,     ///< record's response >= p's response * (1 / c), found by bisection
    /// As `divided`. A keypoint at the place of a stronger one gets the radius of the last record
    /// that it is suppressed by instead of 0, and records get positions.
    coincident,
    rounded,  ///< record's response >= p's response / (1 / c), rounded up to a whole number
};

/// Gives each of the keypoints, strongest first, its radius by the records before it, and appends a
/// record for it.
void appendAnmsRecords(AnmsRule rule, float robustness, const std::vector<Keypoint>& sorted,
                       std::vector<AnmsRecord>& records);

/// By radius, then by response, larger first. Records that are equal in both keep their order.
void sortLargestRadiusFirst(std::vector<AnmsRecord>& records);

}  // namespace marlo::detail
