// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"
#include "support/desc_mat.h"

namespace marlo {

/// The Euclidean distance of two rows of floats, in single precision.
///
/// Both are matrices of one row of type DescMat::Float and of the same width, usually views that
/// DescMat::row() gave. Squared differences are added up in 16 partial sums, column c in sum
/// c mod 16, which are then folded in halves (i and i + 8, i and i + 4 ...); the square root of the
/// total is the distance. The result has the same bits on any processor, is exactly 0 for equal
/// finite rows, the same both ways round, and NaN if a row holds a NaN.
/// @throws std::invalid_argument unless both are single rows of floats of the same width.
[[nodiscard]] FEATURES_EXPORT float cvSiftDistance(const DescMat& row1, const DescMat& row2);

}  // namespace marlo
