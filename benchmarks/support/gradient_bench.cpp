// SPDX-License-Identifier: BSD-3-Clause
#include <benchmark/benchmark.h>
#include <omp.h>

#include "support/gradient.h"
#include "utilities/images.h"

#if defined(FEATURES_BENCH_WITH_OPENCV)
#include <opencv2/imgproc.hpp>
#endif

namespace marlo {
namespace {

constexpr Eigen::Index kRows = 2128;  // 6 megapixels
constexpr Eigen::Index kCols = 2832;

void threads(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
}

void countPixels(benchmark::State& state) {
    state.counters["Mpixel/s"] = benchmark::Counter(1e-6 * static_cast<double>(kRows * kCols),
                                                    benchmark::Counter::kIsIterationInvariantRate);
}

void gradOriImages(benchmark::State& state) {
    omp_set_num_threads(static_cast<int>(state.range(0)));
    const FloatImage image = bench::randomImage(kRows, kCols, 1);
    FloatImage length(kRows, kCols);
    FloatImage direction(kRows, kCols);
    for (auto _ : state) {
        marlo::gradOriImages(image, length, direction);
        benchmark::ClobberMemory();
    }
    countPixels(state);
}
BENCHMARK(gradOriImages)->Apply(threads);

#if defined(FEATURES_BENCH_WITH_OPENCV)
// Directions to 0.3 degrees only.
void openCvSobelAndCartToPolar(benchmark::State& state) {
    cv::setNumThreads(static_cast<int>(state.range(0)));
    FloatImage image = bench::randomImage(kRows, kCols, 1);
    const cv::Mat pixels(static_cast<int>(kRows), static_cast<int>(kCols), CV_32F, image.data());
    cv::Mat horizontal;
    cv::Mat vertical;
    cv::Mat length;
    cv::Mat direction;
    for (auto _ : state) {
        cv::Sobel(pixels, horizontal, CV_32F, 1, 0, 1, 0.5);
        cv::Sobel(pixels, vertical, CV_32F, 0, 1, 1, -0.5);
        cv::cartToPolar(horizontal, vertical, length, direction);
        benchmark::ClobberMemory();
    }
    countPixels(state);
}
BENCHMARK(openCvSobelAndCartToPolar)->Apply(threads);
#endif

}  // namespace
}  // namespace marlo
