// SPDX-License-Identifier: BSD-3-Clause
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cmath>

#include "support/gauss_filter.h"
#include "utilities/images.h"

#if defined(FEATURES_BENCH_WITH_OPENCV)
#include <opencv2/imgproc.hpp>
#endif

namespace marlo {
namespace {

constexpr Eigen::Index kRows = 2128;  // 6 megapixels
constexpr Eigen::Index kCols = 2832;

// In tenths of a pixel: the blurs of a scale space of three levels an octave, and a wide one.
void sigmas(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgNames({"threads", "sigma/10"})->Unit(benchmark::kMillisecond)->UseRealTime();
    for (const int threads : {1, 2}) {
        for (const int tenths : {12, 15, 19, 25, 31, 100}) benchmark->Args({threads, tenths});
    }
}

double sigmaOf(const benchmark::State& state) {
    return 0.1 * static_cast<double>(state.range(1));
}

void countPixels(benchmark::State& state) {
    state.counters["Mpixel/s"] = benchmark::Counter(1e-6 * static_cast<double>(kRows * kCols),
                                                    benchmark::Counter::kIsIterationInvariantRate);
}

void convInPlace(benchmark::State& state) {
    omp_set_num_threads(static_cast<int>(state.range(0)));
    FloatImage image = bench::randomImage(kRows, kCols, 1);
    const double sigma = sigmaOf(state);
    for (auto _ : state) {
        conv_in_place(image.data(), static_cast<int>(kRows), static_cast<int>(kCols), sigma);
        benchmark::ClobberMemory();
    }
    countPixels(state);
}
BENCHMARK(convInPlace)->Apply(sigmas);

#if defined(FEATURES_BENCH_WITH_OPENCV)
// With the same reach of 4 sigma.
void openCvGaussianBlur(benchmark::State& state) {
    cv::setNumThreads(static_cast<int>(state.range(0)));
    FloatImage image = bench::randomImage(kRows, kCols, 1);
    cv::Mat pixels(static_cast<int>(kRows), static_cast<int>(kCols), CV_32F, image.data());
    const double sigma = sigmaOf(state);
    const int side = 2 * static_cast<int>(std::ceil(4.0 * sigma)) + 1;
    for (auto _ : state) {
        cv::GaussianBlur(pixels, pixels, cv::Size(side, side), sigma, sigma, cv::BORDER_REFLECT);
        benchmark::ClobberMemory();
    }
    countPixels(state);
}
BENCHMARK(openCvGaussianBlur)->Apply(sigmas);
#endif

}  // namespace
}  // namespace marlo
