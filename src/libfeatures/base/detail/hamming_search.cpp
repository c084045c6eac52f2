// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/detail/hamming_search.h"

#include <algorithm>
#include <limits>

namespace marlo::detail {
namespace {

// Three quarters of the smallest first-level cache around; the rest is for distances and tables.
constexpr std::size_t kBlockBytes = 24 * 1024;

const unsigned char* rowAt(const DescMat& matrix, std::ptrdiff_t row) {
    return matrix.data + static_cast<std::size_t>(row) * matrix.step;
}

template <int N>
void offerKeys(const HammingKey<N>* evenKeys, const HammingKey<N>* oddKeys, std::ptrdiff_t rows,
               std::ptrdiff_t firstQuery, NearestQueryBits* nearestQueries) {
    constexpr HammingKey<N> kNumberMask = (1U << kHammingKeyBits<N>)-1;
    for (std::ptrdiff_t row = 0; row < rows; ++row) {
        const HammingKey<N> key = row % 2 == 0 ? evenKeys[row / 2] : oddKeys[row / 2];
        nearestQueries[row].offer(static_cast<std::uint32_t>(key >> kHammingKeyBits<N>),
                                  static_cast<std::uint32_t>(firstQuery + (key & kNumberMask)));
    }
}

}  // namespace

template <int N>
HammingTrain<N>::HammingTrain(const HammingFunctions<N>& functions, const DescMat& train)
    : functions_(functions),
      rows_(train.rows),
      blockRows_(static_cast<std::ptrdiff_t>(
                     std::max<std::size_t>(1, kBlockBytes / functions.groupBytes)) *
                 functions.groupRows) {
    const std::ptrdiff_t groupRows = functions.groupRows;
    const std::ptrdiff_t groupCount = (rows_ + groupRows - 1) / groupRows;
    groups_.resize(static_cast<std::size_t>(groupCount) * functions.groupBytes);
    unsigned char* group = groups_.data();
    for (std::ptrdiff_t row = 0; row < rows_; row += groupRows, group += functions.groupBytes) {
        functions.arrange(rowAt(train, row), train.step,
                          static_cast<int>(std::min(groupRows, rows_ - row)), group);
    }
}

template <int N>
void HammingTrain<N>::search(const DescMat& query, std::ptrdiff_t first, std::ptrdiff_t last,
                             TwoNearestBits* nearest, NearestQueryBits* nearestQueries) const {
    // As many at once as the keys can number.
    const std::ptrdiff_t most =
        nearestQueries == nullptr ? last - first : std::ptrdiff_t{1} << kHammingKeyBits<N>;
    for (std::ptrdiff_t from = first; from < last; from += most) {
        searchSome(query, from, std::min(from + most, last), nearest + (from - first),
                   nearestQueries);
    }
}

template <int N>
void HammingTrain<N>::searchSome(const DescMat& query, std::ptrdiff_t first, std::ptrdiff_t last,
                                 TwoNearestBits* nearest, NearestQueryBits* nearestQueries) const {
    static_assert(kHammingQueries == 2);
    const auto blockRows = static_cast<std::size_t>(blockRows_);
    AlignedVector<HammingDistance<N>> distances(2 * blockRows);
    HammingDistance<N>* const distancesOf[] = {distances.data(), distances.data() + blockRows};
    AlignedVector<HammingKey<N>> keys(nearestQueries == nullptr ? 0 : blockRows);

    const unsigned char* groups = groups_.data();
    for (std::ptrdiff_t trainRow = 0; trainRow < rows_; trainRow += blockRows_) {
        const std::ptrdiff_t rows = std::min(blockRows_, rows_ - trainRow);
        const auto groupCount =
            static_cast<int>((rows + functions_.groupRows - 1) / functions_.groupRows);
        const int paddedRows = groupCount * functions_.groupRows;
        std::fill(keys.begin(), keys.end(), std::numeric_limits<HammingKey<N>>::max());
        for (std::ptrdiff_t row = first; row < last; row += kHammingQueries) {
            // Of an odd number of queries the last goes twice, and counts once.
            const std::ptrdiff_t count = std::min<std::ptrdiff_t>(kHammingQueries, last - row);
            const unsigned char* const queries[] = {rowAt(query, row),
                                                    rowAt(query, row + count - 1)};
            functions_.distances(queries, groups, groupCount, distancesOf);
            for (std::ptrdiff_t q = 0; q < count; ++q) {
                HammingDistance<N>* const of = distancesOf[q];
                std::fill(of + rows, of + paddedRows, kNoDistance<N>);
                functions_.offer(of, paddedRows, static_cast<std::uint32_t>(trainRow),
                                 nearest[row + q - first]);
                if (nearestQueries != nullptr) {
                    functions_.lowerKeys(of, paddedRows, static_cast<unsigned>(row + q - first),
                                         keys.data());
                }
            }
        }
        if (nearestQueries != nullptr) {
            offerKeys<N>(keys.data(), keys.data() + paddedRows / 2, rows, first,
                         nearestQueries + trainRow);
        }
        groups += static_cast<std::size_t>(groupCount) * functions_.groupBytes;
    }
}

template class HammingTrain<1>;
template class HammingTrain<2>;
template class HammingTrain<4>;
template class HammingTrain<8>;
template class HammingTrain<16>;

}  // namespace marlo::detail
