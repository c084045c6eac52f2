// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/desc_matcher_left_right.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "libfeatures/base/parameter_setters.h"
#include "libfeatures/matchers/match_utils.h"
#include "references/matching_reference.h"
#include "support/system.h"
#include "utilities/matching_cases.h"
#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using reference::leftRightMatches;
using test::rowsOfBits;
using test::sameMatches;

constexpr std::array kWidths = {8, 16, 32, 64, 128};

testing::AssertionResult agrees(const DescMat& query, const DescMat& train) {
    return sameMatches(DescMatcherLeftRight().match(query, train), leftRightMatches(query, train));
}

TEST(DescMatcherLeftRightTest, MatchesMutualNearestNeighboursInTheOrderOfTheQueryRows) {
    const DescMatcherLeftRight matcher;
    EXPECT_TRUE(
        sameMatches(matcher.match(rowsOfBits(16, {100, 50, 0}), rowsOfBits(16, {2, 101, 40})),
                    {{0, 1, 1.0F}, {1, 2, 1.0F}, {2, 0, 1.0F}}));
}

TEST(DescMatcherLeftRightTest, ARowWhoseNearestHasANearerOneIsNotMatched) {
    const DescMatcherLeftRight matcher;
    // Row 0 is nearest to train row 1, and that to row 1.
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfBits(16, {10, 19}), rowsOfBits(16, {100, 20})),
                            {{1, 1, 1.0F}}));
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfBits(16, {19, 10}), rowsOfBits(16, {100, 20})),
                            {{0, 1, 1.0F}}));
}

TEST(DescMatcherLeftRightTest, OfTrainRowsAtTheSameDistanceTheFirstIsTheNearest) {
    const DescMatcherLeftRight matcher;
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfBits(16, {20}), rowsOfBits(16, {90, 25, 15, 25})),
                            {{0, 1, 1.0F}}));
    // Row 1 is nearer to the first of the two, so row 0 has nobody; it does not get the second.
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfBits(16, {20, 26}), rowsOfBits(16, {25, 15})),
                            {{1, 0, 1.0F}}));
}

TEST(DescMatcherLeftRightTest, OfQueryRowsAtTheSameDistanceTheFirstIsTheNearest) {
    const DescMatcherLeftRight matcher;
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfBits(16, {90, 25, 15, 25}), rowsOfBits(16, {20})),
                            {{1, 0, 1.0F}}));
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfBits(16, {7, 7, 7}), rowsOfBits(16, {7, 7})),
                            {{0, 0, 1.0F}}));
}

TEST(DescMatcherLeftRightTest, ThereIsNoLimitAndNoRatioTest) {
    const DescMatcherLeftRight matcher;
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfBits(128, {0}), rowsOfBits(128, {1024, 1023})),
                            {{0, 1, 1.0F}}));
    EXPECT_TRUE(
        sameMatches(matcher.match(rowsOfBits(128, {0}), rowsOfBits(128, {1024})), {{0, 0, 1.0F}}));
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfBits(128, {5, 9}), rowsOfBits(128, {5, 5, 5})),
                            {{0, 0, 1.0F}}));
}

TEST(DescMatcherLeftRightTest, EveryMatchIsAmongTheBestForAnyThresholdBelowOne) {
    const DescMatcherLeftRight matcher;
    const DescMat rows = rowsOfBits(16, {0, 40, 80, 120});
    const std::vector<DMatch> matches = matcher.match(rows, rows);
    EXPECT_EQ(copyBestMatches(matches, std::nextafter(1.0F, 0.0F)).size(), 4U);
}

TEST(DescMatcherLeftRightTest, EveryBitOfARowCounts) {
    const DescMatcherLeftRight matcher;
    for (const int cols : kWidths) {
        // Two bits from one another, none from themselves.
        const DescMat rows = test::rowsOfSingleBits(cols);
        std::vector<DMatch> expected;
        for (unsigned int i = 0; i < 8U * static_cast<unsigned int>(cols); ++i) {
            expected.emplace_back(i, i, 1.0F);
        }
        EXPECT_TRUE(sameMatches(matcher.match(rows, rows), expected)) << cols;
    }
}

TEST(DescMatcherLeftRightTest, EmptyMatricesGiveNoMatches) {
    const DescMatcherLeftRight matcher;
    const DescMat rows = rowsOfBits(16, {3});
    const DescMat noRows(0, 16, DescMat::Byte);
    const DescMat noColumns(2, 0, DescMat::Byte);
    for (const DescMat* const empty : {&noRows, &noColumns}) {
        EXPECT_TRUE(matcher.match(*empty, rows).empty());
        EXPECT_TRUE(matcher.match(rows, *empty).empty());
        EXPECT_TRUE(matcher.match(*empty, *empty).empty());
    }
    EXPECT_TRUE(matcher.match(DescMat(), DescMat()).empty());
}

