// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/desc_matcher_dist_frac.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "libfeatures/base/parameter_setters.h"
#include "references/matching_reference.h"
#include "support/system.h"
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
constexpr std::array kOtherWidths = {0, 1, 7, 12, 24, 40, 127, 129, 256};
constexpr std::array kFloatWidths = {1, 2, 3, 7, 16, 17, 127, 128, 129, 200};

// Around the borders of blocks of 728 rows.
constexpr std::array kRowCounts = {1, 2, 727, 728, 729, 1455, 1456, 1457, 1500};

// What match() calls its kernel for binary rows of 16 columns and of others.
QString nameOfKernel(int cols) {
    switch (system::hasPOPCNT()) {
        case system::PopcntX86:
            return QLatin1String(cols == 16 ? "CPU SSE" : "CPU SSE generic");
        case system::PopcntArm:
            return QLatin1String("CPU ARM");
        default:
            return {};
    }
}

class DescMatcherDistFracTest : public testing::Test {
protected:
    DescMatcherDistFrac matcher;

    [[nodiscard]] std::vector<DMatch> expected(const DescMat& query, const DescMat& train) const {
        return reference::distFracMatches(query, train, matcher.maxHammingDistance,
                                          matcher.maxDistance, matcher.distanceFraction);
    }
    [[nodiscard]] testing::AssertionResult agrees(const DescMat& query,
                                                  const DescMat& train) const {
        return sameMatches(matcher.match(query, train), expected(query, train));
    }
    void acceptEverything() {
        matcher.maxHammingDistance = std::numeric_limits<unsigned int>::max();
        matcher.maxDistance = kInfinity;
        matcher.distanceFraction = kInfinity;
    }

private:
    // Most cases are too small for two; match() itself leaves 1 behind.
    const test::NumberOfThreads one_{1};
};

TEST_F(DescMatcherDistFracTest, StartsWithTheStatedParameters) {
    EXPECT_EQ(matcher.maxHammingDistance, 50U);
    EXPECT_EQ(matcher.maxDistance, 1000000.0F);
    EXPECT_EQ(matcher.distanceFraction, 0.8F);
    EXPECT_TRUE(matcher.kernelName().isEmpty());
}

TEST_F(DescMatcherDistFracTest, TakesItsParametersThroughTheSetter) {
    setDescriptorMatcherDistFracParams(&matcher, 7U, 0.5F);
    setDescriptorMatcherDistFracParams(&matcher, 9.0F, 0.25F);
    EXPECT_EQ(matcher.maxHammingDistance, 7U);
    EXPECT_EQ(matcher.maxDistance, 9.0F);
    EXPECT_EQ(matcher.distanceFraction, 0.25F);
}

TEST_F(DescMatcherDistFracTest, TheInterfaceIsTheFirstBaseAndTheParametersTheSecond) {
    const void* const object = &matcher;
    const auto* const interface = static_cast<const IDescriptorMatcher*>(&matcher);
    const auto* const parameters = static_cast<const DescMatcherDistFracBase*>(&matcher);
    EXPECT_EQ(interface, object);
    EXPECT_EQ(reinterpret_cast<const char*>(parameters) - reinterpret_cast<const char*>(interface),
              static_cast<std::ptrdiff_t>(sizeof(IDescriptorMatcher)));
}

TEST_F(DescMatcherDistFracTest, ACloneHasTheParametersAndTheKernelName) {
    matcher.maxHammingDistance = 7;
    matcher.maxDistance = 9.0F;
    matcher.distanceFraction = 0.25F;
    (void)matcher.match(rowsOfFloats(3, {1.0F}), rowsOfFloats(3, {1.0F}));
    const std::unique_ptr<IDescriptorMatcher> clone = matcher.clone();
    matcher.maxHammingDistance = 1;

    auto* const copy = dynamic_cast<DescMatcherDistFrac*>(clone.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->maxHammingDistance, 7U);
    EXPECT_EQ(copy->maxDistance, 9.0F);
    EXPECT_EQ(copy->distanceFraction, 0.25F);
    EXPECT_EQ(copy->kernelName(), QLatin1String("CPU Float"));
}

// Binary rows.

TEST_F(DescMatcherDistFracTest, MatchesTheNearestRowAndScoresHowMuchNearerItIs) {
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfBits(16, {0}), rowsOfBits(16, {40, 10, 128})),
                            {{0, 1, 0.75F}}));
}

TEST_F(DescMatcherDistFracTest, TheRatioMustBeStrictlyBelowTheFraction) {
    const DescMat query = rowsOfBits(16, {0});
    EXPECT_TRUE(matcher.match(query, rowsOfBits(16, {40, 50})).empty());
    EXPECT_TRUE(sameMatches(matcher.match(query, rowsOfBits(16, {40, 51})),
                            {{0, 0, 1.0F - 40.0F / 51.0F}}));
}

