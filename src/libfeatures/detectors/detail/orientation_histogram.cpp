// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/detail/orientation_histogram.h"

#include <algorithm>
#include <cstddef>

#include "libfeatures/detectors/detail/orientation_kernels.h"

namespace marlo::detail {
namespace {

constexpr int kBins = kOrientationBins;

}  // namespace

void smoothOrientationBins(OrientationBins& bins) {
    for (int pass = 0; pass < 6; ++pass) {
        const OrientationBins old = bins;
        bins[0] = (old[kBins - 1] + old[0] + old[1]) * 0.33333334F;
        for (std::size_t i = 1; i < kBins - 1; ++i) {
            bins[i] = (old[i - 1] + old[i] + old[i + 1]) * 0.33333334F;
        }
        // The float just below 1/3 here, the one nearest to it elsewhere.
        bins[kBins - 1] = (old[kBins - 2] + old[kBins - 1] + old[0]) * 0.3333333F;
    }
}

float peakOffset(float left, float centre, float right) {
    if (centre < 0.0F) {
        left = -left;
        centre = -centre;
        right = -right;
    }
    return (left - right) * 0.5F / (left - 2.0F * centre + right);
}

float orientationHistogram(const GradientSource& gradients, float row, float col, float sigma,
                           OrientationBins& bins) {
    OrientationFunction* const histogramOf = fastest(orientationKernels());
    const auto r0 = static_cast<std::ptrdiff_t>(row + 0.5F);
    const auto c0 = static_cast<std::ptrdiff_t>(col + 0.5F);
    const auto radius = static_cast<std::ptrdiff_t>(sigma * 1.5F * 3.0F);
    OrientationWindow window;
    window.row = row;
    window.col = col;
    window.weightFactor = -1.0F / (4.5F * (sigma * sigma));
    window.squaredRadius = static_cast<float>(radius * radius) + 0.5F;
    window.beginRow = std::max<std::ptrdiff_t>(r0 - radius, 0);
    window.endRow = std::min(r0 + radius + 1, gradients.rows - 2);
    window.beginCol = std::max<std::ptrdiff_t>(c0 - radius, 0);
    window.endCol = std::min(c0 + radius + 1, gradients.cols - 2);
    histogramOf(gradients, window, bins.data());
    smoothOrientationBins(bins);
    return 0.8F * *std::max_element(bins.begin(), bins.end());
}

}  // namespace marlo::detail
