// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "libfeatures/base/detail/nearest_query.h"
#include "libfeatures/base/detail/screen_kernels.h"
#include "libfeatures/base/detail/two_nearest.h"
#include "support/desc_mat.h"
#include "support/detail/aligned_vector.h"
#include "support/detail/sift_distance_kernels.h"

namespace marlo::detail {

/// Float rows as 16-bit integers, rounded towards zero after multiplication with one scale for all,
/// and what turns products of these into bounds of distances.
///
/// With rows scaled so that the longest has length L = 30000, every element of a rounded row is off
/// by less than 1.01 (truncation, and the rounding of the product) and the row by less than
/// r = 1.01 sqrt(columns), so a product of two rounded rows is off by less than
/// e = r L + (L + r) r from that of the scaled rows. All sums stay below 2^31.
///
/// A few rows that are far longer than the others would leave no room for these. They are left out
/// of the scale, rounded to zeros, and every pair with them counts as a candidate.
class FloatScale {
public:
    /// For rows of `columns` elements with the squared lengths `squares`, some of which may not be
    /// finite.
    FloatScale(std::ptrdiff_t columns, std::vector<double> squares);

    [[nodiscard]] std::ptrdiff_t pairs() const { return pairs_; }

    /// Writes one row, column pair by column pair with `stride` pairs in between, and returns its
    /// term: half its squared length, rounded down; kNever for a row that is not finite, kAlways
    /// for one that is too long.
    std::int32_t round(const float* row, double square, std::int16_t* pairs,
                       std::ptrdiff_t stride) const;

    /// A product less the term of the train row that is above this can belong to a distance below
    /// `distance` from a query row of this term.
    [[nodiscard]] std::int32_t queryLimit(std::int32_t queryTerm, float distance) const;

    /// The same seen from a train row: above the query row's term - trainLimit(distance), the
    /// distance can be `distance` or below.
    [[nodiscard]] std::int32_t trainLimit(float distance) const;

    static constexpr std::int32_t kNever = 0x7fffffff;
    static constexpr std::int32_t kAlways = -kNever;

private:
    [[nodiscard]] double halfSquare(float distance) const;

    std::ptrdiff_t columns_;
    std::ptrdiff_t pairs_;
    float scale_ = 0.0F;  ///< 0 where bounds would not hold: everything is a candidate
    double mostSquare_ = 0.0;
    double error_ = 1.0;
    double relativeError_ = 0.0;  ///< of a computed squared distance
};

/// The nearest query rows of all train rows, as far as offered.
struct NearestQueriesFloat {
    std::vector<NearestQueryFloat> nearest;
    std::vector<std::int32_t> limits;  ///< FloatScale::trainLimit() of their distances
};

/// Float train rows, searched with the results that cvSiftDistance() gives for every pair, of which
/// only few have to be looked at. The matrices must outlive the object.
class FloatTrain {
public:
    /// Both matrices must have rows of floats of the same width, at any address. The rows are
    /// prepared on OpenMP threads, or on the calling one.
    enum class Preparation { onThreads, onCaller };
    FloatTrain(const ScreenFunctions& functions, const DescMat& query, const DescMat& train,
               Preparation preparation = Preparation::onThreads);
    FloatTrain(const FloatTrain&) = delete;
    FloatTrain& operator=(const FloatTrain&) = delete;

    [[nodiscard]] NearestQueriesFloat noQueries() const;

    /// Finds the two nearest train rows of the query rows `first` to `last` (excluded):
    /// nearest[i] is for row `first` + i. Offers these query rows to the train rows as well, if
    /// there is `nearestQueries`.
    void search(std::ptrdiff_t first, std::ptrdiff_t last, TwoNearestFloat* nearest,
                NearestQueriesFloat* nearestQueries) const;

private:
    const ScreenFunctions& functions_;
    SiftDistanceFunction* distance_;
    DescMat queryCopy_;  ///< where floats do not stand at addresses for floats
    DescMat trainCopy_;
    const DescMat& query_;
    const DescMat& train_;
    std::vector<double> querySquares_;
    std::vector<double> trainSquares_;
    FloatScale scale_;
    AlignedVector<std::int16_t> groups_;
    std::vector<std::int32_t> terms_;
};

}  // namespace marlo::detail
