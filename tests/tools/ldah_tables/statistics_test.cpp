// SPDX-License-Identifier: BSD-3-Clause
#include "ldah_tables/statistics.h"

#include <gtest/gtest.h>

#include <vector>

namespace marlo::tools {
namespace {

TEST(CountsTest, PrecisionIsTheCorrectShareInPercent) {
    EXPECT_DOUBLE_EQ((Counts{8, 6}.precision()), 75.0);
}

TEST(CountsTest, PrecisionIsZeroWithoutMatches) {
    EXPECT_EQ(Counts().precision(), 0.0);
}

TEST(CountsTest, AddUp) {
    Counts counts{8, 6};
    counts += {3, 1};
    EXPECT_EQ(counts.matches, 11U);
    EXPECT_EQ(counts.correct, 7U);
}

std::vector<float> repeated(std::size_t count, float value) {
    return std::vector<float>(count, value);
}

std::vector<float> joined(std::vector<float> values, const std::vector<float>& more) {
    values.insert(values.end(), more.begin(), more.end());
    return values;
}

TEST(DistancesTest, FalsePositivesAreTheStrangersWithinTheDistanceThatHolds95PercentOfMates) {
    Distances distances;
    distances.mates = joined({50.0F}, repeated(19, 10.0F));  // 19 of 20 within 10
    distances.strangers = {60.0F, 9.0F, 10.0F, 11.0F, 70.0F};
    EXPECT_DOUBLE_EQ(distances.falsePositives(), 0.4);
}

TEST(DistancesTest, FalsePositivesAreInterpolatedBetweenTwoDistancesThatOccur) {
    Distances distances;
    distances.mates = joined(repeated(10, 20.0F), repeated(10, 10.0F));
    // Of strangers 4 % are within 10, and 24 % within 20.
    distances.strangers = joined(repeated(76, 30.0F), joined(repeated(20, 20.0F), {1, 2, 3, 10}));
    EXPECT_NEAR(distances.falsePositives(), 0.04 + 0.20 * 0.45 / 0.50, 1e-12);
}

TEST(DistancesTest, FalsePositivesAreInterpolatedFromZeroWhereAllMatesAreAtOneDistance) {
    Distances distances;
    distances.mates = repeated(7, 10.0F);
    distances.strangers = {10.0F, 30.0F};
    EXPECT_NEAR(distances.falsePositives(), 0.5 * 0.95, 1e-12);
}

TEST(DistancesTest, FalsePositivesLeaveBothListsInTheirOrder) {
    Distances distances;
    distances.mates = {3.0F, 1.0F};
    distances.strangers = {5.0F, 4.0F};
    EXPECT_EQ(distances.falsePositives(), 0.0);
    EXPECT_EQ(distances.mates, (std::vector<float>{3.0F, 1.0F}));
    EXPECT_EQ(distances.strangers, (std::vector<float>{5.0F, 4.0F}));
}

TEST(DistancesTest, QuantilesAreOfTheMatesInOrder) {
    Distances distances;
    for (int i = 0; i <= 100; ++i) distances.mates.push_back(static_cast<float>(37 * i % 101));
    distances.strangers = {1000.0F};
    EXPECT_EQ(distances.mateQuantile(0), 0.0F);
    EXPECT_EQ(distances.mateQuantile(5), 5.0F);
    EXPECT_EQ(distances.mateQuantile(50), 50.0F);
    EXPECT_EQ(distances.mateQuantile(99), 99.0F);
    EXPECT_EQ(distances.mateQuantile(100), 100.0F);
}

TEST(DistancesTest, AtLeastTheShareOfMatesDoesNotExceedAQuantile) {
    Distances distances;
    distances.mates = {7.0F, 1.0F, 5.0F, 3.0F};
    EXPECT_EQ(distances.mateQuantile(50), 3.0F);
    EXPECT_EQ(distances.mateQuantile(51), 5.0F);
    EXPECT_EQ(distances.mateQuantile(95), 7.0F);
}

TEST(DistancesTest, TheMeanIsThatOfStrangers) {
    Distances distances;
    distances.mates = {1.0F};
    distances.strangers = {60.0F, 65.0F, 70.5F, 64.5F};
    EXPECT_DOUBLE_EQ(distances.meanOfStrangers(), 65.0);
}

}  // namespace
}  // namespace marlo::tools
