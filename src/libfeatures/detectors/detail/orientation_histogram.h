// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <array>

namespace marlo::detail {

struct GradientSource;

/// Directions around a point: bin i covers 10 degrees around -175 + 10 i degrees.
using OrientationBins = std::array<float, 36>;

/// Fills `bins` with the smoothed histogram of gradient directions around (row, col) and returns
/// the threshold of a peak, 0.8 times the largest bin. Positions and `sigma` are in pixels of the
/// gradients; the window is a disc of 4.5 sigma, weighted by a Gaussian of 1.5 sigma, that leaves
/// out the last two rows and columns. A direction beyond pi by more than a bin is reported on the
/// standard error stream ("bin %d\n") and counted in bin 0.
/// D. Lowe, IJCV 60(2), 2004, sec. 5; the fold of the last half bin into bin 35 and the smoothing
/// are this library's own.
float orientationHistogram(const GradientSource& gradients, float row, float col, float sigma,
                           OrientationBins& bins);

/// Six passes of a circular mean of three; see the source for the weight of the last bin.
void smoothOrientationBins(OrientationBins& bins);

/// The place of a peak between -0.5 and 0.5 bins from its centre, from the bins around it.
float peakOffset(float left, float centre, float right);

/// Calls `emit(angle)` for each peak of at least `threshold`, in the order of the bins.
template <typename Emit>
void forEachOrientation(const OrientationBins& bins, float threshold, Emit&& emit) {
    for (std::size_t i = 0; i < bins.size(); ++i) {
        const float left = bins[(i + bins.size() - 1) % bins.size()];
        const float right = bins[(i + 1) % bins.size()];
        if (!(bins[i] > left && bins[i] > right && bins[i] >= threshold)) continue;
        const float offset = peakOffset(left, bins[i], right);
        emit((static_cast<float>(i) + offset) * 0.17453294F - 3.0543263F);
    }
}

}  // namespace marlo::detail
