// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <array>
#include <utility>
#include <vector>

#include "libfeatures/detectors/detail/extremum.h"
#include "support/detail/gauss_kernels.h"
#include "support/image.h"

namespace marlo::detail {

/// Gradient magnitude, then direction in radians, of one level.
using Gradients = std::pair<FloatImage, FloatImage>;

/// Where one octave of a scale space comes from and what is wanted of it.
struct OctaveTask {
    /// Level 0, or with `blurInput` the image that level 0 is the blur of.
    const FloatImage* input = nullptr;
    bool blurInput = false;
    /// By level; those from kFirstSearched to kLastSearched are sized and filled.
    std::vector<Gradients>* gradients = nullptr;
    /// Unless null: level 0 of the next octave, sized and filled with every second row and column.
    FloatImage* nextInput = nullptr;
    /// Whether to look for extrema.
    bool search = false;
    /// Threads share the image in bands of at least so many rows. Each band makes some 100 rows
    /// around it again and needs memory for some 500; lower ones would mostly do that.
    int minBandRows = 128;
};

/// The extrema of differences 1 to 3, each level's in the order of the rows and columns in which
/// the search found them.
using OctaveExtrema = std::array<std::vector<Extremum>, kLastSearched + 1>;

/// Makes the Gaussian levels of an octave and searches their differences in one sweep down the
/// image: each level follows a few rows behind the one that it is made from, gradients and
/// differences are formed and searched a few rows behind that, and all of it stays in cache. Only
/// the gradients are stored in full. The image is cut into one band of rows per thread; bands
/// compute the rows around them themselves, which does not change a bit of the result.
/// @throws std::bad_alloc
OctaveExtrema sweepOctave(const OctaveTask& task);

}  // namespace marlo::detail