TEST_F(DescMatcherDistFracTest, TheNearestRowMustLieWithinTheLimit) {
    const DescMat query = rowsOfBits(16, {0});
    EXPECT_TRUE(sameMatches(matcher.match(query, rowsOfBits(16, {50, 100})), {{0, 0, 0.5F}}));
    EXPECT_TRUE(matcher.match(query, rowsOfBits(16, {51, 128})).empty());
    EXPECT_TRUE(matcher.match(query, rowsOfBits(16, {51})).empty());
    matcher.maxHammingDistance = 51;
    EXPECT_TRUE(sameMatches(matcher.match(query, rowsOfBits(16, {51, 128})),
                            {{0, 0, 1.0F - 51.0F / 128.0F}}));
}

TEST_F(DescMatcherDistFracTest, ALimitOfZeroAcceptsEqualRows) {
    matcher.maxHammingDistance = 0;
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfBits(16, {0, 30, 62}), rowsOfBits(16, {31, 62})),
                            {{2, 1, 1.0F}}));
}

TEST_F(DescMatcherDistFracTest, LimitsAboveTheWidthOfARowAcceptEveryDistance) {
    matcher.maxHammingDistance = std::numeric_limits<unsigned int>::max();
    EXPECT_TRUE(
        sameMatches(matcher.match(rowsOfBits(128, {0}), rowsOfBits(128, {1024})), {{0, 0, 1.0F}}));
}

TEST_F(DescMatcherDistFracTest, ASingleTrainRowGivesAScoreOfExactlyOne) {
    for (const int cols : kWidths) {
        EXPECT_TRUE(
            sameMatches(matcher.match(rowsOfBits(cols, {0, 10, 60}), rowsOfBits(cols, {10})),
                        {{2, 0, 1.0F}, {1, 0, 1.0F}, {0, 0, 1.0F}}));
    }
}

TEST_F(DescMatcherDistFracTest, ASecondRowAtDistanceZeroIsAmbiguous) {
    const DescMat query = rowsOfBits(16, {9});
    matcher.distanceFraction = kInfinity;
    EXPECT_TRUE(matcher.match(query, rowsOfBits(16, {9, 9})).empty());
    EXPECT_TRUE(matcher.match(query, rowsOfBits(16, {30, 9, 40, 9, 50})).empty());
    EXPECT_TRUE(matcher.match(query, rowsOfBits(16, {9, 9, 9, 60})).empty());
}

TEST_F(DescMatcherDistFracTest, TheFirstRowAtDistanceZeroDoesNotEndTheSearch) {
    const DescMat query = rowsOfBits(16, {9});
    for (const std::vector<int>& train :
         {std::vector<int>{9, 60, 19}, {60, 19, 9}, {60, 9, 19}, {19, 9}, {9, 19}}) {
        const auto exact =
            static_cast<unsigned int>(std::find(train.begin(), train.end(), 9) - train.begin());
        EXPECT_TRUE(sameMatches(matcher.match(query, rowsOfBits(16, train)), {{0, exact, 1.0F}}));
    }
}

TEST_F(DescMatcherDistFracTest, OfRowsAtTheSameDistanceTheFirstIsTheNearest) {
    const DescMat query = rowsOfBits(16, {20});
    const DescMat train = rowsOfBits(16, {100, 30, 10, 30});
    EXPECT_TRUE(matcher.match(query, train).empty());
    matcher.distanceFraction = 1.0F;
    EXPECT_TRUE(matcher.match(query, train).empty());
    matcher.distanceFraction = 1.0000001F;
    EXPECT_TRUE(sameMatches(matcher.match(query, train), {{0, 1, 0.0F}}));
}

TEST_F(DescMatcherDistFracTest, TheSecondNearestMayStandAnywhere) {
    const DescMat query = rowsOfBits(16, {0});
    EXPECT_TRUE(
        sameMatches(matcher.match(query, rowsOfBits(16, {90, 60, 20, 40})), {{0, 2, 0.5F}}));
    EXPECT_TRUE(
        sameMatches(matcher.match(query, rowsOfBits(16, {90, 60, 40, 20})), {{0, 3, 0.5F}}));
    EXPECT_TRUE(
        sameMatches(matcher.match(query, rowsOfBits(16, {20, 60, 90, 40})), {{0, 0, 0.5F}}));
    EXPECT_TRUE(matcher.match(query, rowsOfBits(16, {40, 20, 40, 20})).empty());
}

TEST_F(DescMatcherDistFracTest, FractionsThatNoRatioIsBelowGiveNoMatches) {
    const DescMat query = rowsOfBits(16, {5});
    const DescMat train = rowsOfBits(16, {5, 90});
    for (const float fraction : {0.0F, -0.0F, -1.0F, -kInfinity, kNaN}) {
        matcher.distanceFraction = fraction;
        EXPECT_TRUE(matcher.match(query, train).empty()) << fraction;
    }
    matcher.distanceFraction = std::numeric_limits<float>::denorm_min();
    EXPECT_TRUE(sameMatches(matcher.match(query, train), {{0, 0, 1.0F}}));
}

