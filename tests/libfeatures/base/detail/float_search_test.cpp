// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/detail/float_search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "references/matching_reference.h"
#include "utilities/kernel_parameters.h"
#include "utilities/matching_cases.h"
#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

using test::QueryAndTrain;
using test::Random;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr int kCols = 24;
// More train rows than several groups have: every group but the first is screened with limits.
constexpr int kQueryRows = 29;
constexpr int kTrainRows = 163;

float* rowOf(const DescMat& matrix, int row) {
    return reinterpret_cast<float*>(matrix.data + static_cast<std::size_t>(row) * matrix.step);
}

void multiply(const DescMat& matrix, int row, float factor) {
    float* const elements = rowOf(matrix, row);
    for (int c = 0; c < matrix.cols; ++c) elements[c] *= factor;
}

void multiplyAll(const QueryAndTrain& rows, float factor) {
    for (const DescMat* const matrix : {&rows.query, &rows.train}) {
        for (int row = 0; row < matrix->rows; ++row) multiply(*matrix, row, factor);
    }
}

/// All elements are `element`.
void fill(const DescMat& matrix, int row, float element) {
    std::fill_n(rowOf(matrix, row), matrix.cols, element);
}

void copyRow(const DescMat& from, int fromRow, const DescMat& to, int toRow) {
    std::copy_n(rowOf(from, fromRow), from.cols, rowOf(to, toRow));
}

/// The query rows in blocks, of which some have an odd number of rows or fill no group.
std::vector<std::ptrdiff_t> blockStarts(std::ptrdiff_t rows) {
    std::vector<std::ptrdiff_t> starts;
    for (std::ptrdiff_t start = 0; start < rows; start += 3 + start % 7) starts.push_back(start);
    return starts;
}

class FloatSearchTest : public test::KernelTest<const ScreenFunctions> {
protected:
    /// Searches the blocks of query rows in some order, with and without the train rows' side, and
    /// compares both sides with the reference.
    void expectReference(const DescMat& query, const DescMat& train) {
        const FloatTrain trainRows(*GetParam().run, query, train);
        NearestQueriesFloat nearestQueries = trainRows.noQueries();
        const auto queryRows = static_cast<std::size_t>(query.rows);
        std::vector<TwoNearestFloat> nearest(queryRows);
        std::vector<TwoNearestFloat> nearestAlone(queryRows);
        std::vector<std::ptrdiff_t> starts = blockStarts(query.rows);
        std::shuffle(starts.begin(), starts.end(), shuffler_);
        for (const std::ptrdiff_t first : starts) {
            const std::ptrdiff_t last = std::min<std::ptrdiff_t>(first + 3 + first % 7, query.rows);
            trainRows.search(first, last, nearest.data() + first, &nearestQueries);
            trainRows.search(first, last, nearestAlone.data() + first, nullptr);
        }
        for (int q = 0; q < query.rows; ++q) {
            const auto expected = reference::twoNearestByFloats(query, q, train);
            for (const auto& searched : {nearest, nearestAlone}) {
                const TwoNearestFloat& of = searched[static_cast<std::size_t>(q)];
                ASSERT_EQ(of.index, expected.index.value_or(TwoNearestFloat::kNoIndex)) << q;
                ASSERT_EQ(of.best, expected.best) << q;
                ASSERT_EQ(of.second, expected.second) << q;
            }
        }
        for (int t = 0; t < train.rows; ++t) {
            const auto expected = reference::twoNearestByFloats(train, t, query);
            const NearestQueryFloat& of = nearestQueries.nearest[static_cast<std::size_t>(t)];
            ASSERT_EQ(of.index, expected.index.value_or(NearestQueryFloat().index)) << t;
            ASSERT_EQ(of.distance, expected.best) << t;
        }
    }
    void expectReference(const QueryAndTrain& rows) { expectReference(rows.query, rows.train); }

    std::mt19937 shuffler_{1};
    Random random_{7};
};

TEST_P(FloatSearchTest, FindsTheNearestOfRowsThatLieClose) {
    for (const float noise : {0.3F, 1e-3F, 1e-6F}) {
        SCOPED_TRACE(noise);
        expectReference(test::crowdedRows(kQueryRows, kTrainRows, kCols, noise, random_));
    }
    expectReference(test::crowdedRows(9, 100, 128, 0.01F, random_));
}

