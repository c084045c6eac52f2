// SPDX-License-Identifier: BSD-3-Clause
#include <benchmark/benchmark.h>

#include <cstddef>
#include <utility>

#include "libfeatures/detectors/detail/orientation_histogram.h"
#include "libfeatures/detectors/detail/orientation_kernels.h"
#include "support/gauss_filter.h"
#include "support/gradient.h"
#include "utilities/images.h"
#include "utilities/kernel_cases.h"

namespace marlo {
namespace {

constexpr Eigen::Index kSide = 400;
constexpr float kSigma = 2.4F;
constexpr std::ptrdiff_t kRadius = 10;  // 4.5 sigma, truncated
constexpr int kWindows = 64;

std::ptrdiff_t centreOf(int window, int step) {
    return kRadius + (window * step) % (kSide - 3 * kRadius);
}

std::pair<FloatImage, FloatImage> smoothGradients() {
    FloatImage image = bench::randomImage(kSide, kSide, 1);
    conv_in_place(image.data(), static_cast<int>(kSide), static_cast<int>(kSide), 1.6);
    std::pair<FloatImage, FloatImage> gradients(FloatImage(kSide, kSide), FloatImage(kSide, kSide));
    gradOriImages(image, gradients.first, gradients.second);
    return gradients;
}

// The sums, not yet smoothed.
void histogram(benchmark::State& state, detail::OrientationFunction* kernel) {
    const auto [magnitude, orientation] = smoothGradients();
    const detail::GradientSource gradients(magnitude, orientation);
    float bins[detail::kOrientationBins];
    for (auto _ : state) {
        for (int i = 0; i < kWindows; ++i) {
            const std::ptrdiff_t row = centreOf(i, 37);
            const std::ptrdiff_t col = centreOf(i, 101);
            const detail::OrientationWindow window{static_cast<float>(row) + 0.2F,
                                                   static_cast<float>(col) - 0.3F,
                                                   -1.0F / (4.5F * kSigma * kSigma),
                                                   static_cast<float>(kRadius * kRadius) + 0.5F,
                                                   row - kRadius,
                                                   row + kRadius + 1,
                                                   col - kRadius,
                                                   col + kRadius + 1};
            kernel(gradients, window, bins);
            benchmark::DoNotOptimize(bins);
        }
    }
    const double pixels = kWindows * 3.14159 * (kRadius * kRadius + 0.5);
    bench::countMillions(state, "Msamples/s", pixels);
    bench::countMillions(state, "Mwindows/s", kWindows);
}

const bool kRegistered =
    bench::registerKernelCases("orientation", detail::orientationKernels(), histogram);

// All of it, with the fastest kernel.
void orientationHistogram(benchmark::State& state) {
    const auto [magnitude, orientation] = smoothGradients();
    const detail::GradientSource gradients(magnitude, orientation);
    detail::OrientationBins bins;
    for (auto _ : state) {
        for (int i = 0; i < kWindows; ++i) {
            const float row = static_cast<float>(centreOf(i, 37)) + 0.2F;
            const float col = static_cast<float>(centreOf(i, 101)) - 0.3F;
            benchmark::DoNotOptimize(
                detail::orientationHistogram(gradients, row, col, kSigma, bins));
        }
    }
    bench::countMillions(state, "Mwindows/s", kWindows);
}
BENCHMARK(orientationHistogram);

}  // namespace
}  // namespace marlo
