// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "libfeatures/base/d_match.h"
#include "support/desc_mat.h"

/// Matching by brute force, said as plainly as possible: scalar loops, one thread, no concern for
/// speed. Floats are added and divided in the library's order, so that results can be compared bit
/// for bit.
///
/// Matrices may be views, with rows at any address and any number of bytes apart.
namespace marlo::reference {

/// How many bits differ between the first `query.cols` bytes of two rows.
std::uint64_t hammingDistance(const DescMat& query, int queryRow, const DescMat& train,
                              int trainRow);

/// The Euclidean distance of two rows of floats: squared differences in 16 partial sums, column c
/// in sum c mod 16, which are folded in halves.
float siftDistance(const DescMat& query, int queryRow, const DescMat& train, int trainRow);

template <typename Distance>
struct TwoNearest {
    Distance best = std::numeric_limits<Distance>::max();
    Distance second = std::numeric_limits<Distance>::max();
    std::optional<unsigned int> index;  ///< of the nearest
};
/// The distances of a query row to its two nearest train rows. Of rows at the same distance the
/// first is the nearest; a second one at distance 0 ends the search. NaN and distances that a float
/// cannot hold are passed over.
TwoNearest<std::uint64_t> twoNearestByBits(const DescMat& query, int queryRow,
                                           const DescMat& train);
TwoNearest<float> twoNearestByFloats(const DescMat& query, int queryRow, const DescMat& train);

/// The matches that pass the ratio test, with the highest score first.
std::vector<DMatch> distFracMatches(const DescMat& query, const DescMat& train,
                                    unsigned int maxHammingDistance, float maxDistance,
                                    float distanceFraction);

/// Those of them whose query row is the nearest (the first of several) of their train row.
std::vector<DMatch> distFracMutualMatches(const DescMat& query, const DescMat& train,
                                          unsigned int maxHammingDistance, float maxDistance,
                                          float distanceFraction);

/// Mutual nearest neighbours by Hamming distance, in the order of the query rows.
std::vector<DMatch> leftRightMatches(const DescMat& query, const DescMat& train);

}  // namespace marlo::reference
