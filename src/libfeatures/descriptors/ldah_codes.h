// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string_view>

#include "libfeatures/features_export.h"
#include "support/desc_mat.h"

namespace marlo {

/// 16 hexadecimal digits that stand for the tables that this library makes LDAH rows with. Rows
/// can be compared only if the libraries that made them say the same, so a host that stores rows
/// stores this with them. The text is a constant of the library, followed by a zero.
FEATURES_EXPORT std::string_view ldahTablesIdentifier();

/// Makes LDAH rows from SIFT rows: `ldah` becomes a matrix of its own with one row of the LDAH form
/// for each row of `sift`. They are the rows, bit for bit, that an LDAH extractor makes for the
/// same keypoints.
///
/// Bit j of a row is set where P_j . d + t_j is 0 or less, d being the SIFT row, and P and t the
/// library's tables: 128 directions, each orthogonal to all others, with an offset for each. Sums
/// are formed in single precision and in a fixed order. A row of NaN gives a row of zeros.
///
/// `sift` may be a view, with rows at any address and any number of bytes apart; `ldah` may be the
/// same object, or hold what `sift` views. Runs on OpenMP threads; the result has the same bits for
/// any number of them and on any processor.
/// @throws std::invalid_argument unless `sift` has rows of 128 floats or no rows, std::bad_alloc if
///         there is not enough memory. `ldah` is unchanged in both cases.
FEATURES_EXPORT void ldahRowsFromSift(const DescMat& sift, DescMat& ldah);

}  // namespace marlo