TEST_P(FloatSearchTest, FindsTheNearestWhereSomeRowsLieClose) {
    expectReference(test::partlyNearRows(kQueryRows, kTrainRows, kCols, random_));
}

TEST_P(FloatSearchTest, DistancesThatAreEqualOrHardlyDifferAreToldApart) {
    const QueryAndTrain rows = test::crowdedRows(kQueryRows, kTrainRows, kCols, 0.1F, random_);
    // Every third row is that before it with one element changed by the least there is, every
    // fourth is an equal one from further ahead.
    for (const DescMat* const matrix : {&rows.query, &rows.train}) {
        for (int row = 2; row < matrix->rows; row += 3) {
            copyRow(*matrix, row - 1, *matrix, row);
            float& element = rowOf(*matrix, row)[row % kCols];
            element = std::nextafter(element, row % 2 == 0 ? kInfinity : -kInfinity);
        }
        for (int row = 0; row + 33 < matrix->rows; row += 4) {
            copyRow(*matrix, row + 33, *matrix, row);
        }
    }
    expectReference(rows);
}

TEST_P(FloatSearchTest, OfEqualDistancesTheFirstRowCountsOnEitherSide) {
    for (const int cols : {4, 16, 17}) {
        SCOPED_TRACE(cols);
        expectReference(
            test::alikeFloats(kQueryRows, kTrainRows, cols, {0.0F, 1.0F, 2.0F, 3.0F}, random_));
        const QueryAndTrain rows = {DescMat(kQueryRows, cols, DescMat::Float),
                                    DescMat(kTrainRows, cols, DescMat::Float)};
        for (const DescMat* const matrix : {&rows.query, &rows.train}) {
            std::generate_n(rowOf(*matrix, 0), matrix->rows * cols,
                            [this] { return static_cast<float>(random_.below(3)) - 1.0F; });
        }
        expectReference(rows);
    }
}

TEST_P(FloatSearchTest, LengthsMayBeSpread) {
    const QueryAndTrain rows = test::partlyNearRows(kQueryRows, kTrainRows, kCols, random_);
    for (const DescMat* const matrix : {&rows.query, &rows.train}) {
        for (int row = 0; row < matrix->rows; ++row) {
            multiply(*matrix, row, std::pow(10.0F, random_.uniform(-3.0F, 0.0F)));
        }
    }
    expectReference(rows);
}

TEST_P(FloatSearchTest, QueryRowsMayBeLongerThanAllTrainRows) {
    const QueryAndTrain rows = test::crowdedRows(kQueryRows, kTrainRows, kCols, 0.1F, random_);
    for (const float factor : {1.3F, 50.0F}) {
        for (int row = 0; row < rows.query.rows; ++row) multiply(rows.query, row, factor);
        expectReference(rows);
        expectReference(rows.train, rows.query);
    }
}

TEST_P(FloatSearchTest, ARowMayBeFarLongerThanTheOthers) {
    for (const float factor : {1e4F, 1e20F}) {
        for (const int place : {0, kQueryRows - 1}) {
            SCOPED_TRACE(testing::Message() << factor << ' ' << place);
            const QueryAndTrain rows = test::crowdedRows(kQueryRows, 70, kCols, 0.01F, random_);
            multiply(rows.query, place, factor);
            expectReference(rows);
            multiply(rows.train, 2 * place + 1, factor);
            expectReference(rows);
            multiply(rows.query, place, 1.0F / factor);
            expectReference(rows);
        }
    }
}