TEST_F(DescMatcherDistFracTest, BestScoresComeFirstAndLargerQueryIndicesBeforeSmaller) {
    // The first, third and last are 10 from one train row and 90 from the other.
    EXPECT_TRUE(
        sameMatches(matcher.match(rowsOfBits(16, {10, 4, 10, 50, 90}), rowsOfBits(16, {0, 100})),
                    {{1, 0, 1.0F - 4.0F / 96.0F},
                     {4, 1, 1.0F - 10.0F / 90.0F},
                     {2, 0, 1.0F - 10.0F / 90.0F},
                     {0, 0, 1.0F - 10.0F / 90.0F}}));
}

TEST_F(DescMatcherDistFracTest, EveryBitOfARowCounts) {
    for (const int cols : kWidths) {
        // Row i has bit i only: one bit from the first train row, and two from the second, which
        // has bit 0.
        const DescMat query = test::rowsOfSingleBits(cols);
        std::vector<DMatch> expected = {{0, 1, 1.0F}};
        for (int i = query.rows - 1; i > 0; --i) {
            expected.emplace_back(static_cast<unsigned int>(i), 0, 0.5F);
        }
        EXPECT_TRUE(sameMatches(matcher.match(query, rowsOfBits(cols, {0, 1})), expected)) << cols;
    }
}

TEST_F(DescMatcherDistFracTest, OtherWidthsOfBinaryRowsGiveNoMatches) {
    acceptEverything();
    for (const int cols : kOtherWidths) {
        const DescMat query = rowsOfBits(cols, {0, 1, 2});
        EXPECT_TRUE(matcher.match(query, rowsOfBits(cols, {0})).empty()) << cols;
    }
}

TEST_F(DescMatcherDistFracTest, MatricesOfDifferentWidthsGiveNoMatches) {
    acceptEverything();
    for (const int queryCols : kWidths) {
        for (const int trainCols : {8, 12, 16, 17, 24, 32, 64, 128}) {
            if (queryCols != trainCols) {
                const DescMat query = rowsOfBits(queryCols, {0, 1});
                const DescMat train = rowsOfBits(trainCols, {0});
                EXPECT_TRUE(matcher.match(query, train).empty()) << queryCols << ' ' << trainCols;
                EXPECT_TRUE(matcher.match(train, query).empty()) << trainCols << ' ' << queryCols;
            }
        }
    }
    EXPECT_TRUE(matcher.match(rowsOfFloats(16, {1.0F}), rowsOfFloats(17, {1.0F})).empty());
    EXPECT_TRUE(matcher.match(rowsOfFloats(17, {1.0F}), rowsOfFloats(16, {1.0F})).empty());
}

TEST_F(DescMatcherDistFracTest, EmptyMatricesGiveNoMatchesAndLeaveTheKernelName) {
    const DescMat rows = rowsOfBits(16, {3});
    const DescMat noRows(0, 16, DescMat::Byte);
    const DescMat noFloats(0, 128, DescMat::Float);
    const DescMat noColumns(2, 0, DescMat::Byte);
    for (const QString& name : {QString(), QString(QLatin1String("CPU Float"))}) {
        if (!name.isEmpty()) {
            (void)matcher.match(rowsOfFloats(3, {1.0F}), rowsOfFloats(3, {1.0F}));
        }
        for (const DescMat* const empty : {&noRows, &noFloats, &noColumns}) {
            EXPECT_TRUE(matcher.match(*empty, rows).empty());
            EXPECT_TRUE(matcher.match(rows, *empty).empty());
            EXPECT_TRUE(matcher.match(*empty, *empty).empty());
        }
        EXPECT_TRUE(matcher.match(DescMat(), DescMat()).empty());
        EXPECT_EQ(matcher.kernelName(), name);
    }
}

TEST_F(DescMatcherDistFracTest, KernelNameIsOfTheProcessorAndTheWidth) {
    for (const int cols : {8, 16, 32, 64, 128}) {
        DescMatcherDistFrac fresh;
        (void)fresh.match(rowsOfBits(cols, {0}), rowsOfBits(cols, {0}));
        EXPECT_EQ(fresh.kernelName(), nameOfKernel(cols)) << cols;
    }
    (void)matcher.match(rowsOfFloats(5, {0.0F}), rowsOfFloats(5, {0.0F}));
    EXPECT_EQ(matcher.kernelName(), QLatin1String("CPU Float"));
}

