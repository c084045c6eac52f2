// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/detail/dist_frac_search.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "libfeatures/base/detail/float_search.h"
#include "libfeatures/base/detail/hamming_search.h"
#include "libfeatures/matchers/detail/query_blocks.h"
#include "libfeatures/matchers/detail/ratio_test.h"
#include "libfeatures/matchers/detail/stated_thread_count.h"
#include "support/detail/first_exception.h"

namespace marlo::detail {
namespace {

constexpr int kLdahColumns = 16;
constexpr std::ptrdiff_t kHammingBlockRows = 728;

/// Calls search(first, last, nearest) for blocks of the query rows (last is excluded), in parallel,
/// and returns the matches that the ratio test accepts, best first.
template <typename Distance, typename Search>
std::vector<DMatch> matchInBlocks(std::ptrdiff_t queryRows, std::ptrdiff_t blockRows,
                                  Distance limit, float distanceFraction, Search&& search) {
    const std::ptrdiff_t blockCount = (queryRows + blockRows - 1) / blockRows;
    std::vector<DMatch> matches;
    FirstException failure;
#pragma omp parallel for schedule(dynamic, 1)
    for (std::ptrdiff_t block = 0; block < blockCount; ++block) {
        failure.capture([&] {
            const std::ptrdiff_t first = block * blockRows;
            const std::ptrdiff_t last = std::min(first + blockRows, queryRows);
            std::vector<TwoNearest<Distance>> nearest(static_cast<std::size_t>(last - first));
            search(first, last, nearest.data());
#pragma omp critical
            failure.capture([&] {
                auto row = static_cast<std::uint32_t>(first);
                for (const TwoNearest<Distance>& of : nearest) {
                    appendIfDistinct(of, row++, limit, distanceFraction, matches);
                }
            });
        });
    }
    failure.rethrow();
    sortBestFirst(matches);
    return matches;
}

}  // namespace

bool isLdah(const DescMat& query, const DescMat& train) {
    return query.type() == DescMat::Byte && query.cols == kLdahColumns &&
           train.cols == kLdahColumns;
}

QString distFracKernelName(const DescMat& query, const DescMat& train, system::popcnt_t popcnt,
                           const QString& before) {
    if (query.type() != DescMat::Byte) return QStringLiteral("CPU Float");
    switch (popcnt) {
        case system::PopcntX86:
            return isLdah(query, train) ? QStringLiteral("CPU SSE")
                                        : QStringLiteral("CPU SSE generic");
        case system::PopcntArm:
            return QStringLiteral("CPU ARM");
        case system::PopcntNone:
            break;
    }
    return before;
}

template <system::popcnt_t P, int N>
std::vector<DMatch> distFracHamming(const DescMat& query, const DescMat& train,
                                    const DescMatcherDistFracBase& parameters) {
    const HammingTrain<N> trainRows(*fastest(hammingKernels<P, N>()), train);
    // Whole blocks; the partial one behind them does not count.
    const StatedThreadCount threads(std::max<std::ptrdiff_t>(1, query.rows / kHammingBlockRows));
    return matchInBlocks<std::uint64_t>(
        query.rows, kHammingBlockRows, parameters.maxHammingDistance, parameters.distanceFraction,
        [&](std::ptrdiff_t first, std::ptrdiff_t last, TwoNearestBits* nearest) {
            trainRows.search(query, first, last, nearest, nullptr);
        });
}

std::vector<DMatch> distFracHamming128(const DescMat& query, const DescMat& train,
                                       const DescMatcherDistFracBase& parameters) {
    if (!isLdah(query, train)) {
        throw std::runtime_error("The current descriptor-matcher only accept LDAH descriptors");
    }
    return distFracHamming<system::PopcntX86, 2>(query, train, parameters);
}

std::vector<DMatch> distFracFloats(const DescMat& query, const DescMat& train,
                                   const DescMatcherDistFracBase& parameters) {
    const FloatTrain trainRows(*fastest(screenKernels()), query, train);
    return matchInBlocks<float>(
        query.rows, queryBlockRows(query.rows, 8, 64), parameters.maxDistance,
        parameters.distanceFraction,
        [&](std::ptrdiff_t first, std::ptrdiff_t last, TwoNearestFloat* nearest) {
            trainRows.search(first, last, nearest, nullptr);
        });
}

#define MARLO_INSTANCES(N)                                               \
    template std::vector<DMatch> distFracHamming<system::PopcntNone, N>( \
        const DescMat&, const DescMat&, const DescMatcherDistFracBase&); \
    template std::vector<DMatch> distFracHamming<system::PopcntX86, N>(  \
        const DescMat&, const DescMat&, const DescMatcherDistFracBase&); \
    template std::vector<DMatch> distFracHamming<system::PopcntArm, N>(  \
        const DescMat&, const DescMat&, const DescMatcherDistFracBase&);
MARLO_INSTANCES(1)
MARLO_INSTANCES(2)
MARLO_INSTANCES(4)
MARLO_INSTANCES(8)
MARLO_INSTANCES(16)
#undef MARLO_INSTANCES

}  // namespace marlo::detail
