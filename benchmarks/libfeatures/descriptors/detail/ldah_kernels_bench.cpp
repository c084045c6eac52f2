// SPDX-License-Identifier: BSD-3-Clause
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "libfeatures/descriptors/detail/ldah_kernels.h"
#include "utilities/kernel_cases.h"
#include "utilities/random.h"

namespace marlo {
namespace {

constexpr int kRows = detail::kLdahBatch;

// One row after the other, its four partial sums side by side.
void rowByRow(const float* rows, std::ptrdiff_t count, unsigned char* codes) {
    std::fill_n(codes, count * detail::kLdahBytes, static_cast<unsigned char>(0));
    const detail::LdahTables& tables = detail::kLdahTables;
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        const float* const row = rows + i * detail::kDescriptorSize;
        for (int bit = 0; bit < detail::kLdahBits; ++bit) {
            float sums[detail::kLdahSums] = {};
            for (int k = 0; k < detail::kDescriptorSize; k += detail::kLdahSums) {
                for (int q = 0; q < detail::kLdahSums; ++q) {
                    sums[q] += tables.projection[bit][k + q] * row[k + q];
                }
            }
            const float p = sums[0] + sums[1] + sums[2] + sums[3];
            if (p + tables.offsets[bit] <= 0.0F) {
                codes[i * detail::kLdahBytes + bit / 8] |= static_cast<unsigned char>(1 << bit % 8);
            }
        }
    }
}

// A batch as callers have it: in the first-level cache, where they have just made it.
template <typename Run>
void measure(benchmark::State& state, Run run) {
    bench::Random random(1);
    std::vector<float> rows(static_cast<std::size_t>(kRows) * detail::kDescriptorSize);
    for (float& value : rows) value = random.next();
    std::vector<unsigned char> codes(static_cast<std::size_t>(kRows) * detail::kLdahBytes);
    for (auto _ : state) {
        run(rows.data(), kRows, codes.data());
        benchmark::DoNotOptimize(codes.data());
        benchmark::ClobberMemory();
    }
    state.counters["s/keypoint"] = benchmark::Counter(
        kRows, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

const bool kRegistered = [] {
    benchmark::RegisterBenchmark("ldah/row by row",
                                 [](benchmark::State& state) { measure(state, rowByRow); });
    return bench::registerKernelCases(
        "ldah", detail::ldahKernels(), [](benchmark::State& state, detail::LdahFunction* kernel) {
            measure(state, [kernel](const float* rows, std::ptrdiff_t count, unsigned char* codes) {
                kernel(detail::ldahPanels(), rows, count, codes);
            });
        });
}();

}  // namespace
}  // namespace marlo