TEST_F(DescMatcherDistFracTest, KernelNameIsSetForWidthsWithoutAKernelToo) {
    for (const int cols : {1, 7, 12, 24, 127, 256}) {
        DescMatcherDistFrac fresh;
        (void)fresh.match(rowsOfBits(cols, {0}), rowsOfBits(cols, {0}));
        EXPECT_EQ(fresh.kernelName(), nameOfKernel(cols)) << cols;
    }
    (void)matcher.match(rowsOfFloats(16, {0.0F}), rowsOfBits(16, {0}));
    EXPECT_EQ(matcher.kernelName(), QLatin1String("CPU Float"));
}

TEST_F(DescMatcherDistFracTest, KernelNameOf128BitsNeedsBothMatricesToHaveThem) {
    (void)matcher.match(rowsOfBits(16, {0}), rowsOfBits(32, {0}));
    EXPECT_EQ(matcher.kernelName(), nameOfKernel(32));
    (void)matcher.match(rowsOfBits(32, {0}), rowsOfBits(16, {0}));
    EXPECT_EQ(matcher.kernelName(), nameOfKernel(32));
}

TEST_F(DescMatcherDistFracTest, KernelNameStaysForBinaryRowsOnAProcessorWithoutABitCount) {
    if (system::hasPOPCNT() != system::PopcntNone) {
        GTEST_SKIP() << "this processor counts bits";
    }
    (void)matcher.match(rowsOfFloats(5, {0.0F}), rowsOfFloats(5, {0.0F}));
    (void)matcher.match(rowsOfBits(16, {0}), rowsOfBits(16, {0}));
    EXPECT_EQ(matcher.kernelName(), QLatin1String("CPU Float"));
}

TEST_F(DescMatcherDistFracTest, TheLastQueryRowOfManyFindsItsMatch) {
    test::Random random(1);
    const DescMat train = test::randomBits(5, 16, random);
    for (const int rows : kRowCounts) {
        DescMat query = test::randomBits(rows, 16, random);
        DescMat last = query.row(rows - 1);
        train.row(3).copyTo(last);
        last.data[0] ^= 1U;
        const std::vector<DMatch> matches = matcher.match(query, train);
        ASSERT_FALSE(matches.empty()) << rows;
        EXPECT_TRUE(matches[0] == DMatch(static_cast<unsigned int>(rows - 1), 3, 0.0F)) << rows;
        EXPECT_TRUE(sameMatches(matches, expected(query, train))) << rows;
    }
}

TEST_F(DescMatcherDistFracTest, TheLastTrainRowOfManyIsFound) {
    test::Random random(2);
    for (const int rows : kRowCounts) {
        const DescMat query = test::randomBits(3, 16, random);
        const DescMat train = test::randomBits(rows, 16, random);
        DescMat last = train.row(rows - 1);
        query.row(1).copyTo(last);
        last.data[15] ^= 0x80U;
        const std::vector<DMatch> matches = matcher.match(query, train);
        ASSERT_FALSE(matches.empty()) << rows;
        EXPECT_TRUE(std::count(matches.begin(), matches.end(),
                               DMatch(1, static_cast<unsigned int>(rows - 1), 0.0F)) == 1)
            << rows;
        EXPECT_TRUE(sameMatches(matches, expected(query, train))) << rows;
    }
}

TEST_F(DescMatcherDistFracTest, ASecondExactMatchFarAwayIsAmbiguousToo) {
    test::Random random(3);
    for (const int rows : kRowCounts) {
        const DescMat query = test::randomBits(1, 16, random);
        const DescMat train = test::randomBits(rows + 1, 16, random);
        for (const int row : {0, rows}) {
            DescMat equal = train.row(row);
            query.copyTo(equal);
        }
        EXPECT_TRUE(matcher.match(query, train).empty()) << rows;
    }
}

TEST_F(DescMatcherDistFracTest, RowsBeyondTheSixteenthBitOfAnIndexAreFound) {
    constexpr int kRows = 70000;
    const DescMat few = rowsOfBits(32, {100, 200});
    DescMat many = rowsOfBits(32, std::vector<int>(kRows, 0));
    DescMat last = many.row(kRows - 1);
    few.row(1).copyTo(last);
    EXPECT_TRUE(sameMatches(matcher.match(few, many), {{1, kRows - 1, 1.0F}}));
    EXPECT_TRUE(sameMatches(matcher.match(many, few), {{kRows - 1, 1, 1.0F}}));
}

