// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

#include "libfeatures/base/detail/hamming_kernels.h"
#include "libfeatures/base/detail/nearest_query.h"
#include "libfeatures/base/detail/two_nearest.h"
#include "support/desc_mat.h"
#include "support/detail/aligned_vector.h"

namespace marlo::detail {

/// Train rows of N 64-bit words, laid out for a kernel. `train` must have rows of at least as many
/// bytes.
template <int N>
class HammingTrain {
public:
    HammingTrain(const HammingFunctions<N>& functions, const DescMat& train);

    /// Finds the two nearest train rows of the query rows `first` to `last` (excluded):
    /// nearest[i] is for row `first` + i.
    /// Where there is `nearestQueries`, with an entry a train row, these query rows are offered to
    /// the train rows as well.
    void search(const DescMat& query, std::ptrdiff_t first, std::ptrdiff_t last,
                TwoNearestBits* nearest, NearestQueryBits* nearestQueries) const;

private:
    void searchSome(const DescMat& query, std::ptrdiff_t first, std::ptrdiff_t last,
                    TwoNearestBits* nearest, NearestQueryBits* nearestQueries) const;

    const HammingFunctions<N>& functions_;
    std::ptrdiff_t rows_;
    std::ptrdiff_t blockRows_;  ///< that stay in the cache while all query rows pass
    AlignedVector<unsigned char> groups_;
};

}  // namespace marlo::detail