TEST_P(FloatSearchTest, RowsTooLongForTheScaleMayBeTheNearest) {
    // Rows up to twice as long as nearly all have a place in the scale, those slightly longer have
    // none: they are nearest to one another all the same.
    const QueryAndTrain rows = test::crowdedRows(kQueryRows, kTrainRows, kCols, 0.01F, random_);
    copyRow(rows.query, 0, rows.query, 20);
    copyRow(rows.query, 0, rows.query, 26);
    for (const int row : {70, 100, 101, 140, 162}) copyRow(rows.query, 0, rows.train, row);
    multiply(rows.query, 0, 2.08F);
    multiply(rows.query, 20, 2.06F);
    multiply(rows.query, 26, 2.07F);
    multiply(rows.train, 70, 1.95F);
    multiply(rows.train, 100, 1.94F);
    multiply(rows.train, 101, 2.2F);
    multiply(rows.train, 140, 2.1F);
    multiply(rows.train, 162, 1.96F);
    for (int i = 0; i < 3; ++i) {  // the blocks come in another order each time
        expectReference(rows);
        expectReference(rows.train, rows.query);
    }
}

TEST_P(FloatSearchTest, RowsBeyondABlockAreNotOfferedWhereATrainRowIsTooLong) {
    const QueryAndTrain rows = test::crowdedRows(8, 70, kCols, 0.01F, random_);
    multiply(rows.train, 40, 100.0F);
    multiply(rows.query, 5, 100.0F);  // would be its nearest
    const FloatTrain trainRows(*GetParam().run, rows.query, rows.train);
    for (const std::ptrdiff_t last : {1, 2, 3, 5}) {
        NearestQueriesFloat nearestQueries = trainRows.noQueries();
        TwoNearestFloat nearest[8];
        trainRows.search(0, last, nearest, &nearestQueries);
        for (const NearestQueryFloat& of : nearestQueries.nearest) ASSERT_LT(of.index, last);
        for (std::ptrdiff_t q = last; q < 8; ++q) {
            EXPECT_EQ(nearest[q].index, TwoNearestFloat::kNoIndex) << q << " of " << last;
        }
    }
}

TEST_P(FloatSearchTest, RowsThatAreNotFiniteAreNearToNone) {
    for (const float element : {kNaN, kInfinity, -kInfinity}) {
        const QueryAndTrain rows = test::crowdedRows(kQueryRows, kTrainRows, kCols, 0.05F, random_);
        for (const int row : {0, 1, 7, 8, 21, 28}) rowOf(rows.query, row)[row % kCols] = element;
        for (const int row : {0, 2, 15, 16, 33, 64, 65, 66, 67, 162}) {
            rowOf(rows.train, row)[row % kCols] = element;
        }
        expectReference(rows);
        fill(rows.train, 40, element);
        fill(rows.query, 10, element);
        expectReference(rows);
    }
}

TEST_P(FloatSearchTest, NoFiniteRowOnOneSideGivesNothing) {
    const QueryAndTrain rows = test::crowdedRows(9, 70, kCols, 0.05F, random_);
    for (int row = 0; row < rows.train.rows; ++row) fill(rows.train, row, kNaN);
    expectReference(rows);
    expectReference(rows.train, rows.query);
}

TEST_P(FloatSearchTest, AllLengthsMayBeOfAnyMagnitude) {
    for (const float factor : {1e-22F, 1e-16F, 1e-14F, 1e4F, 1e17F, 1e19F}) {
        SCOPED_TRACE(factor);
        const QueryAndTrain rows = test::crowdedRows(13, 100, kCols, 0.02F, random_);
        multiplyAll(rows, factor);
        expectReference(rows);
    }
}

TEST_P(FloatSearchTest, RowsWhoseSquaresUnderflowAreAsNearAsComputed) {
    // The last row is the longest, but the squares of its elements are rounded to zero.
    const DescMat query = test::rowsOfFloats(128, {0.0F, 0.0F, 0.0F});
    const DescMat train = test::rowsOfFloats(128, std::vector<float>(81, 1.6e-22F));
    fill(train, 80, 2.6e-23F);
    expectReference(query, train);

    const FloatTrain trainRows(*GetParam().run, query, train);
    TwoNearestFloat nearest[3];
    trainRows.search(0, 3, nearest, nullptr);
    EXPECT_EQ(nearest[0].index, 80U);
    EXPECT_EQ(nearest[0].best, 0.0F);
}

TEST_P(FloatSearchTest, RowsMayBeZero) {
    const QueryAndTrain rows = test::crowdedRows(kQueryRows, kTrainRows, kCols, 0.05F, random_);
    for (const int row : {3, 17, 28}) fill(rows.query, row, 0.0F);
    for (const int row : {9, 100, 150}) fill(rows.train, row, 0.0F);
    expectReference(rows);
    multiplyAll(rows, 0.0F);
    expectReference(rows);
}