TEST(DescMatcherLeftRightTest, OtherWidthsGiveNoMatches) {
    const DescMatcherLeftRight matcher;
    for (const int cols : {1, 7, 9, 12, 15, 17, 24, 40, 127, 129, 256}) {
        const test::RowsApart rows(rowsOfBits(cols, {0, 1, 2}));
        EXPECT_TRUE(matcher.match(rows.view(), rows.view()).empty()) << cols;
    }
}

TEST(DescMatcherLeftRightTest, MatricesOfDifferentWidthsGiveNoMatches) {
    const DescMatcherLeftRight matcher;
    for (const int queryCols : kWidths) {
        for (const int trainCols : {8, 12, 16, 17, 24, 32, 64, 128}) {
            if (queryCols != trainCols) {
                const test::RowsApart query(rowsOfBits(queryCols, {0, 1}));
                const test::RowsApart train(rowsOfBits(trainCols, {0}));
                EXPECT_TRUE(matcher.match(query.view(), train.view()).empty());
                EXPECT_TRUE(matcher.match(train.view(), query.view()).empty());
            }
        }
    }
}

TEST(DescMatcherLeftRightTest, RowsAreReadAsBytesWhateverTheirType) {
    test::Random random(1);
    const DescMatcherLeftRight matcher;
    for (const int cols : kWidths) {
        const DescMat noise = test::randomBits(20, 4 * cols, random);
        DescMat floats(20, cols, DescMat::Float);
        std::memcpy(floats.data, noise.data, 20 * floats.step);
        DescMat bytes(20, cols, DescMat::Byte);
        for (int i = 0; i < 20; ++i) {
            std::memcpy(bytes.row(i).data, floats.row(i).data, bytes.step);
        }
        std::vector<DMatch> itself;
        for (unsigned int i = 0; i < 20; ++i) {
            itself.emplace_back(i, i, 1.0F);
        }
        EXPECT_TRUE(sameMatches(matcher.match(floats, floats), itself)) << cols;
        EXPECT_TRUE(sameMatches(matcher.match(floats, bytes), itself)) << cols;
        EXPECT_TRUE(sameMatches(matcher.match(bytes, floats), itself)) << cols;
    }
}

TEST(DescMatcherLeftRightTest, AViewIsAMatrixOfOneRow) {
    const DescMatcherLeftRight matcher;
    const DescMat rows = rowsOfBits(16, {0, 30, 60});
    EXPECT_TRUE(sameMatches(matcher.match(rows.row(1), rows), {{0, 1, 1.0F}}));
    EXPECT_TRUE(sameMatches(matcher.match(rows, rows.row(2)), {{2, 0, 1.0F}}));
}

TEST(DescMatcherLeftRightTest, RowsMayLieAnywhere) {
    test::Random random(2);
    for (int i = 0; i < 100; ++i) {
        for (const int cols : kWidths) {
            const auto [query, train] = test::anyAlikeBits(20, cols, random);
            const test::RowsApart queryRows = test::anywhere(query, random);
            const test::RowsApart trainRows = test::anywhere(train, random);
            EXPECT_TRUE(agrees(queryRows.view(), trainRows.view())) << cols;
            EXPECT_TRUE(agrees(query, trainRows.view())) << cols;
            EXPECT_TRUE(agrees(queryRows.view(), train)) << cols;
        }
    }
}

TEST(DescMatcherLeftRightTest, TheLastRowsOfManyFindEachOther) {
    test::Random random(3);
    const DescMatcherLeftRight matcher;
    for (const int rows : {1, 2, 255, 256, 257, 727, 728, 729, 1456, 1500}) {
        const DescMat few = test::randomBits(3, 16, random);
        const DescMat many = test::randomBits(rows, 16, random);
        DescMat last = many.row(rows - 1);
        few.row(2).copyTo(last);
        const auto lastIndex = static_cast<unsigned int>(rows - 1);
        EXPECT_TRUE(matcher.match(few, many).back() == DMatch(2, lastIndex, 1.0F)) << rows;
        EXPECT_TRUE(matcher.match(many, few).back() == DMatch(lastIndex, 2, 1.0F)) << rows;
        EXPECT_TRUE(agrees(few, many)) << rows;
        EXPECT_TRUE(agrees(many, few)) << rows;
    }
}

