// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/desc_matcher_dist_frac_mutual.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "libfeatures/base/parameter_setters.h"
#include "libfeatures/matchers/desc_matcher_dist_frac.h"
#include "references/matching_reference.h"
#include "utilities/matching_cases.h"
#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using test::rowsOfBits;
using test::rowsOfFloats;
using test::sameMatches;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

constexpr std::array kWidths = {8, 16, 32, 64, 128};
constexpr std::array kFloatWidths = {1, 2, 3, 7, 16, 17, 127, 128, 129, 200};

class DescMatcherDistFracMutualTest : public testing::Test {
protected:
    DescMatcherDistFracMutual matcher;

    [[nodiscard]] std::vector<DMatch> expected(const DescMat& query, const DescMat& train) const {
        return reference::distFracMutualMatches(query, train, matcher.maxHammingDistance,
                                                matcher.maxDistance, matcher.distanceFraction);
    }
    [[nodiscard]] testing::AssertionResult agrees(const DescMat& query,
                                                  const DescMat& train) const {
        return sameMatches(matcher.match(query, train), expected(query, train));
    }

private:
    const test::NumberOfThreads one_{1};  // most cases are too small for two
};

TEST_F(DescMatcherDistFracMutualTest, StartsWithTheParametersOfDistFrac) {
    EXPECT_EQ(matcher.maxHammingDistance, 50U);
    EXPECT_EQ(matcher.maxDistance, 1000000.0F);
    EXPECT_EQ(matcher.distanceFraction, 0.8F);
    EXPECT_TRUE(matcher.kernelName().isEmpty());
}

TEST_F(DescMatcherDistFracMutualTest, TakesItsParametersThroughTheSetter) {
    setDescriptorMatcherDistFracParams(&matcher, 7U, 0.5F);
    setDescriptorMatcherDistFracParams(&matcher, 9.0F, 0.25F);
    EXPECT_EQ(matcher.maxHammingDistance, 7U);
    EXPECT_EQ(matcher.maxDistance, 9.0F);
    EXPECT_EQ(matcher.distanceFraction, 0.25F);
}

TEST_F(DescMatcherDistFracMutualTest, ACloneHasTheParametersAndTheKernelName) {
    matcher.maxHammingDistance = 7;
    matcher.maxDistance = 9.0F;
    matcher.distanceFraction = 0.25F;
    (void)matcher.match(rowsOfFloats(3, {1.0F}), rowsOfFloats(3, {1.0F}));
    const std::unique_ptr<IDescriptorMatcher> clone = matcher.clone();
    matcher.maxHammingDistance = 1;

    auto* const copy = dynamic_cast<DescMatcherDistFracMutual*>(clone.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->maxHammingDistance, 7U);
    EXPECT_EQ(copy->maxDistance, 9.0F);
    EXPECT_EQ(copy->distanceFraction, 0.25F);
    EXPECT_EQ(copy->kernelName(), QLatin1String("CPU Float"));
}

TEST_F(DescMatcherDistFracMutualTest, OnlyTheNearestQueryRowOfATrainRowIsMatched) {
    // All three are nearest to the first train row; the second of them is the nearest of all.
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfBits(16, {10, 4, 0}), rowsOfBits(16, {5, 100})),
                            {{1, 0, 1.0F - 1.0F / 96.0F}}));
    EXPECT_TRUE(sameMatches(
        matcher.match(rowsOfFloats(128, {10.0F, 4.0F, 0.0F}), rowsOfFloats(128, {5.0F, 104.0F})),
        {{1, 0, 1.0F - 1.0F / 100.0F}}));
}

TEST_F(DescMatcherDistFracMutualTest, OfQueryRowsAtTheSameDistanceTheFirstIsTheNearest) {
    EXPECT_TRUE(
        sameMatches(matcher.match(rowsOfBits(16, {90, 10, 8, 10, 12}), rowsOfBits(16, {9, 80})),
                    {{1, 0, 1.0F - 1.0F / 70.0F}, {0, 1, 1.0F - 10.0F / 81.0F}}));
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfFloats(128, {10.0F, 8.0F, 10.0F, 12.0F}),
                                          rowsOfFloats(128, {9.0F, 80.0F})),
                            {{0, 0, 1.0F - 1.0F / 70.0F}}));
}

TEST_F(DescMatcherDistFracMutualTest, EqualQueryRowsAreMatchedOnce) {
    EXPECT_TRUE(
        sameMatches(matcher.match(rowsOfBits(16, {7, 7, 7}), rowsOfBits(16, {7})), {{0, 0, 1.0F}}));
    EXPECT_TRUE(
        sameMatches(matcher.match(rowsOfFloats(5, {7.0F, 7.0F, 7.0F}), rowsOfFloats(5, {7.0F})),
                    {{0, 0, 1.0F}}));
}

