// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <iosfwd>

#include "libfeatures/features_export.h"

namespace marlo {

/// A pair of descriptor rows that belong together.
struct FEATURES_EXPORT DMatch {
    DMatch() = default;
    DMatch(unsigned int query, unsigned int train, float score)
        : queryIndex(query), trainIndex(train), distance(score) {}

    unsigned int queryIndex = 0;  ///< row in the query matrix
    unsigned int trainIndex = 0;  ///< row in the train (reference) matrix
    /// What the matcher says of the pair. The matchers of this library store a score here: larger
    /// is better.
    float distance = 0.0F;
};

/// Whether two matches pair the same rows. The distance is not compared.
[[nodiscard]] FEATURES_EXPORT bool operator==(const DMatch& a, const DMatch& b) noexcept;
[[nodiscard]] FEATURES_EXPORT bool operator!=(const DMatch& a, const DMatch& b) noexcept;

/// Prints "Match queryIndex, trainIndex, distance" and a line break.
FEATURES_EXPORT std::ostream& operator<<(std::ostream& out, const DMatch& match);

}  // namespace marlo
