// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>

#include "libfeatures/detectors/detail/extremum.h"
#include "support/detail/kernel_list.h"

namespace marlo::detail {

/// Subtracts row by row: differences[i] = levels[i] - levels[i + 1], `cols` values each. Returns
/// whether any difference is NaN.
using DifferenceFunction = bool(const float* const (&levels)[kLevels],
                                float* const (&differences)[kDifferences], int cols);
KernelList<DifferenceFunction> differenceKernels();

/// Rows of the five differences: the searched row and its neighbours above and below.
using DifferenceRows = const float* [kDifferences][3];

/// Looks for extrema in a row. Sets bit level - 1 of marks[c], for columns kBorder to
/// cols - 1 - kBorder, where the pixel is not smaller (if it is positive; not larger if it is not)
/// than any of the 27 in its neighbourhood; all other marks are 0. Flat neighbourhoods (three
/// levels of 3 x 3 equal values each), which no fit can refine, are not marked.
/// No value is NaN.
using ExtremumFunction = void(const DifferenceRows& rows, int cols, std::uint8_t* marks);
KernelList<ExtremumFunction> extremumKernels();

/// The definition of the search, pixel by pixel and for any values: comparisons with NaN are false.
void markExtrema(const DifferenceRows& rows, int cols, std::uint8_t* marks);

}  // namespace marlo::detail
