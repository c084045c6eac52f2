// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"
#include "support/image.h"

namespace marlo {

/// Gradient of every pixel of `src`: its length (>= 0, per pixel) and its direction in radians,
/// [-pi, pi].
///
/// Directions grow counter-clockwise as the image is displayed: the horizontal derivative is right
/// minus left, the vertical one is the row above minus the row below. Derivatives are central
/// differences, halved; in the first and last row and column one-sided differences; 0 along a side
/// of one pixel. Directions are within 1e-6 rad of atan2; a gradient of no length has direction 0,
/// one that points exactly against x has +pi, whatever the sign of a zero. Where a difference is
/// NaN, length and direction are NaN; where both are infinite, the direction. Lengths below about
/// 1e-19 are less exact, for squares of the differences underflow; lengths above 1.8e19 are
/// infinite.
///
/// `magnitude` and `orientation` have the size of `src` and are other objects than it. Runs on
/// OpenMP threads; the result has the same bits for any number of them and on any processor.
/// @throws std::invalid_argument if the sizes differ. Nothing has been written then.
FEATURES_EXPORT void gradOriImages(const FloatImage& src, FloatImage& magnitude,
                                   FloatImage& orientation);

}  // namespace marlo
