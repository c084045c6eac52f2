// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/detail/float_search.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace marlo::detail {
namespace {

constexpr double kLongest = 30000.0;
constexpr double kElementError = 1.01;
// Beyond these the bounds of the rounding errors, or single precision itself, would not hold.
constexpr std::ptrdiff_t kMostColumns = 1 << 20;
constexpr double kLeastLength = 1e-15;
constexpr double kMostLength = 1e18;

const float* rowAt(const DescMat& matrix, std::ptrdiff_t row) {
    return reinterpret_cast<const float*>(matrix.data +
                                          static_cast<std::size_t>(row) * matrix.step);
}

const DescMat& aligned(const DescMat& matrix, DescMat& copy) {
    const auto address = reinterpret_cast<std::uintptr_t>(matrix.data);
    if (address % alignof(float) == 0 && matrix.step % alignof(float) == 0) return matrix;
    copy.create(matrix.rows, matrix.cols, matrix.type());
    for (int row = 0; row < matrix.rows; ++row) {
        const auto at = static_cast<std::size_t>(row);
        std::memcpy(copy.data + at * copy.step, matrix.data + at * matrix.step, copy.step);
    }
    return copy;
}

// Not finite if an element is not. Several sums, so that they need not wait for one another.
double squaredLength(const float* row, std::ptrdiff_t columns) {
    constexpr std::ptrdiff_t kSums = 8;
    double sums[kSums] = {};
    std::ptrdiff_t c = 0;
    for (; c + kSums <= columns; c += kSums) {
        for (std::ptrdiff_t i = 0; i < kSums; ++i) {
            sums[i] += static_cast<double>(row[c + i]) * static_cast<double>(row[c + i]);
        }
    }
    for (; c < columns; ++c) sums[0] += static_cast<double>(row[c]) * static_cast<double>(row[c]);
    double sum = 0.0;
    for (const double part : sums) sum += part;
    return sum;
}

std::vector<double> squaredLengths(const DescMat& matrix, bool onThreads) {
    std::vector<double> squares(static_cast<std::size_t>(matrix.rows));
#pragma omp parallel for schedule(static) if (onThreads)
    for (std::ptrdiff_t row = 0; row < matrix.rows; ++row) {
        squares[static_cast<std::size_t>(row)] = squaredLength(rowAt(matrix, row), matrix.cols);
    }
    return squares;
}

std::vector<double> joined(std::vector<double> first, const std::vector<double>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// The largest that is not far above nearly all; 0 if there is none.
double mostOrdinary(std::vector<double> squares) {
    squares.erase(std::remove_if(squares.begin(), squares.end(),
                                 [](double square) { return !std::isfinite(square); }),
                  squares.end());
    if (squares.empty()) return 0.0;
    const auto nearlyAll = squares.end() - 1 - static_cast<std::ptrdiff_t>(squares.size() / 20);
    std::nth_element(squares.begin(), nearlyAll, squares.end());
    const double far = 4.0 * *nearlyAll;  // twice the length
    double most = *nearlyAll;
    for (const double square : squares) {
        if (square <= far) most = std::max(most, square);
    }
    return most;
}

}  // namespace

FloatScale::FloatScale(std::ptrdiff_t columns, std::vector<double> squares)
    : columns_(columns), pairs_((columns + 1) / 2), mostSquare_(mostOrdinary(std::move(squares))) {
    const double longest = std::sqrt(mostSquare_);
    if (columns_ > kMostColumns || longest < kLeastLength || longest > kMostLength) return;
    scale_ = static_cast<float>(kLongest / longest);
    const auto elements = static_cast<double>(columns_);
    const double rowError = kElementError * std::sqrt(elements);
    error_ = std::ceil(rowError * kLongest + (kLongest + rowError) * rowError) + 2.0;
    // 16 sums of a sixteenth of the columns each, folded: a few roundings of 2^-24 more than that.
    relativeError_ = (elements / 16.0 + 16.0) * 0x1p-22;
}

std::int32_t FloatScale::round(const float* row, double square, std::int16_t* pairs,
                               std::ptrdiff_t stride) const {
    const bool isFinite = std::isfinite(square);
    const bool isOrdinary = isFinite && square <= mostSquare_;
    const auto rounded = [&](std::ptrdiff_t c) {
        return isOrdinary ? static_cast<std::int16_t>(row[c] * scale_) : std::int16_t{0};
    };
    for (std::ptrdiff_t pair = 0; pair < columns_ / 2; ++pair, pairs += 2 * stride) {
        pairs[0] = rounded(2 * pair);
        pairs[1] = rounded(2 * pair + 1);
    }
    if (columns_ % 2 != 0) {
        pairs[0] = rounded(columns_ - 1);
        pairs[1] = 0;
    }
    if (!isOrdinary) return isFinite ? kAlways : kNever;
    const double factor = scale_;
    return static_cast<std::int32_t>(0.5 * factor * factor * square);
}

double FloatScale::halfSquare(float distance) const {
    const double scaled = static_cast<double>(scale_) * static_cast<double>(distance);
    return 0.5 * scaled * scaled * (1.0 + relativeError_);
}

std::int32_t FloatScale::queryLimit(std::int32_t queryTerm, float distance) const {
    if (queryTerm == kNever || distance == 0.0F) return kNever;
    // Train rows that are not finite have the term kNever, and less than this.
    constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min() + 2;
    if (queryTerm == kAlways) return kLeast;
    const double limit = std::floor(queryTerm - halfSquare(distance) - error_);
    return static_cast<std::int32_t>(std::max<double>(limit, kLeast));
}

std::int32_t FloatScale::trainLimit(float distance) const {
    const double limit = std::ceil(halfSquare(distance) + error_);
    return static_cast<std::int32_t>(std::min<double>(limit, kNever));
}

FloatTrain::FloatTrain(const ScreenFunctions& functions, const DescMat& query, const DescMat& train,
                       Preparation preparation)
    : functions_(functions),
      distance_(fastest(siftDistanceKernels())),
      query_(aligned(query, queryCopy_)),
      train_(aligned(train, trainCopy_)),
      querySquares_(squaredLengths(query_, preparation == Preparation::onThreads)),
      trainSquares_(squaredLengths(train_, preparation == Preparation::onThreads)),
      scale_(train_.cols, joined(querySquares_, trainSquares_)) {
    const std::ptrdiff_t groupRows = functions.groupRows;
    const std::ptrdiff_t groupCount = (train_.rows + groupRows - 1) / groupRows;
    const std::ptrdiff_t groupSize = 2 * groupRows * scale_.pairs();
    groups_.resize(static_cast<std::size_t>(groupCount * groupSize));
    terms_.resize(static_cast<std::size_t>(groupCount * groupRows), FloatScale::kNever);
#pragma omp parallel for schedule(static) if (preparation == Preparation::onThreads)
    for (std::ptrdiff_t row = 0; row < train_.rows; ++row) {
        std::int16_t* const pairs =
            groups_.data() + row / groupRows * groupSize + 2 * (row % groupRows);
        const auto at = static_cast<std::size_t>(row);
        terms_[at] = scale_.round(rowAt(train_, row), trainSquares_[at], pairs, groupRows);
    }
}

NearestQueriesFloat FloatTrain::noQueries() const {
    NearestQueriesFloat queries;
    queries.nearest.resize(static_cast<std::size_t>(train_.rows));
    queries.limits.resize(terms_.size(), scale_.trainLimit(NearestQueryFloat().distance));
    return queries;
}

void FloatTrain::search(std::ptrdiff_t first, std::ptrdiff_t last, TwoNearestFloat* nearest,
                        NearestQueriesFloat* nearestQueries) const {
    const std::ptrdiff_t queryGroups = (last - first + kScreenQueries - 1) / kScreenQueries;
    const auto queryCount = static_cast<std::size_t>(queryGroups * kScreenQueries);
    AlignedVector<std::int16_t> queries(queryCount * static_cast<std::size_t>(2 * scale_.pairs()));
    std::vector<std::int32_t> terms(queryCount, FloatScale::kNever);
    std::vector<std::int32_t> limits(queryCount, FloatScale::kNever);
    std::vector<bool> isFar(queryCount, false);
    for (std::ptrdiff_t q = 0; q < last - first; ++q) {
        std::int16_t* const pairs =
            queries.data() +
            2 * (q / kScreenQueries * kScreenQueries * scale_.pairs() + q % kScreenQueries);
        const auto at = static_cast<std::size_t>(q);
        const double square = querySquares_[static_cast<std::size_t>(first + q)];
        terms[at] = scale_.round(rowAt(query_, first + q), square, pairs, kScreenQueries);
        limits[at] = scale_.queryLimit(terms[at], nearest[q].second);
        isFar[at] = terms[at] == FloatScale::kAlways;
        if (isFar[at]) terms[at] = 0;
    }

    const std::ptrdiff_t groupRows = functions_.groupRows;
    ScreenTile tile;
    tile.pairs = scale_.pairs();
    tile.queries = queries.data();
    tile.queryGroups = static_cast<int>(queryGroups);
    tile.queryTerms = terms.data();
    tile.queryLimits = limits.data();
    ScreenCandidates candidates{};
    for (std::ptrdiff_t firstRow = 0; firstRow < train_.rows; firstRow += groupRows) {
        tile.train = groups_.data() + 2 * firstRow * scale_.pairs();
        tile.trainTerms = terms_.data() + firstRow;
        std::int32_t* const trainLimits =
            nearestQueries == nullptr ? nullptr : nearestQueries->limits.data() + firstRow;
        tile.trainLimits = trainLimits;
        for (int group = 0;; ++group) {
            group = functions_.screen(tile, group, candidates);
            if (group == tile.queryGroups) break;
            for (int q = 0; q < kScreenQueries; ++q) {
                const std::ptrdiff_t query = std::ptrdiff_t{group} * kScreenQueries + q;
                const bool far = isFar[static_cast<std::size_t>(query)];
                const std::int32_t term = terms[static_cast<std::size_t>(query)];
                // A train row that is too long passes every limit, that of the padding included.
                if (term == FloatScale::kNever) continue;
                std::int32_t& limit = limits[static_cast<std::size_t>(query)];
                for (std::uint32_t mask = candidates.masks[q]; mask != 0; mask &= mask - 1) {
                    const int lane = __builtin_ctz(mask);
                    // The ones before may have lowered the limits.
                    const std::int32_t x = candidates.x[q][lane];
                    const bool forTrain =
                        trainLimits != nullptr && (far || x > term - trainLimits[lane]);
                    if (x <= limit && !forTrain) continue;
                    const std::ptrdiff_t row = firstRow + lane;
                    const float distance =
                        distance_(rowAt(query_, first + query), rowAt(train_, row), train_.cols);
                    nearest[query].offer(distance, static_cast<std::uint32_t>(row));
                    if (!far) limit = scale_.queryLimit(term, nearest[query].second);
                    if (forTrain) {
                        NearestQueryFloat& nearestQuery =
                            nearestQueries->nearest[static_cast<std::size_t>(row)];
                        nearestQuery.offer(distance, static_cast<std::uint32_t>(first + query));
                        trainLimits[lane] = scale_.trainLimit(nearestQuery.distance);
                    }
                }
            }
        }
    }
}

}  // namespace marlo::detail
