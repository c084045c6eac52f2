// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"

namespace marlo {

/// Blurs an image in place with an isotropic Gaussian of standard deviation `sigma` pixels.
///
/// `data` is rows x cols, row-major without padding. The kernel is sampled at integers out to
/// ceil(4 sigma) and its weights sum to 1 (computed in double precision, applied in single). At its
/// borders the image is mirrored with the edge pixel repeated (... b a | a b c ...), so a constant
/// image stays constant and no brightness is lost, to rounding. A sigma of 0 changes nothing. A
/// filter that is longer than twice the side of the image is folded to that length, with the same
/// result.
///
/// Runs on OpenMP threads; the result has the same bits for any number of them and on any
/// processor. NaN and infinite pixels spread to all pixels within the kernel's reach.
/// @throws std::invalid_argument if `rows` or `cols` is negative or above 2^28 or `sigma` is
///         negative, NaN or infinite; std::bad_alloc if there is no memory for working rows. `data`
///         is unchanged in each case.
FEATURES_EXPORT void conv_in_place(float* data, int rows, int cols, double sigma);

}  // namespace marlo