TEST_F(DescMatcherDistFracMutualTest, AQueryRowThatFailsTheRatioTestStillIsTheNearest) {
    // Row 0 lies in the middle of the train rows, nearer to either than row 1.
    const DescMat bits = rowsOfBits(16, {10, 30});
    EXPECT_TRUE(matcher.match(rowsOfBits(16, {20, 45}), bits).empty());
    EXPECT_TRUE(
        sameMatches(matcher.match(rowsOfBits(16, {45}), bits), {{0, 1, 1.0F - 15.0F / 35.0F}}));
    const DescMat floats = rowsOfFloats(128, {10.0F, 30.0F});
    EXPECT_TRUE(matcher.match(rowsOfFloats(128, {20.0F, 45.0F}), floats).empty());
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfFloats(128, {45.0F}), floats),
                            {{0, 1, 1.0F - 15.0F / 35.0F}}));
}

TEST_F(DescMatcherDistFracMutualTest, AnAmbiguousQueryRowStillIsTheNearest) {
    // Row 0 equals the first two train rows, so it is not matched itself. It also is the nearest
    // of the third, which comes after the search for row 0 could have ended.
    const DescMat train = rowsOfBits(16, {50, 50, 60});
    EXPECT_TRUE(matcher.match(rowsOfBits(16, {50, 75}), train).empty());
    EXPECT_TRUE(
        sameMatches(matcher.match(rowsOfBits(16, {75}), train), {{0, 2, 1.0F - 15.0F / 25.0F}}));
    const DescMat floats = rowsOfFloats(128, {50.0F, 50.0F, 60.0F});
    EXPECT_TRUE(matcher.match(rowsOfFloats(128, {50.0F, 75.0F}), floats).empty());
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfFloats(128, {75.0F}), floats),
                            {{0, 2, 1.0F - 15.0F / 25.0F}}));
}

TEST_F(DescMatcherDistFracMutualTest, AnAmbiguousRowIsTheNearestOfTrainRowsInLaterBlocks) {
    std::vector<int> train(2000, 0);
    train.back() = 20;
    EXPECT_TRUE(matcher.match(rowsOfBits(16, {0, 45}), rowsOfBits(16, train)).empty());
}

TEST_F(DescMatcherDistFracMutualTest, QueryRowsThatAreNotFiniteAreNoNeighbours) {
    for (const float value : {kNaN, kInfinity, -kInfinity}) {
        EXPECT_TRUE(sameMatches(
            matcher.match(rowsOfFloats(128, {value, 2.0F, value}), rowsOfFloats(128, {1.0F, 9.0F})),
            {{1, 0, 1.0F - 1.0F / 7.0F}}))
            << value;
    }
}

TEST_F(DescMatcherDistFracMutualTest, TrainRowsThatAreNotFiniteArePassedOver) {
    for (const float value : {kNaN, kInfinity, -kInfinity}) {
        EXPECT_TRUE(sameMatches(
            matcher.match(rowsOfFloats(128, {2.0F, 3.0F}), rowsOfFloats(128, {value, 1.0F, value})),
            {{0, 1, 1.0F}}))
            << value;
    }
}

TEST_F(DescMatcherDistFracMutualTest, QueryRowsWhoseSquaresDifferMayBeEquallyNear) {
    // 2^24 + 2 and 2^24: both distances are 4096 in single precision, so the first row wins.
    const DescMat query = rowsOfFloats(128, {4096.0F, 4096.0F});
    auto* const first = reinterpret_cast<float*>(query.data);
    first[1] = first[9] = 1.0F;
    EXPECT_TRUE(sameMatches(matcher.match(query, rowsOfFloats(128, {0.0F})), {{0, 0, 1.0F}}));
}

TEST_F(DescMatcherDistFracMutualTest, BestScoresComeFirstAndLargerQueryIndicesBeforeSmaller) {
    EXPECT_TRUE(sameMatches(
        matcher.match(rowsOfBits(16, {1, 44, 81}), rowsOfBits(16, {0, 40, 80})),
        {{2, 2, 1.0F - 1.0F / 41.0F}, {0, 0, 1.0F - 1.0F / 39.0F}, {1, 1, 1.0F - 4.0F / 36.0F}}));
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfBits(16, {80, 0, 40}), rowsOfBits(16, {0, 40, 80})),
                            {{2, 1, 1.0F}, {1, 0, 1.0F}, {0, 2, 1.0F}}));
}