TEST(DescMatcherLeftRightTest, RowsBeyondTheSixteenthBitOfAnIndexAreFound) {
    constexpr int kRows = 70000;
    const DescMatcherLeftRight matcher;
    for (const int cols : {16, 32}) {
        const DescMat few = rowsOfBits(cols, {50, 120});
        DescMat many = rowsOfBits(cols, std::vector<int>(kRows, 0));
        DescMat last = many.row(kRows - 1);
        few.row(1).copyTo(last);
        EXPECT_TRUE(sameMatches(matcher.match(few, many), {{0, 0, 1.0F}, {1, kRows - 1, 1.0F}}));
        EXPECT_TRUE(sameMatches(matcher.match(many, few), {{0, 0, 1.0F}, {kRows - 1, 1, 1.0F}}));
    }
}

TEST(DescMatcherLeftRightTest, AgreesWithTheReferenceOnManySmallCases) {
    test::Random random(4);
    std::size_t matches = 0;
    for (int i = 0; i < 3000; ++i) {
        const int cols = kWidths[static_cast<std::size_t>(i) % kWidths.size()];
        const auto [query, train] = test::anyAlikeBits(40, cols, random);
        const std::vector<DMatch> wanted = leftRightMatches(query, train);
        ASSERT_TRUE(sameMatches(DescMatcherLeftRight().match(query, train), wanted))
            << "case " << i << ": " << query.rows << " and " << train.rows << " rows of " << cols;
        matches += wanted.size();
    }
    EXPECT_GT(matches, 3000U);
}

TEST(DescMatcherLeftRightTest, AgreesWithTheReferenceOnManyRows) {
    test::Random random(5);
    for (const int cols : kWidths) {
        const DescMat query = test::randomBits(700, cols, random);
        const DescMat train = test::randomBits(cols > 32 ? 300 : 900, cols, random);
        ASSERT_TRUE(agrees(query, train)) << cols;
        EXPECT_GT(leftRightMatches(query, train).size(), 50U) << cols;
    }
    const auto alike = test::alikeBits(900, 1300, 16, random);
    EXPECT_TRUE(agrees(alike.query, alike.train));
}

TEST(DescMatcherLeftRightTest, KernelNameIsThatOfTheProcessor) {
    const DescMatcherLeftRight matcher;
    const auto popcnt = system::hasPOPCNT();
    const QString name = QLatin1String(popcnt == system::PopcntX86   ? "CPU SSE"
                                       : popcnt == system::PopcntArm ? "CPU ARM"
                                                                     : "");
    EXPECT_EQ(matcher.kernelName(), name);
    (void)matcher.match(rowsOfBits(64, {0}), rowsOfBits(64, {0}));
    EXPECT_EQ(matcher.kernelName(), name);
}

TEST(DescMatcherLeftRightTest, HasNoParametersAndNoState) {
    DescMatcherLeftRight matcher;
    EXPECT_EQ(sizeof(matcher), sizeof(IDescriptorMatcher));
    EXPECT_THROW(setDescriptorMatcherDistFracParams(&matcher, 1U, 0.5F), std::runtime_error);
}

TEST(DescMatcherLeftRightTest, ACloneIsAMatcherOfThisClass) {
    const std::unique_ptr<IDescriptorMatcher> clone = DescMatcherLeftRight().clone();
    ASSERT_NE(dynamic_cast<DescMatcherLeftRight*>(clone.get()), nullptr);
    EXPECT_TRUE(sameMatches(clone->match(rowsOfBits(8, {3}), rowsOfBits(8, {4})), {{0, 0, 1.0F}}));
}

TEST(DescMatcherLeftRightTest, LeavesTheNumberOfThreads) {
    const test::NumberOfThreads three(3);
    const DescMat rows = rowsOfBits(16, std::vector<int>(2000, 7));
    (void)DescMatcherLeftRight().match(rows, rows);
    EXPECT_EQ(omp_get_max_threads(), 3);
}

TEST(DescMatcherLeftRightTest, ServesSeveralThreadsAtOnce) {
    test::Random random(6);
    const auto rows = test::alikeBits(100, 100, 16, random);
    const std::vector<DMatch> expected = leftRightMatches(rows.query, rows.train);
    const DescMatcherLeftRight matcher;
    std::array<std::vector<DMatch>, 3> results;
    std::vector<std::thread> threads;
    for (std::vector<DMatch>& result : results) {
        threads.emplace_back([&] { result = matcher.match(rows.query, rows.train); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::vector<DMatch>& result : results) {
        EXPECT_TRUE(sameMatches(result, expected));
    }
}

}  // namespace
}  // namespace marlo
