// SPDX-License-Identifier: BSD-3-Clause
#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>

#include "libfeatures/base/detail/hamming_kernels.h"
#include "support/detail/aligned_vector.h"
#include "utilities/kernel_cases.h"
#include "utilities/random.h"

namespace marlo {
namespace {

constexpr int kQueryRows = 64;
constexpr int kBlockBytes = 24 * 1024;  // of train rows, as a search takes them

/// Query rows and a block of train rows in the layout of a kernel.
template <int N>
struct Rows {
    explicit Rows(const detail::HammingFunctions<N>& functions)
        : groupCount(kBlockBytes / static_cast<int>(functions.groupBytes)),
          rows(groupCount * functions.groupRows),
          queries(std::size_t{8} * N * kQueryRows),
          groups(static_cast<std::size_t>(groupCount) * functions.groupBytes),
          distances(2 * static_cast<std::size_t>(rows)) {
        bench::Random random(1);
        for (unsigned char& byte : queries) byte = static_cast<unsigned char>(random.nextBits());
        train.resize(std::size_t{8} * N * static_cast<std::size_t>(rows));
        for (unsigned char& byte : train) byte = static_cast<unsigned char>(random.nextBits());
        arrange(functions);
    }

    void arrange(const detail::HammingFunctions<N>& functions) {
        for (int group = 0; group < groupCount; ++group) {
            const auto at = static_cast<std::size_t>(group);
            functions.arrange(
                train.data() + at * static_cast<std::size_t>(functions.groupRows) * 8 * N, 8 * N,
                functions.groupRows, groups.data() + at * functions.groupBytes);
        }
    }

    void compare(const detail::HammingFunctions<N>& functions, int query) {
        const unsigned char* const first = queries.data() + std::ptrdiff_t{query} * 8 * N;
        const unsigned char* const two[] = {first, first + std::size_t{8} * N};
        detail::HammingDistance<N>* const to[] = {distances.data(), distances.data() + rows};
        functions.distances(two, groups.data(), groupCount, to);
    }

    int groupCount;
    int rows;
    detail::AlignedVector<unsigned char> queries;
    detail::AlignedVector<unsigned char> train;
    detail::AlignedVector<unsigned char> groups;
    detail::AlignedVector<detail::HammingDistance<N>> distances;
};

template <int N>
void arrange(benchmark::State& state, const detail::HammingFunctions<N>* functions) {
    Rows<N> rows(*functions);
    for (auto _ : state) {
        rows.arrange(*functions);
        benchmark::ClobberMemory();
    }
    bench::countMillions(state, "Mrows/s", rows.rows);
}

template <int N>
void compare(benchmark::State& state, const detail::HammingFunctions<N>* functions) {
    Rows<N> rows(*functions);
    for (auto _ : state) {
        for (int query = 0; query < kQueryRows; query += 2) rows.compare(*functions, query);
        benchmark::ClobberMemory();
    }
    bench::countMillions(state, "Mpairs/s", kQueryRows * rows.rows);
}

// The two nearest of a block after many: hardly a row comes near enough.
template <int N>
void offer(benchmark::State& state, const detail::HammingFunctions<N>* functions) {
    Rows<N> rows(*functions);
    rows.compare(*functions, 0);
    for (auto _ : state) {
        detail::TwoNearestBits nearest{16 * N, 17 * N, 0};
        functions->offer(rows.distances.data(), rows.rows, 1, nearest);
        benchmark::DoNotOptimize(nearest);
    }
    bench::countMillions(state, "Mpairs/s", rows.rows);
}

// The two nearest of the first block.
template <int N>
void offerFirst(benchmark::State& state, const detail::HammingFunctions<N>* functions) {
    Rows<N> rows(*functions);
    rows.compare(*functions, 0);
    for (auto _ : state) {
        detail::TwoNearestBits nearest;
        functions->offer(rows.distances.data(), rows.rows, 0, nearest);
        benchmark::DoNotOptimize(nearest);
    }
    bench::countMillions(state, "Mpairs/s", rows.rows);
}

template <int N>
void lowerKeys(benchmark::State& state, const detail::HammingFunctions<N>* functions) {
    Rows<N> rows(*functions);
    rows.compare(*functions, 0);
    detail::AlignedVector<detail::HammingKey<N>> keys(static_cast<std::size_t>(rows.rows), 0);
    for (auto _ : state) {
        functions->lowerKeys(rows.distances.data(), rows.rows, 3, keys.data());
        benchmark::ClobberMemory();
    }
    bench::countMillions(state, "Mpairs/s", rows.rows);
}

template <int N>
bool registerCases() {
    const auto kernels = detail::hammingKernels<system::PopcntX86, N>();
    const std::string bits = '/' + std::to_string(64 * N) + "_bits";
    return bench::registerKernelCases("arrange" + bits, kernels, arrange<N>) &&
           bench::registerKernelCases("distances" + bits, kernels, compare<N>) &&
           bench::registerKernelCases("offer" + bits, kernels, offer<N>) &&
           bench::registerKernelCases("offerFirst" + bits, kernels, offerFirst<N>) &&
           bench::registerKernelCases("lowerKeys" + bits, kernels, lowerKeys<N>);
}

const bool kRegistered = registerCases<1>() && registerCases<2>() && registerCases<4>() &&
                         registerCases<8>() && registerCases<16>();

}  // namespace
}  // namespace marlo