TEST_F(DescMatcherDistFracTest, AgreesWithTheReferenceOnManySmallBinaryCases) {
    test::Random random(4);
    std::size_t matches = 0;
    for (int i = 0; i < 2500; ++i) {
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

TEST_F(DescMatcherDistFracTest, AgreesWithTheReferenceOnManyRows) {
    test::Random random(5);
    for (const int cols : kWidths) {
        const DescMat query = test::randomBits(900, cols, random);
        const DescMat train = test::randomBits(cols > 32 ? 400 : 1300, cols, random);
        for (int i = 0; i < 300; ++i) {
            DescMat near = train.row(static_cast<int>(random.below(400)));
            query.row(3 * i).copyTo(near);
            near.data[i % cols] ^= static_cast<unsigned char>(random.below(256));
        }
        matcher.maxHammingDistance = static_cast<unsigned int>(4 * cols);
        ASSERT_TRUE(agrees(query, train)) << cols;
        EXPECT_GT(expected(query, train).size(), 50U) << cols;
    }
}

// Float rows.

TEST_F(DescMatcherDistFracTest, ComparesFloatRowsByEuclideanDistance) {
    EXPECT_TRUE(sameMatches(
        matcher.match(rowsOfFloats(128, {0.0F}), rowsOfFloats(128, {2.0F, -1.0F, 5.0F})),
        {{0, 1, 0.5F}}));
}

TEST_F(DescMatcherDistFracTest, TheRatioOfFloatsMustBeStrictlyBelowTheFraction) {
    const DescMat query = rowsOfFloats(128, {0.0F});
    EXPECT_TRUE(matcher.match(query, rowsOfFloats(128, {4.0F, 5.0F})).empty());
    EXPECT_TRUE(sameMatches(matcher.match(query, rowsOfFloats(128, {4.0F, 5.000001F})),
                            {{0, 0, 1.0F - 4.0F / 5.000001F}}));
}

TEST_F(DescMatcherDistFracTest, TheNearestFloatsMustLieWithinTheLimit) {
    matcher.maxDistance = 3.0F;
    const DescMat query = rowsOfFloats(128, {0.0F});
    EXPECT_TRUE(sameMatches(matcher.match(query, rowsOfFloats(128, {3.0F, 6.0F})), {{0, 0, 0.5F}}));
    EXPECT_TRUE(matcher.match(query, rowsOfFloats(128, {3.0000002F, 60.0F})).empty());
    matcher.maxDistance = 0.0F;
    EXPECT_TRUE(sameMatches(matcher.match(query, rowsOfFloats(128, {3.0F, 0.0F})), {{0, 1, 1.0F}}));
    matcher.maxDistance = -1.0F;
    EXPECT_TRUE(matcher.match(query, rowsOfFloats(128, {3.0F, 0.0F})).empty());
}

TEST_F(DescMatcherDistFracTest, ASingleFloatTrainRowGivesAScoreOfExactlyOne) {
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfFloats(128, {1.0F, 0.5F, 1e6F, 1.1e6F, 0.0F}),
                                          rowsOfFloats(128, {0.0F})),
                            {{4, 0, 1.0F}, {2, 0, 1.0F}, {1, 0, 1.0F}, {0, 0, 1.0F}}));
}

TEST_F(DescMatcherDistFracTest, ASecondFloatRowAtDistanceZeroIsAmbiguous) {
    matcher.distanceFraction = kInfinity;
    const DescMat query = rowsOfFloats(128, {9.0F});
    EXPECT_TRUE(matcher.match(query, rowsOfFloats(128, {9.0F, 9.0F})).empty());
    std::vector<float> values(20, 1.0F);
    values[3] = values[17] = 9.0F;
    EXPECT_TRUE(matcher.match(query, rowsOfFloats(128, values)).empty());
}

TEST_F(DescMatcherDistFracTest, TheFirstFloatRowAtDistanceZeroDoesNotEndTheSearch) {
    const DescMat query = rowsOfFloats(128, {9.0F});
    EXPECT_TRUE(
        sameMatches(matcher.match(query, rowsOfFloats(128, {1.0F, 9.0F, 8.0F})), {{0, 1, 1.0F}}));
    EXPECT_TRUE(sameMatches(matcher.match(query, rowsOfFloats(128, {9.0F, 8.0F})), {{0, 0, 1.0F}}));
}

TEST_F(DescMatcherDistFracTest, OfFloatRowsAtTheSameDistanceTheFirstIsTheNearest) {
    matcher.distanceFraction = 1.0000001F;
    EXPECT_TRUE(sameMatches(
        matcher.match(rowsOfFloats(128, {2.0F}), rowsOfFloats(128, {9.0F, 3.0F, 1.0F, 3.0F})),
        {{0, 1, 0.0F}}));
}

TEST_F(DescMatcherDistFracTest, SquaresThatDifferMayHaveTheSameRoot) {
    // 2^24 + 2 and 2^24: both distances are 4096 in single precision, so the first row wins.
    DescMat train = rowsOfFloats(128, {4096.0F, 4096.0F});
    for (const std::size_t column : {1U, 9U}) {
        const float one = 1.0F;
        std::memcpy(train.data + column * sizeof(float), &one, sizeof(float));
    }
    matcher.distanceFraction = 1.5F;
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfFloats(128, {0.0F}), train), {{0, 0, 0.0F}}));
}

