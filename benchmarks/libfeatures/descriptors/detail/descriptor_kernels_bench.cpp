// SPDX-License-Identifier: BSD-3-Clause
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "libfeatures/descriptors/detail/descriptor_kernels.h"
#include "support/gauss_filter.h"
#include "support/gradient.h"
#include "utilities/images.h"
#include "utilities/kernel_cases.h"

namespace marlo {
namespace {

constexpr Eigen::Index kSide = 400;  // in the second cache, as neighbouring keypoints leave it
constexpr int kWindows = 64;
constexpr float kSigma = 2.4F;  // that of the mean number of samples in photographs, about 1300

// Windows all over the image, in all directions.
std::vector<detail::DescriptorWindow> windows() {
    std::vector<detail::DescriptorWindow> all;
    const auto radius = static_cast<std::ptrdiff_t>(3.0F * kSigma * 1.4142137F * 2.5F + 0.5F);
    const float inverse = 1.0F / (3.0F * kSigma);
    for (int i = 0; i < kWindows; ++i) {
        detail::DescriptorWindow window;
        window.centreRow = radius + (i * 37) % (kSide - 2 * radius);
        window.centreCol = radius + (i * 101) % (kSide - 2 * radius);
        window.firstRow = -radius;
        window.lastRow = radius;
        window.firstCol = -radius;
        window.lastCol = radius;
        window.angle = -3.0F + 6.0F * static_cast<float>(i) / kWindows;
        window.cosScaled = std::cos(window.angle) * inverse;
        window.sinScaled = std::sin(window.angle) * inverse;
        window.rowShift = 0.03F;
        window.colShift = -0.02F;
        window.turnsDown = window.angle < -3.1415927F ? 1 : 0;
        window.turnsUp = 1;
        all.push_back(window);
    }
    return all;
}

void histogram(benchmark::State& state, detail::DescriptorFunction* kernel) {
    FloatImage image = bench::randomImage(kSide, kSide, 1);
    conv_in_place(image.data(), static_cast<int>(kSide), static_cast<int>(kSide), 1.6);
    FloatImage magnitude(kSide, kSide);
    FloatImage orientation(kSide, kSide);
    gradOriImages(image, magnitude, orientation);
    const detail::GradientSource gradients(magnitude, orientation);
    const std::vector<detail::DescriptorWindow> all = windows();
    alignas(64) float values[detail::kDescriptorSize];
    for (auto _ : state) {
        for (const detail::DescriptorWindow& window : all) {
            kernel(gradients, window, values);
            benchmark::DoNotOptimize(values);
        }
    }
    const double samples = kWindows * std::pow(15.0 * kSigma, 2);  // 5 x 5 cells of 3 sigma
    bench::countMillions(state, "Msamples/s", samples);
    bench::countMillions(state, "Mdescriptors/s", kWindows);
}

const bool kRegistered =
    bench::registerKernelCases("descriptor", detail::descriptorKernels(), histogram);

}  // namespace
}  // namespace marlo