TEST_F(DescMatcherDistFracMutualTest, GivesNoMatchesWhereDistFracCannotCompare) {
    matcher.distanceFraction = kInfinity;
    for (const int cols : {1, 7, 12, 24, 40, 127, 129, 256}) {
        const test::RowsApart rows(rowsOfBits(cols, {0, 1}));
        EXPECT_TRUE(matcher.match(rows.view(), rows.view().row(0)).empty()) << cols;
        EXPECT_TRUE(matcher.match(rows.view(), rowsOfBits(16, {0})).empty()) << cols;
        EXPECT_TRUE(matcher.match(rowsOfBits(16, {0}), rows.view()).empty()) << cols;
    }
    EXPECT_TRUE(matcher.match(rowsOfFloats(16, {0.0F}), rowsOfFloats(17, {0.0F})).empty());
    EXPECT_TRUE(matcher.match(rowsOfFloats(16, {0.0F}), rowsOfBits(16, {0})).empty());
}

TEST_F(DescMatcherDistFracMutualTest, EmptyMatricesGiveNoMatchesAndLeaveTheKernelName) {
    (void)matcher.match(rowsOfFloats(3, {1.0F}), rowsOfFloats(3, {1.0F}));
    const DescMat rows = rowsOfBits(16, {3});
    const DescMat noRows(0, 16, DescMat::Byte);
    const DescMat noColumns(2, 0, DescMat::Byte);
    for (const DescMat* const empty : {&noRows, &noColumns}) {
        EXPECT_TRUE(matcher.match(*empty, rows).empty());
        EXPECT_TRUE(matcher.match(rows, *empty).empty());
    }
    EXPECT_TRUE(matcher.match(DescMat(), DescMat()).empty());
    EXPECT_EQ(matcher.kernelName(), QLatin1String("CPU Float"));
}

TEST_F(DescMatcherDistFracMutualTest, KernelNameIsThatOfDistFrac) {
    // A new matcher every time: none has a name from the time before.
    const auto expectSameName = [](const DescMat& query, const DescMat& train) {
        const DescMatcherDistFrac distFrac;
        const DescMatcherDistFracMutual mutual;
        (void)distFrac.match(query, train);
        (void)mutual.match(query, train);
        EXPECT_EQ(mutual.kernelName(), distFrac.kernelName()) << query.cols << ' ' << train.cols;
    };
    for (const int queryCols : {8, 12, 16, 24, 32, 128, 256}) {
        for (const int trainCols : {queryCols, 16, 64}) {
            expectSameName(rowsOfBits(queryCols, {0}), rowsOfBits(trainCols, {0}));
        }
    }
}

TEST_F(DescMatcherDistFracMutualTest, KernelNameOfAFloatQueryDependsOnNothingElse) {
    const DescMat trains[] = {rowsOfFloats(16, {0.0F}), rowsOfFloats(8, {0.0F}),
                              rowsOfBits(16, {0}), rowsOfBits(64, {0})};
    for (const DescMat& train : trains) {
        const DescMatcherDistFracMutual mutual;
        (void)mutual.match(rowsOfFloats(16, {0.0F}), train);
        EXPECT_EQ(mutual.kernelName(), QLatin1String("CPU Float"));
    }
}

TEST_F(DescMatcherDistFracMutualTest, RowsMayLieAnywhere) {
    test::Random random(1);
    for (int i = 0; i < 100; ++i) {
        for (const int cols : kWidths) {
            const auto [query, train] = test::anyAlikeBits(20, cols, random);
            const test::RowsApart queryRows = test::anywhere(query, random);
            const test::RowsApart trainRows = test::anywhere(train, random);
            EXPECT_TRUE(agrees(queryRows.view(), trainRows.view())) << cols;
        }
        const int cols = test::oneOf(kFloatWidths, random);
        const auto [query, train] = test::anyAlikeFloats(20, cols, random);
        const test::RowsApart queryRows = test::anywhere(query, random);
        const test::RowsApart trainRows = test::anywhere(train, random);
        EXPECT_TRUE(agrees(queryRows.view(), trainRows.view())) << cols;
    }
}

TEST_F(DescMatcherDistFracMutualTest, TheLastRowsOfManyFindEachOther) {
    test::Random random(2);
    for (const int rows : {1, 2, 255, 256, 257, 727, 728, 729, 1456, 1500}) {
        const DescMat few = test::randomBits(3, 16, random);
        const DescMat many = test::randomBits(rows, 16, random);
        DescMat last = many.row(rows - 1);
        few.row(1).copyTo(last);
        last.data[7] = static_cast<unsigned char>(last.data[7] ^ 0x10U);
        const auto lastIndex = static_cast<unsigned int>(rows - 1);
        EXPECT_TRUE(matcher.match(few, many).at(0) == DMatch(1, lastIndex, 0.0F)) << rows;
        EXPECT_TRUE(matcher.match(many, few).at(0) == DMatch(lastIndex, 1, 0.0F)) << rows;
        EXPECT_TRUE(agrees(few, many)) << rows;
        EXPECT_TRUE(agrees(many, few)) << rows;
    }
}