TEST_F(DescMatcherDistFracTest, QueryRowsThatAreNotFiniteAreNeverMatched) {
    acceptEverything();
    const DescMat train = rowsOfFloats(128, {1.0F, 3.0F, kInfinity});
    for (const float value : {kNaN, kInfinity, -kInfinity}) {
        EXPECT_TRUE(sameMatches(matcher.match(rowsOfFloats(128, {2.5F, value, 1.5F}), train),
                                {{2, 0, 1.0F - 0.5F / 1.5F}, {0, 1, 1.0F - 0.5F / 1.5F}}))
            << value;
        EXPECT_TRUE(matcher.match(rowsOfFloats(128, {value}), train.row(0)).empty()) << value;
    }
}

TEST_F(DescMatcherDistFracTest, TrainRowsThatAreNotFiniteArePassedOver) {
    acceptEverything();
    const DescMat query = rowsOfFloats(128, {2.5F, 1.5F});
    for (const float value : {kNaN, kInfinity, -kInfinity}) {
        EXPECT_TRUE(
            sameMatches(matcher.match(query, rowsOfFloats(128, {value, 1.0F, value, 3.0F, value})),
                        {{1, 1, 1.0F - 0.5F / 1.5F}, {0, 3, 1.0F - 0.5F / 1.5F}}))
            << value;
        // The only other row has no second.
        EXPECT_TRUE(sameMatches(matcher.match(query, rowsOfFloats(128, {value, 3.0F})),
                                {{1, 1, 1.0F}, {0, 1, 1.0F}}))
            << value;
        EXPECT_TRUE(matcher.match(query, rowsOfFloats(128, {value, value})).empty()) << value;
    }
}

TEST_F(DescMatcherDistFracTest, RowsTooFarApartForAFloatAreNotMatched) {
    acceptEverything();
    // The squares of these are beyond a float.
    EXPECT_TRUE(matcher.match(rowsOfFloats(128, {1e30F}), rowsOfFloats(128, {-1e30F})).empty());
    EXPECT_TRUE(sameMatches(
        matcher.match(rowsOfFloats(128, {1e30F, 0.0F}), rowsOfFloats(128, {1.0F, 1e30F})),
        {{1, 0, 1.0F}, {0, 1, 1.0F}}));
}

TEST_F(DescMatcherDistFracTest, RowsFarFromTheOriginAreToldApart) {
    // Lengths overflow and scalar products too; the distances do not.
    constexpr float kFar = 0x1p70F;
    constexpr float kStep = 0x1p47F;  // the spacing of floats there
    acceptEverything();
    matcher.distanceFraction = 0.8F;
    EXPECT_TRUE(sameMatches(
        matcher.match(rowsOfFloats(128, {kFar}),
                      rowsOfFloats(128, {kFar + 4.0F * kStep, kFar + kStep, kFar + 8.0F * kStep})),
        {{0, 1, 0.75F}}));
}

TEST_F(DescMatcherDistFracTest, RowsAtDistanceZeroByUnderflowAreAmbiguous) {
    acceptEverything();
    const DescMat query = rowsOfFloats(128, {1e-30F});
    EXPECT_TRUE(matcher.match(query, rowsOfFloats(128, {2e-30F, 3e-30F, 1.0F})).empty());
    EXPECT_TRUE(
        sameMatches(matcher.match(query, rowsOfFloats(128, {1.0F, 2e-30F})), {{0, 1, 1.0F}}));
}

TEST_F(DescMatcherDistFracTest, SquaresThatUnderflowDoNotCount) {
    // The last row is the longest, but the square of each of its elements is 0.
    std::vector<float> values(50, 2e-22F);
    values[0] = 1e-22F;
    const DescMat train = rowsOfFloats(128, values);
    std::fill_n(reinterpret_cast<float*>(train.row(49).data), 128, 2e-23F);
    EXPECT_TRUE(sameMatches(matcher.match(rowsOfFloats(128, {0.0F}), train), {{0, 49, 1.0F}}));
}

