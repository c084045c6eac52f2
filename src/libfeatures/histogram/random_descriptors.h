// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"
#include "support/desc_mat.h"

namespace marlo {

/// Makes `descriptors` a matrix of `rows` SIFT rows as photographs have them on the whole, drawn at
/// random, always the same: row i has the same bits on every processor, in every process and
/// however many rows there are. They are what FeatureHistogram compares SIFT rows with.
///
/// It runs on the calling thread. Rows have unit length and elements from 0 to about 0.2, as a
/// descriptor's; docs/similarity.md says how they are drawn, and how closely they follow real ones.
/// @throws std::length_error if `rows` is negative, std::bad_alloc if there is not enough memory.
///         `descriptors` is unchanged in both cases.
FEATURES_EXPORT void fillRandomSift(DescMat& descriptors, int rows);

/// Makes `descriptors` a matrix of `rows` LDAH rows in the same way: those that ldahRowsFromSift()
/// makes of random SIFT rows. They change only if the library's LDAH tables do.
/// @throws as fillRandomSift().
FEATURES_EXPORT void fillRandomLdah(DescMat& descriptors, int rows);

}  // namespace marlo