TEST_F(DescMatcherDistFracMutualTest, RowsBeyondTheSixteenthBitOfAnIndexAreFound) {
    constexpr int kRows = 70000;
    const DescMat few = rowsOfBits(32, {100, 200});
    DescMat many = rowsOfBits(32, std::vector<int>(kRows, 0));
    DescMat last = many.row(kRows - 1);
    few.row(1).copyTo(last);
    EXPECT_TRUE(sameMatches(matcher.match(few, many), {{1, kRows - 1, 1.0F}}));
    EXPECT_TRUE(sameMatches(matcher.match(many, few), {{kRows - 1, 1, 1.0F}}));
}

TEST_F(DescMatcherDistFracMutualTest, AgreesWithTheReferenceOnManySmallBinaryCases) {
    test::Random random(3);
    std::size_t matches = 0;
    for (int i = 0; i < 3000; ++i) {
        const int cols = kWidths[static_cast<std::size_t>(i) % kWidths.size()];
        const auto [query, train] = test::anyAlikeBits(40, cols, random);
        test::setAnyParameters(matcher, random);
        const std::vector<DMatch> wanted = expected(query, train);
        ASSERT_TRUE(sameMatches(matcher.match(query, train), wanted))
            << "case " << i << ": " << query.rows << " and " << train.rows << " rows of " << cols;
        matches += wanted.size();
    }
    EXPECT_GT(matches, 1000U);
}

TEST_F(DescMatcherDistFracMutualTest, AgreesWithTheReferenceOnManySmallFloatCases) {
    test::Random random(4);
    std::size_t matches = 0;
    for (int i = 0; i < 3000; ++i) {
        const int cols = kFloatWidths[static_cast<std::size_t>(i) % kFloatWidths.size()];
        const auto [query, train] = test::anyAlikeFloats(25, cols, random);
        test::setAnyParameters(matcher, random);
        const std::vector<DMatch> wanted = expected(query, train);
        ASSERT_TRUE(sameMatches(matcher.match(query, train), wanted))
            << "case " << i << ": " << query.rows << " and " << train.rows << " rows of " << cols;
        matches += wanted.size();
    }
    EXPECT_GT(matches, 1000U);
}

TEST_F(DescMatcherDistFracMutualTest, AgreesWithTheReferenceOnManyRows) {
    test::Random random(5);
    const auto bits = test::alikeBits(900, 1300, 16, random);
    EXPECT_TRUE(agrees(bits.query, bits.train));
    const auto floats = test::alikeFloats(200, 400, 128, {0.0F, 1.0F, 2.0F}, random);
    EXPECT_TRUE(agrees(floats.query, floats.train));

    // Far apart but for some pairs.
    for (const int cols : kWidths) {
        const DescMat query = test::randomBits(500, cols, random);
        const DescMat train = test::randomBits(400, cols, random);
        for (int i = 0; i < 400; i += 2) {
            DescMat near = train.row(static_cast<int>(random.below(400)));
            query.row(i).copyTo(near);
            near.data[i % cols] = static_cast<unsigned char>(random.below(256));
        }
        EXPECT_TRUE(agrees(query, train)) << cols;
        EXPECT_GT(expected(query, train).size(), 50U) << cols;
    }
    const auto [query, train] = test::partlyNearRows(300, 500, 128, random);
    EXPECT_TRUE(agrees(query, train));
    EXPECT_GT(expected(query, train).size(), 50U);
}

TEST_F(DescMatcherDistFracMutualTest, AgreesWithTheReferenceOnFloatRowsThatAreHardToTellApart) {
    test::Random random(10);
    matcher.distanceFraction = 1.1F;
    for (const float noise : {0.5F, 0.1F, 0.01F, 1e-4F, 1e-6F}) {
        const auto [query, train] = test::crowdedRows(150, 60, 128, noise, random);
        EXPECT_TRUE(agrees(query, train)) << noise;
    }
}

