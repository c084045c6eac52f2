// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libmarlocuda/detail/arithmetic.h"
#include "libmarlocuda/detail/stream.h"
#include "support/detail/gauss_weights.h"

namespace marlo::gpu {

/// Blurs by a Gaussian: first across rows, then along them, with the image mirrored at its borders.
/// `from` and `to` have one size and are different images. Filters of the scale space's lengths
/// take one kernel, others two and `scratch`, an image of that size.
void blur(Stream& stream, const Image& from, const Image& to, const Image& scratch,
          const marlo::detail::GaussWeights& rowWeights,
          const marlo::detail::GaussWeights& colWeights, float* deviceWeights);

/// Floats of `deviceWeights` that a blur needs.
long long blurWeightsSize(const marlo::detail::GaussWeights& rowWeights,
                          const marlo::detail::GaussWeights& colWeights);

/// Every second row and column: (r, c) from (2r, 2c).
void decimate(Stream& stream, const Image& from, const Image& to);

}  // namespace marlo::gpu