TEST_F(DescMatcherDistFracTest, AgreesWithTheReferenceOnManySmallFloatCases) {
    test::Random random(6);
    std::size_t matches = 0;
    for (int i = 0; i < 2500; ++i) {
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

TEST_F(DescMatcherDistFracTest, AgreesWithTheReferenceOnManyFloatRows) {
    test::Random random(7);
    for (const int cols : {128, 37}) {
        const auto [query, train] = test::partlyNearRows(300, 700, cols, random);
        EXPECT_TRUE(agrees(query, train)) << cols;
        EXPECT_GT(expected(query, train).size(), 100U) << cols;
    }
}

TEST_F(DescMatcherDistFracTest, AgreesWithTheReferenceOnFloatRowsThatAreHardToTellApart) {
    test::Random random(13);
    matcher.distanceFraction = 1.1F;
    for (const float noise : {0.5F, 0.1F, 0.01F, 1e-4F, 1e-6F}) {
        const auto [query, train] = test::crowdedRows(60, 150, 128, noise, random);
        EXPECT_TRUE(agrees(query, train)) << noise;
    }
}

TEST_F(DescMatcherDistFracTest, FloatRowsMayBeVeryLong) {
    test::Random random(12);
    matcher.distanceFraction = 1.0F;
    for (const auto& [cols, rows] : {std::pair(1000, 20), {5001, 5}, {(1 << 20) + 1, 2}}) {
        const auto [query, train] = test::partlyNearRows(rows, rows, cols, random);
        const std::vector<DMatch> wanted = expected(query, train);
        EXPECT_FALSE(wanted.empty()) << cols;
        EXPECT_TRUE(sameMatches(matcher.match(query, train), wanted)) << cols;
    }
}

// Both.

TEST_F(DescMatcherDistFracTest, FloatQueryRowsDoNotMatchBinaryTrainRows) {
    acceptEverything();
    for (const int cols : {1, 8, 16, 128}) {
        EXPECT_TRUE(
            matcher.match(rowsOfFloats(cols, {0.0F, 1.0F}), rowsOfBits(cols, {0, 1})).empty());
    }
}

TEST_F(DescMatcherDistFracTest, UnderBinaryQueryRowsTheFirstBytesOfFloatRowsAreTaken) {
    test::Random random(8);
    for (const int cols : kWidths) {
        DescMat floats(30, cols, DescMat::Float);
        const DescMat noise = test::randomBits(30, 4 * cols, random);
        std::memcpy(floats.data, noise.data, 30 * floats.step);
        DescMat bytes(30, cols, DescMat::Byte);
        for (int i = 0; i < 30; ++i) {
            std::memcpy(bytes.row(i).data, floats.row(i).data, bytes.step);
        }
        const DescMat query = test::copyOf(bytes);
        for (int i = 0; i < 30; ++i) {
            query.row(i).data[i % cols] ^= 3U;
        }
        const std::vector<DMatch> matches = matcher.match(query, floats);
        EXPECT_EQ(matches.size(), 30U) << cols;
        EXPECT_TRUE(sameMatches(matches, matcher.match(query, bytes))) << cols;
        EXPECT_EQ(matcher.kernelName(), nameOfKernel(cols));
    }
}

TEST_F(DescMatcherDistFracTest, AViewIsAMatrixOfOneRow) {
    const DescMat bits = rowsOfBits(16, {0, 30, 60});
    EXPECT_TRUE(sameMatches(matcher.match(bits.row(1), bits), {{0, 1, 1.0F}}));
    EXPECT_TRUE(sameMatches(matcher.match(bits, bits.row(2)), {{2, 0, 1.0F}, {1, 0, 1.0F}}));
    const DescMat floats = rowsOfFloats(128, {0.0F, 3.0F, 6.0F});
    EXPECT_TRUE(sameMatches(matcher.match(floats.row(2), floats), {{0, 2, 1.0F}}));
    EXPECT_TRUE(sameMatches(matcher.match(floats.row(0), floats.row(1)), {{0, 0, 1.0F}}));
}

TEST_F(DescMatcherDistFracTest, RowsMayLieAnywhere) {
    test::Random random(9);
    for (int i = 0; i < 60; ++i) {
        for (const int cols : kWidths) {
            const auto [query, train] = test::anyAlikeBits(20, cols, random);
            const test::RowsApart queryRows = test::anywhere(query, random);
            const test::RowsApart trainRows = test::anywhere(train, random);
            EXPECT_TRUE(agrees(queryRows.view(), trainRows.view())) << cols;
            EXPECT_TRUE(sameMatches(matcher.match(query, trainRows.view()),
                                    matcher.match(queryRows.view(), train)))
                << cols;
        }
        const int cols = test::oneOf(kFloatWidths, random);
        const auto [query, train] = test::anyAlikeFloats(20, cols, random);
        const test::RowsApart queryRows = test::anywhere(query, random);
        const test::RowsApart trainRows = test::anywhere(train, random);
        EXPECT_TRUE(agrees(queryRows.view(), trainRows.view())) << cols;
        EXPECT_TRUE(sameMatches(matcher.match(query, trainRows.view()),
                                matcher.match(queryRows.view(), train)))
            << cols;
    }
}

TEST_F(DescMatcherDistFracTest, WidthsWithoutAKernelAreNotRead) {
    for (const int cols : {1, 7, 12, 24, 127}) {
        const test::RowsApart rows(rowsOfBits(cols, {0, 1}));
        EXPECT_TRUE(matcher.match(rows.view(), rows.view()).empty());
        const test::RowsApart wide(rowsOfBits(128, {0, 1}));
        EXPECT_TRUE(matcher.match(wide.view(), rows.view()).empty());
        EXPECT_TRUE(matcher.match(rows.view(), wide.view()).empty());
    }
}

TEST_F(DescMatcherDistFracTest, AnyNumberOfThreadsGivesTheSameMatches) {
    // More blocks of query rows than processors, so that binary rows are shared out, too.
    const int cpus = std::min(system::noLogicalCPUs(), 64);
    test::Random random(10);
    const auto bits = test::alikeBits(728 * (cpus + 1) + 5, 9, 16, random);
    const auto floats = test::alikeFloats(150, 20, 128, {0.0F, 1.0F, 2.0F}, random);
    matcher.distanceFraction = 1.1F;
    const std::vector<DMatch> ofBits = expected(bits.query, bits.train);
    const std::vector<DMatch> ofFloats = expected(floats.query, floats.train);
    ASSERT_FALSE(ofBits.empty());
    ASSERT_FALSE(ofFloats.empty());
    for (const int count : {1, 2, 3, 5}) {
        const test::NumberOfThreads threads(count);
        EXPECT_TRUE(sameMatches(matcher.match(floats.query, floats.train), ofFloats)) << count;
        EXPECT_TRUE(sameMatches(matcher.match(bits.query, bits.train), ofBits)) << count;
    }
}

TEST_F(DescMatcherDistFracTest, BinaryRowsLeaveOneThreadOutsideParallelRegions) {
    const test::NumberOfThreads three(3);
    const DescMat train = rowsOfBits(16, {0, 64});
    (void)matcher.match(rowsOfBits(16, {0, 5}), train);
    EXPECT_EQ(omp_get_max_threads(), 1);

    omp_set_num_threads(3);
    const int blocks = std::min(system::noLogicalCPUs(), 64) + 1;
    (void)matcher.match(rowsOfBits(16, std::vector<int>(728 * static_cast<std::size_t>(blocks))),
                        train);
    EXPECT_EQ(omp_get_max_threads(), 1);

    omp_set_num_threads(3);
    (void)matcher.match(rowsOfBits(64, {0, 5}), rowsOfBits(64, {0, 5}));
    EXPECT_EQ(omp_get_max_threads(), 1);
}

TEST_F(DescMatcherDistFracTest, BinaryRowsLeaveTheThreadsOfTheParallelRegionAroundThem) {
    std::vector<int> after(2, 0);
    std::vector<int> around(2, 0);
#pragma omp parallel num_threads(2)
    {
        const auto thread = static_cast<std::size_t>(omp_get_thread_num());
        const DescMatcherDistFrac own;
        omp_set_num_threads(5);
        (void)own.match(rowsOfBits(16, {0, 5}), rowsOfBits(16, {0, 64}));
        after[thread] = omp_get_max_threads();
        around[thread] = omp_get_num_threads();
    }
    EXPECT_EQ(after, around);
    EXPECT_GT(after[0], 0);
}

TEST_F(DescMatcherDistFracTest, FloatRowsLeaveTheNumberOfThreads) {
    const test::NumberOfThreads three(3);
    (void)matcher.match(rowsOfFloats(128, {0.0F}), rowsOfFloats(128, {0.0F, 1.0F}));
    EXPECT_EQ(omp_get_max_threads(), 3);
}

TEST_F(DescMatcherDistFracTest, WhatIsNotComparedLeavesTheNumberOfThreads) {
    const test::NumberOfThreads three(3);
    (void)matcher.match(DescMat(), rowsOfBits(16, {0}));
    (void)matcher.match(rowsOfBits(16, {0}), DescMat());
    (void)matcher.match(rowsOfBits(24, {0}), rowsOfBits(24, {0}));
    (void)matcher.match(rowsOfFloats(16, {0.0F}), rowsOfBits(16, {0}));
    EXPECT_EQ(omp_get_max_threads(), 3);
}

TEST_F(DescMatcherDistFracTest, ObjectsOfDifferentThreadsWorkAtTheSameTime) {
    test::Random random(11);
    const auto bits = test::alikeBits(60, 60, 16, random);
    const auto floats = test::alikeFloats(30, 30, 128, {0.0F, 1.0F, 2.0F}, random);
    const std::vector<DMatch> ofBits = expected(bits.query, bits.train);
    const std::vector<DMatch> ofFloats = expected(floats.query, floats.train);
    const auto work = [&] {
        const DescMatcherDistFrac own;
        for (int i = 0; i < 10; ++i) {
            EXPECT_TRUE(sameMatches(own.match(bits.query, bits.train), ofBits));
            EXPECT_TRUE(sameMatches(own.match(floats.query, floats.train), ofFloats));
        }
    };
    std::thread other(work);
    work();
    other.join();
}

}  // namespace
}  // namespace marlo
