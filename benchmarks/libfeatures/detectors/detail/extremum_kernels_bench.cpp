// SPDX-License-Identifier: BSD-3-Clause
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "libfeatures/detectors/detail/extremum_kernels.h"
#include "support/gauss_filter.h"
#include "utilities/images.h"
#include "utilities/kernel_cases.h"

namespace marlo {
namespace {

constexpr Eigen::Index kRows = 12;  // all levels and differences stay in the second cache
constexpr Eigen::Index kCols = 1400;

struct ScaleSpace {
    FloatImage levels[detail::kLevels];
    FloatImage differences[detail::kDifferences];
};

ScaleSpace scaleSpace() {
    ScaleSpace s;
    double sigma = 1.6;
    FloatImage level = bench::randomImage(64, kCols, 1);
    for (int i = 0; i < detail::kLevels; ++i) {
        conv_in_place(level.data(), 64, static_cast<int>(kCols), i == 0 ? sigma : 0.766421 * sigma);
        if (i > 0) sigma *= 1.2599211;
        s.levels[i] = level.middleRows(20, kRows);
        if (i > 0) s.differences[i - 1] = s.levels[i - 1] - s.levels[i];
    }
    return s;
}

void subtract(benchmark::State& state, detail::DifferenceFunction* kernel) {
    ScaleSpace s = scaleSpace();
    for (auto _ : state) {
        for (Eigen::Index r = 0; r < kRows; ++r) {
            const float* levels[detail::kLevels];
            float* differences[detail::kDifferences];
            for (int i = 0; i < detail::kLevels; ++i) levels[i] = &s.levels[i](r, 0);
            for (int i = 0; i < detail::kDifferences; ++i) differences[i] = &s.differences[i](r, 0);
            benchmark::DoNotOptimize(kernel(levels, differences, static_cast<int>(kCols)));
        }
        benchmark::ClobberMemory();
    }
    bench::countMillions(state, "Mpixel/s", static_cast<double>(kRows * kCols));
}

// Three levels are searched for each pixel.
void search(benchmark::State& state, detail::ExtremumFunction* kernel) {
    const ScaleSpace s = scaleSpace();
    std::vector<std::uint8_t> marks(kCols);
    std::size_t marked = 0;
    for (auto _ : state) {
        marked = 0;
        for (Eigen::Index r = 1; r + 1 < kRows; ++r) {
            detail::DifferenceRows rows;
            for (int i = 0; i < detail::kDifferences; ++i) {
                for (int k = 0; k < 3; ++k) rows[i][k] = &s.differences[i](r - 1 + k, 0);
            }
            kernel(rows, static_cast<int>(kCols), marks.data());
            benchmark::ClobberMemory();
            for (const std::uint8_t mark : marks) marked += mark != 0 ? 1 : 0;
        }
    }
    bench::countMillions(state, "Mpixel/s", static_cast<double>((kRows - 2) * kCols));
    state.counters["marked %"] =
        100.0 * static_cast<double>(marked) / static_cast<double>((kRows - 2) * kCols);
}

const bool kDifferencesRegistered =
    bench::registerKernelCases("differences", detail::differenceKernels(), subtract);
const bool kExtremaRegistered =
    bench::registerKernelCases("extrema", detail::extremumKernels(), search);

}  // namespace
}  // namespace marlo
