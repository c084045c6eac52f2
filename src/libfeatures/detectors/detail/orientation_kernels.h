// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

#include "support/detail/gradient_source.h"
#include "support/detail/kernel_list.h"

namespace marlo::detail {

constexpr int kOrientationBins = 36;

/// The window of an orientation histogram: a disc around (row, col), cut to some rows and columns.
struct OrientationWindow {
    float row = 0.0F;
    float col = 0.0F;
    float weightFactor = 0.0F;   ///< a sample at distance d weighs exp(d^2 * weightFactor)
    float squaredRadius = 0.0F;  ///< samples lie nearer than this, squared
    std::ptrdiff_t beginRow = 0;
    std::ptrdiff_t endRow = 0;
    std::ptrdiff_t beginCol = 0;
    std::ptrdiff_t endCol = 0;
};

/// Fills the kOrientationBins sums of `bins`, each sample in the bin of its direction. Half a bin
/// beyond +pi belongs to the last bin; what lies farther is reported on the standard error stream
/// and counted in bin 0, as is what lies below -pi. A bin is the sum of four sums, of every fourth
/// sample each.
using OrientationFunction = void(const GradientSource& gradients, const OrientationWindow& window,
                                 float* bins);
KernelList<OrientationFunction> orientationKernels();

}  // namespace marlo::detail
