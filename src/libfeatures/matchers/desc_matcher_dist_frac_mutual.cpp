// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/desc_matcher_dist_frac_mutual.h"

#include <cstddef>
#include <cstdint>

#include "libfeatures/base/detail/float_search.h"
#include "libfeatures/base/detail/hamming_instance.h"
#include "libfeatures/base/detail/hamming_search.h"
#include "libfeatures/matchers/detail/dist_frac_search.h"
#include "libfeatures/matchers/detail/query_blocks.h"
#include "libfeatures/matchers/detail/ratio_test.h"
#include "support/system.h"

namespace marlo {
namespace {

/// What is nearest from either side.
template <typename Distance, typename QueryDistance>
struct BothWays {
    std::vector<detail::TwoNearest<Distance>> nearest;                ///< a query row
    std::vector<detail::NearestQuery<QueryDistance>> nearestQueries;  ///< a train row

    BothWays(const DescMat& query, const DescMat& train)
        : nearest(static_cast<std::size_t>(query.rows)),
          nearestQueries(static_cast<std::size_t>(train.rows)) {}

    void offer(const std::vector<detail::NearestQuery<QueryDistance>>& queries) {
        for (std::size_t row = 0; row < queries.size(); ++row) {
            nearestQueries[row].offer(queries[row].distance, queries[row].index);
        }
    }

    [[nodiscard]] std::vector<DMatch> matches(Distance limit, float distanceFraction) const {
        std::vector<DMatch> accepted;
        for (std::uint32_t row = 0; row < nearest.size(); ++row) {
            const std::uint32_t trainRow = nearest[row].index;
            if (trainRow == detail::TwoNearest<Distance>::kNoIndex) continue;
            if (nearestQueries[trainRow].index != row) continue;
            detail::appendIfDistinct(nearest[row], row, limit, distanceFraction, accepted);
        }
        detail::sortBestFirst(accepted);
        return accepted;
    }
};

template <system::popcnt_t P, int N>
std::vector<DMatch> matchBits(const DescMat& query, const DescMat& train,
                              const DescMatcherDistFracBase& parameters) {
    using Queries = std::vector<detail::NearestQueryBits>;
    const detail::HammingTrain<N> trainRows(*detail::fastest(detail::hammingKernels<P, N>()),
                                            train);
    BothWays<std::uint64_t, std::uint32_t> both(query, train);
    detail::searchQueryBlocks(
        query.rows, detail::queryBlockRows(query.rows, 32, 256),
        [&] { return Queries(static_cast<std::size_t>(train.rows)); },
        [&](std::ptrdiff_t first, std::ptrdiff_t last, Queries& queries) {
            trainRows.search(query, first, last, both.nearest.data() + first, queries.data());
        },
        [&](const Queries& queries) { both.offer(queries); });
    return both.matches(parameters.maxHammingDistance, parameters.distanceFraction);
}

std::vector<DMatch> matchFloats(const DescMat& query, const DescMat& train,
                                const DescMatcherDistFracBase& parameters) {
    using Queries = detail::NearestQueriesFloat;
    const detail::FloatTrain trainRows(*detail::fastest(detail::screenKernels()), query, train);
    BothWays<float, float> both(query, train);
    detail::searchQueryBlocks(
        query.rows, detail::queryBlockRows(query.rows, 8, 64),
        [&] { return trainRows.noQueries(); },
        [&](std::ptrdiff_t first, std::ptrdiff_t last, Queries& queries) {
            trainRows.search(first, last, both.nearest.data() + first, &queries);
        },
        [&](const Queries& queries) { both.offer(queries.nearest); });
    return both.matches(parameters.maxDistance, parameters.distanceFraction);
}

}  // namespace

DescMatcherDistFracMutual::DescMatcherDistFracMutual() = default;
DescMatcherDistFracMutual::~DescMatcherDistFracMutual() = default;

std::unique_ptr<IDescriptorMatcher> DescMatcherDistFracMutual::clone() const {
    return std::make_unique<DescMatcherDistFracMutual>(*this);
}

std::vector<DMatch> DescMatcherDistFracMutual::match(const DescMat& query,
                                                     const DescMat& train) const {
    std::vector<DMatch> matches;
    if (query.empty() || train.empty()) return matches;
    const system::popcnt_t popcnt = system::hasPOPCNT();
    kernelName_ = detail::distFracKernelName(query, train, popcnt, kernelName_);
    if (query.cols != train.cols) return matches;
    if (query.type() != DescMat::Byte) {
        if (train.type() == query.type()) matches = matchFloats(query, train, *this);
        return matches;
    }
    detail::withHammingInstance(popcnt, query.cols, [&]<system::popcnt_t P, int N>() {
        matches = matchBits<P, N>(query, train, *this);
    });
    return matches;
}

QString DescMatcherDistFracMutual::kernelName() const {
    return kernelName_;
}

}  // namespace marlo
