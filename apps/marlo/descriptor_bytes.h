// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "support/desc_mat.h"

namespace marlo::app {

/// SIFT rows whose Euclidean distances are in proportion to the Hellinger distances of the given
/// ones, which tell right from wrong matches better: each element becomes the square root of its
/// share in the sum of its row. `floats` is N x 128 floats, and so is the result. Rows that point
/// nowhere, of NaN or of zeros, stay as they are. R. Arandjelovic and A. Zisserman, Three things
/// everyone should know to improve object retrieval, CVPR 2012, section 3.
/// @throws std::invalid_argument unless `floats` has rows of 128 floats or no rows, std::bad_alloc
///         if there is not enough memory.
[[nodiscard]] DescMat hellingerRows(const DescMat& floats);

/// SIFT rows in COLMAP's form: clamp(round(512 v), 0, 255), v being an element of hellingerRows().
/// `floats` is N x 128 floats, the result N x 128 bytes, row i from row i.
///
/// Elements keep their places: bin (4 row + column) * 8 + orientation is the same in COLMAP's
/// database. Rows that point nowhere, of NaN or of zeros, become rows of zeros.
/// @throws std::invalid_argument unless `floats` has rows of 128 floats or no rows, std::bad_alloc
///         if there is not enough memory.
[[nodiscard]] DescMat siftBytesForColmap(const DescMat& floats);

/// As siftBytesForColmap(), but cut off to the next smaller integer instead of rounded, as OpenMVG
/// does it.
[[nodiscard]] DescMat siftBytesForOpenMvg(const DescMat& floats);

}  // namespace marlo::app
