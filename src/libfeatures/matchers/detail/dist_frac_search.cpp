// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/detail/dist_frac_search.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "libfeatures/matchers/detail/float_search.h"
#include "libfeatures/matchers/detail/hamming_search.h"
#include "libfeatures/matchers/detail/query_blocks.h"
#include "libfeatures/matchers/detail/ratio_test.h"
#include "libfeatures/matchers/detail/stated_thread_count.h"
#include "support/detail/first_exception.h"

namespace marlo::detail {
namespace {

constexpr int kLdahColumns = 16;
constexpr std::ptrdiff_t kHammingBlockRows = 728;

template <typename Distance>
void appendMatches(const std::vector<TwoNearest<Distance>>& nearest, std::ptrdiff_t firstRow,
                   Distance limit, float distanceFraction, std::vector<DMatch>& matches) {
    auto row = static_cast<std::uint32_t>(firstRow);
    for (const TwoNearest<Distance>& of : nearest) {
        appendIfDistinct(of, row++, limit, distanceFraction, matches);
    }
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
    // The last, partial block has this number. Of fewer rows than a block, block 1 is empty.
    const std::ptrdiff_t lastBlock = std::max<std::ptrdiff_t>(1, query.rows / kHammingBlockRows);
    const StatedThreadCount threads(lastBlock);
    std::vector<DMatch> matches;
    FirstException failure;
#pragma omp parallel for schedule(dynamic, 1)
    for (std::ptrdiff_t block = 0; block <= lastBlock; ++block) {
        failure.capture([&] {
            const std::ptrdiff_t first = block * kHammingBlockRows;
            const std::ptrdiff_t last =
                std::min<std::ptrdiff_t>(first + kHammingBlockRows, query.rows);
            if (first >= last) return;
            std::vector<TwoNearestBits> nearest(static_cast<std::size_t>(last - first));
            trainRows.search(query, first, last, nearest.data(), nullptr);
#pragma omp critical
            failure.capture([&] {
                appendMatches<std::uint64_t>(nearest, first, parameters.maxHammingDistance,
                                             parameters.distanceFraction, matches);
            });
        });
    }
    failure.rethrow();
    sortBestFirst(matches);
    return matches;
}

std::vector<DMatch> distFracHamming128(const DescMat& query, const DescMat& train,
                                       const DescMatcherDistFracBase& parameters) {
    if (query.type() != DescMat::Byte || query.cols != kLdahColumns || train.cols != kLdahColumns) {
        throw std::runtime_error("The current descriptor-matcher only accept LDAH descriptors");
    }
    return distFracHamming<system::PopcntX86, 2>(query, train, parameters);
}

std::vector<DMatch> distFracFloats(const DescMat& query, const DescMat& train,
                                   const DescMatcherDistFracBase& parameters) {
    const FloatTrain trainRows(*fastest(screenKernels()), query, train);
    const std::ptrdiff_t blockRows = queryBlockRows(query.rows, 8, 64);
    const std::ptrdiff_t blockCount = (query.rows + blockRows - 1) / blockRows;
    std::vector<DMatch> matches;
    FirstException failure;
#pragma omp parallel for schedule(dynamic, 1)
    for (std::ptrdiff_t block = 0; block < blockCount; ++block) {
        failure.capture([&] {
            const std::ptrdiff_t first = block * blockRows;
            const std::ptrdiff_t last = std::min<std::ptrdiff_t>(first + blockRows, query.rows);
            std::vector<TwoNearestFloat> nearest(static_cast<std::size_t>(last - first));
            trainRows.search(first, last, nearest.data(), nullptr);
#pragma omp critical
            failure.capture([&] {
                appendMatches<float>(nearest, first, parameters.maxDistance,
                                     parameters.distanceFraction, matches);
            });
        });
    }
    failure.rethrow();
    sortBestFirst(matches);
    return matches;
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