TEST_F(DescMatcherDistFracMutualTest, TheNearestQueryRowMayHaveTrainRowsThatAreMuchNearer) {
    // Around one point: the last train row lies there. The first query row is 3 away, and the last
    // a little less, but that has two train rows beside it. All others lie further out.
    test::Random random(11);
    const DescMat point = test::randomUnitRows(1, 128, random);
    const auto around = [&](const std::vector<std::pair<int, float>>& offsets) {
        DescMat rows(static_cast<int>(offsets.size()), 128, DescMat::Float);
        for (int i = 0; i < rows.rows; ++i) {
            DescMat row = rows.row(i);
            point.copyTo(row);
            const auto [column, offset] = offsets[static_cast<std::size_t>(i)];
            reinterpret_cast<float*>(row.data)[column] += offset;
        }
        return rows;
    };
    std::vector<std::pair<int, float>> queryOffsets = {{0, 3.0F}};
    std::vector<std::pair<int, float>> trainOffsets = {{1, 2.99F}, {1, 2.97F}};
    for (int i = 2; i < 60; ++i) {
        queryOffsets.emplace_back(i, 4.0F);
        trainOffsets.emplace_back(i + 60, 4.0F);
    }
    queryOffsets.emplace_back(1, 2.9999F);
    trainOffsets.emplace_back(0, 0.0F);
    const DescMat query = around(queryOffsets);
    const DescMat train = around(trainOffsets);
    const std::vector<DMatch> matches = matcher.match(query, train);
    ASSERT_EQ(matches.size(), 1U);
    EXPECT_TRUE(matches[0] == DMatch(59, 0, 0.0F));
    EXPECT_TRUE(agrees(query, train));
}

TEST_F(DescMatcherDistFracMutualTest, NoRowAppearsInTwoMatches) {
    test::Random random(6);
    matcher.distanceFraction = kInfinity;
    for (int i = 0; i < 200; ++i) {
        const auto [query, train] = test::anyAlikeBits(40, 16, random);
        const std::vector<DMatch> matches = matcher.match(query, train);
        std::set<unsigned int> queryRows;
        std::set<unsigned int> trainRows;
        for (const DMatch& match : matches) {
            queryRows.insert(match.queryIndex);
            trainRows.insert(match.trainIndex);
        }
        EXPECT_EQ(queryRows.size(), matches.size());
        EXPECT_EQ(trainRows.size(), matches.size());
    }
}

TEST_F(DescMatcherDistFracMutualTest, AnyNumberOfThreadsGivesTheSameMatches) {
    test::Random random(7);
    const auto bits = test::alikeBits(1500, 300, 16, random);
    const auto moreTrainRows = test::alikeBits(70, 1600, 64, random);
    const auto floats = test::alikeFloats(150, 60, 128, {0.0F, 1.0F, 2.0F}, random);
    matcher.distanceFraction = 1.1F;
    const std::vector<DMatch> ofBits = expected(bits.query, bits.train);
    const std::vector<DMatch> ofMoreTrainRows = expected(moreTrainRows.query, moreTrainRows.train);
    const std::vector<DMatch> ofFloats = expected(floats.query, floats.train);
    ASSERT_FALSE(ofFloats.empty());
    for (const int count : {1, 2, 3, 5}) {
        const test::NumberOfThreads threads(count);
        EXPECT_TRUE(sameMatches(matcher.match(bits.query, bits.train), ofBits)) << count;
        EXPECT_TRUE(
            sameMatches(matcher.match(moreTrainRows.query, moreTrainRows.train), ofMoreTrainRows))
            << count;
        EXPECT_TRUE(sameMatches(matcher.match(floats.query, floats.train), ofFloats)) << count;
    }
}

TEST_F(DescMatcherDistFracMutualTest, SmallCasesAgreeWithMoreThreadsThanRows) {
    const test::NumberOfThreads five(5);
    test::Random random(8);
    matcher.distanceFraction = 1.1F;
    for (int i = 0; i < 50; ++i) {
        const auto bits = test::anyAlikeBits(4, 16, random);
        EXPECT_TRUE(agrees(bits.query, bits.train));
        const auto floats = test::anyAlikeFloats(4, 128, random);
        EXPECT_TRUE(agrees(floats.query, floats.train));
    }
}

TEST_F(DescMatcherDistFracMutualTest, LeavesTheNumberOfThreads) {
    const test::NumberOfThreads three(3);
    test::Random random(9);
    for (const int rows : {2, 1500}) {
        const DescMat bits = test::randomBits(rows, 16, random);
        (void)matcher.match(bits, bits);
        EXPECT_EQ(omp_get_max_threads(), 3);
    }
    (void)matcher.match(rowsOfFloats(128, {0.0F, 1.0F}), rowsOfFloats(128, {0.0F, 1.0F}));
    EXPECT_EQ(omp_get_max_threads(), 3);
}

}  // namespace
}  // namespace marlo
