// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>

#include "support/image.h"

namespace marlo::bench {

/// Independent pixels, even in [0, 1): the hardest image for anything that branches.
FloatImage randomImage(Eigen::Index rows, Eigen::Index cols, std::uint32_t seed);

/// Fills `image` as a photograph would: broad changes of brightness, and on them
/// `blobsPerMegapixel` bright and dark blobs with standard deviations of 1.2 to 7 pixels, the small
/// ones frequent. Pixels are in [0, 1]. Needs no memory besides `image`.
void fillLikePhotograph(FloatImage& image, double blobsPerMegapixel, std::uint32_t seed);

}  // namespace marlo::bench
