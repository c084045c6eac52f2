// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/desc_matcher_left_right.h"

#include <cstdint>

#include "libfeatures/base/detail/hamming_instance.h"
#include "libfeatures/base/detail/hamming_search.h"
#include "support/system.h"

namespace marlo {
namespace {

template <system::popcnt_t P, int N>
std::vector<DMatch> mutualNeighbours(const DescMat& query, const DescMat& train) {
    const detail::HammingTrain<N> trainRows(*detail::fastest(detail::hammingKernels<P, N>()),
                                            train);
    std::vector<detail::TwoNearestBits> nearest(static_cast<std::size_t>(query.rows));
    std::vector<detail::NearestQueryBits> nearestQueries(static_cast<std::size_t>(train.rows));
    trainRows.search(query, 0, query.rows, nearest.data(), nearestQueries.data());

    std::vector<DMatch> matches;
    for (std::uint32_t row = 0; row < nearest.size(); ++row) {
        const std::uint32_t trainRow = nearest[row].index;
        if (nearestQueries[trainRow].index == row) matches.emplace_back(row, trainRow, 1.0F);
    }
    return matches;
}

}  // namespace

DescMatcherLeftRight::DescMatcherLeftRight() = default;
DescMatcherLeftRight::~DescMatcherLeftRight() = default;

std::unique_ptr<IDescriptorMatcher> DescMatcherLeftRight::clone() const {
    return std::make_unique<DescMatcherLeftRight>();
}

std::vector<DMatch> DescMatcherLeftRight::match(const DescMat& query, const DescMat& train) const {
    std::vector<DMatch> matches;
    if (query.empty() || train.empty() || query.cols != train.cols) return matches;
    detail::withHammingInstance(system::hasPOPCNT(), query.cols, [&]<system::popcnt_t P, int N>() {
        matches = mutualNeighbours<P, N>(query, train);
    });
    return matches;
}

QString DescMatcherLeftRight::kernelName() const {
    switch (system::hasPOPCNT()) {
        case system::PopcntX86:
            return QStringLiteral("CPU SSE");
        case system::PopcntArm:
            return QStringLiteral("CPU ARM");
        case system::PopcntNone:
            break;
    }
    return {};
}

}  // namespace marlo