TEST_P(FloatSearchTest, ThereMayBeAnyNumberOfColumns) {
    for (const int cols : {1, 2, 3, 15, 16, 17, 33}) {
        SCOPED_TRACE(cols);
        expectReference(test::crowdedRows(13, 90, cols, 0.02F, random_));
    }
}

TEST_P(FloatSearchTest, ThereMayBeAnyNumberOfRows) {
    for (const int queryRows : {1, 3, 4, 5}) {
        for (const int trainRows : {1, 2, 7, 8, 9, 31, 32, 33, 65}) {
            SCOPED_TRACE(testing::Message() << queryRows << ' ' << trainRows);
            expectReference(test::crowdedRows(queryRows, trainRows, 5, 0.02F, random_));
        }
    }
}

TEST_P(FloatSearchTest, RowsMayLieAnywhere) {
    const QueryAndTrain rows = test::crowdedRows(9, 70, 13, 0.02F, random_);
    for (const std::size_t offset : {0U, 1U, 4U}) {
        for (const std::size_t gap : {0U, 2U, 4U}) {
            const test::RowsApart query(rows.query, offset, gap);
            const test::RowsApart train(rows.train, offset, gap);
            expectReference(query.view(), train.view());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryKernelOfThisBuild, FloatSearchTest,
                         test::everyKernel(screenKernels()), test::KernelName());

/// The elements of a rounded row of up to `columns` columns, with marks where nothing was written.
struct Rounded {
    std::int32_t term;
    std::vector<std::int16_t> elements;
};
constexpr std::int16_t kMark = 77;

Rounded roundedBy(const FloatScale& scale, const std::vector<float>& row,
                  std::ptrdiff_t stride = 1) {
    Rounded rounded;
    double square = 0.0;
    for (const float x : row) square += static_cast<double>(x) * static_cast<double>(x);
    rounded.elements.assign(static_cast<std::size_t>(2 * stride * scale.pairs()), kMark);
    rounded.term = scale.round(row.data(), square, rounded.elements.data(), stride);
    return rounded;
}

using Elements = std::vector<std::int16_t>;

TEST(FloatScaleTest, TheLongestRowIsScaledTo30000) {
    const FloatScale scale(2, {9.0, 1.0});
    EXPECT_EQ(scale.pairs(), 1);
    const Rounded longest = roundedBy(scale, {-3.0F, 0.0F});
    EXPECT_EQ(longest.elements, (Elements{-30000, 0}));
    EXPECT_EQ(longest.term, 450'000'000);
}

TEST(FloatScaleTest, ElementsAndTermsAreRoundedTowardsZero) {
    const FloatScale scale(2, {9.0});
    // Scaled they are 10001.22 long each.
    const Rounded rounded = roundedBy(scale, {1.0F + 0x1p-13F, -1.0F - 0x1p-13F});
    EXPECT_EQ(rounded.elements, (Elements{10001, -10001}));
    EXPECT_EQ(rounded.term, 100'024'415);
}

TEST(FloatScaleTest, APairOfAnOddNumberOfColumnsEndsWithZero) {
    const FloatScale scale(3, {9.0});
    EXPECT_EQ(scale.pairs(), 2);
    EXPECT_EQ(roundedBy(scale, {1.0F, 2.0F, -2.0F}).elements, (Elements{10000, 20000, -20000, 0}));
    EXPECT_EQ(roundedBy(FloatScale(1, {9.0}), {3.0F}).elements, (Elements{30000, 0}));
}

TEST(FloatScaleTest, PairsAreAStrideApart) {
    const FloatScale scale(3, {9.0});
    EXPECT_EQ(roundedBy(scale, {1.0F, 2.0F, -2.0F}, 2).elements,
              (Elements{10000, 20000, kMark, kMark, -20000, 0, kMark, kMark}));
}

TEST(FloatScaleTest, ARowThatIsNotFiniteIsNeverACandidate) {
    const FloatScale scale(3, {9.0, std::numeric_limits<double>::quiet_NaN(),
                               std::numeric_limits<double>::infinity()});
    for (const float element : {kNaN, kInfinity, -kInfinity}) {
        const Rounded rounded = roundedBy(scale, {1.0F, element, 1.0F});
        EXPECT_EQ(rounded.term, FloatScale::kNever);
        EXPECT_EQ(rounded.elements, (Elements{0, 0, 0, 0}));
    }
    EXPECT_EQ(scale.queryLimit(FloatScale::kNever, 1.0F), FloatScale::kNever);
}

TEST(FloatScaleTest, ARowThatIsTooLongIsAlwaysACandidate) {
    std::vector<double> squares(40, 9.0);
    squares[7] = 37.0;
    const FloatScale scale(3, squares);
    const Rounded rounded = roundedBy(scale, {6.0F, 1.0F, 0.0F});
    EXPECT_EQ(rounded.term, FloatScale::kAlways);
    EXPECT_EQ(rounded.elements, (Elements{0, 0, 0, 0}));
    // Below all that a product less a term can be, but above that of a row that is not finite.
    EXPECT_EQ(scale.queryLimit(FloatScale::kAlways, 1.0F),
              std::numeric_limits<std::int32_t>::min() + 2);
}

TEST(FloatScaleTest, ARowUpToTwiceAsLongAsNearlyAllHasAPlaceInTheScale) {
    std::vector<double> squares(40, 9.0);
    squares[7] = 36.0;
    EXPECT_EQ(roundedBy(FloatScale(3, squares), {0.0F, 6.0F, 0.0F}).elements,
              (Elements{0, 30000, 0, 0}));
}

TEST(FloatScaleTest, NothingIsBelowADistanceOfZero) {
    EXPECT_EQ(FloatScale(3, {9.0}).queryLimit(1000, 0.0F), FloatScale::kNever);
}

TEST(FloatScaleTest, EverythingIsBelowTheLargestDistance) {
    const FloatScale scale(3, {9.0});
    EXPECT_EQ(scale.trainLimit(std::numeric_limits<float>::max()), FloatScale::kNever);
    EXPECT_EQ(scale.queryLimit(450'000'000, std::numeric_limits<float>::max()),
              std::numeric_limits<std::int32_t>::min() + 2);
}

TEST(FloatScaleTest, LimitsLeaveRoomForTheErrorOfARoundedProduct) {
    const FloatScale scale(4, {9.0});
    // Rows off by up to 1.01 in each of four elements, so by 2.02; at most 30000 long.
    constexpr double kError = 2.02 * 30000.0 + 30002.02 * 2.02;
    constexpr double kHalfSquare = 0.5 * 10000.0 * 10000.0;  // of a distance of 1
    EXPECT_LE(scale.queryLimit(0, 1.0F), -kHalfSquare - kError);
    EXPECT_GE(scale.queryLimit(0, 1.0F), -kHalfSquare - kError - 1000.0);
    EXPECT_GE(scale.trainLimit(1.0F), kHalfSquare + kError);
    EXPECT_LE(scale.trainLimit(1.0F), kHalfSquare + kError + 1000.0);
}

TEST(FloatScaleTest, WhereBoundsWouldNotHoldEverythingIsACandidate) {
    const struct {
        std::ptrdiff_t columns;
        double length;
    } cases[] = {{2, 0.0}, {2, 0.9e-15}, {2, 1.1e18}, {(1 << 20) + 1, 1.0}};
    for (const auto& [columns, length] : cases) {
        const FloatScale scale(columns, {length * length});
        for (const float distance : {1e-22F, 1.0F, 1e18F}) {
            EXPECT_LT(scale.queryLimit(0, distance), 0) << columns << ' ' << length;
            EXPECT_GT(scale.trainLimit(distance), 0) << columns << ' ' << length;
            if (columns > 2) continue;
            const Rounded rounded = roundedBy(scale, {static_cast<float>(0.9 * length), 0.0F});
            EXPECT_EQ(rounded.elements, (Elements{0, 0}));
            EXPECT_EQ(rounded.term, 0);
        }
    }
}

}  // namespace
}  // namespace marlo::detail
