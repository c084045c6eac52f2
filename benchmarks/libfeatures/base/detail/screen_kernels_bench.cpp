// SPDX-License-Identifier: BSD-3-Clause
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "libfeatures/base/detail/screen_kernels.h"
#include "support/detail/aligned_vector.h"
#include "utilities/kernel_cases.h"
#include "utilities/random.h"

namespace marlo {
namespace {

constexpr int kQueryGroups = 16;
constexpr std::ptrdiff_t kPairs = 64;

// One group of train rows and 64 query rows of 128 columns; none of them is a candidate.
void screen(benchmark::State& state, const detail::ScreenFunctions* functions, bool bothWays) {
    constexpr std::size_t kQueryRows = std::size_t{kQueryGroups} * detail::kScreenQueries;
    const auto trainRows = static_cast<std::size_t>(functions->groupRows);
    bench::Random random(1);
    detail::AlignedVector<std::int16_t> train(2 * kPairs * trainRows);
    detail::AlignedVector<std::int16_t> queries(2 * kPairs * kQueryRows);
    for (std::int16_t& x : train) x = static_cast<std::int16_t>(2000.0F * random.next());
    for (std::int16_t& x : queries) x = static_cast<std::int16_t>(2000.0F * random.next());
    const std::vector<std::int32_t> zeros(trainRows, 0);
    const std::vector<std::int32_t> terms(kQueryRows, 1 << 30);
    const std::vector<std::int32_t> limits(kQueryRows, 1 << 30);
    detail::ScreenTile tile;
    tile.pairs = kPairs;
    tile.train = train.data();
    tile.trainTerms = zeros.data();
    tile.trainLimits = bothWays ? zeros.data() : nullptr;
    tile.queries = queries.data();
    tile.queryGroups = kQueryGroups;
    tile.queryTerms = terms.data();
    tile.queryLimits = limits.data();
    detail::ScreenCandidates candidates{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(functions->screen(tile, 0, candidates));
    }
    bench::countMillions(state, "Mpairs/s", static_cast<double>(kQueryRows * trainRows));
}

const bool kRegistered =
    bench::registerKernelCases("screen", detail::screenKernels(),
                               [](auto& state, auto* kernel) { screen(state, kernel, false); }) &&
    bench::registerKernelCases("screenBothWays", detail::screenKernels(),
                               [](auto& state, auto* kernel) { screen(state, kernel, true); });

}  // namespace
}  // namespace marlo
