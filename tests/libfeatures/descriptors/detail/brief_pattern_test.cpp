// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/detail/brief_pattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include "references/brief_reference.h"

namespace marlo::detail {
namespace {

using Points = std::array<int, 4>;

Points pointsOf(const Brief::PatternEntry& entry) {
    return {entry.dx1, entry.dy1, entry.dx2, entry.dy2};
}

// FNV-1a over the offsets as bytes, in their order.
std::uint64_t digest(const Brief::Pattern& pattern, std::uint64_t hash = 0xcbf29ce484222325U) {
    for (const Brief::PatternEntry& entry : pattern) {
        for (const int offset : pointsOf(entry)) {
            hash = (hash ^ static_cast<unsigned char>(offset)) * 0x100000001b3U;
        }
    }
    return hash;
}

TEST(BriefPatternTest, FirstEntries) {
    const Brief::Pattern pattern = drawBriefPattern();
    EXPECT_EQ(pointsOf(pattern[0]), (Points{11, 10, 0, 9}));
    EXPECT_EQ(pointsOf(pattern[1]), (Points{-15, 14, 4, 5}));
    EXPECT_EQ(pointsOf(pattern[2]), (Points{-4, -12, -1, -10}));
}

// Rows that somebody has stored can be compared only with rows of the same patterns.
TEST(BriefPatternTest, PatternsNeverChange) {
    EXPECT_EQ(digest(drawBriefPattern()), 0x32c0fb73e3b65cc8U);
    std::uint64_t all = 0xcbf29ce484222325U;
    for (const Brief::Pattern& pattern : rotatedBriefPatterns()) all = digest(pattern, all);
    EXPECT_EQ(all, 0xb5e994611386ef8bU);
}

TEST(BriefPatternTest, IsTheOneThatIsDrawnInDoublePrecision) {
    const Brief::Pattern pattern = drawBriefPattern();
    const reference::BriefPattern expected = reference::drawnBriefPattern().entries;
    ASSERT_EQ(expected.size(), pattern.size());
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        EXPECT_EQ(pointsOf(pattern[i]), expected[i]) << "entry " << i;
    }
}

// Single precision and the logarithm of any mathematics library are off by less than 1e-5 pixels.
TEST(BriefPatternTest, NoOffsetIsNearAnotherWholeNumber) {
    const reference::DrawnBriefPattern drawn = reference::drawnBriefPattern();
    EXPECT_GT(drawn.nearestToAWholeNumber, 1.1e-4);
    EXPECT_GT(drawn.nearestToTheCircle, 2.7e-5);
}

TEST(BriefPatternTest, PointsLieInTheCircle) {
    for (const Brief::PatternEntry& e : drawBriefPattern()) {
        EXPECT_LE(e.dx1 * e.dx1 + e.dy1 * e.dy1, 575);
        EXPECT_LE(e.dx2 * e.dx2 + e.dy2 * e.dy2, 575);
    }
}

TEST(BriefPatternTest, TurnedPointsStayWithinTheReach) {
    int farthest = 0;
    for (const Brief::Pattern& pattern : rotatedBriefPatterns()) {
        for (const Brief::PatternEntry& entry : pattern) {
            for (const int offset : pointsOf(entry)) {
                farthest = std::max(farthest, std::abs(offset));
            }
        }
    }
    EXPECT_EQ(farthest, kBriefReach);
}

TEST(BriefPatternTest, FirstRotationIsTheDrawnPattern) {
    EXPECT_EQ(digest(rotatedBriefPatterns().front()), digest(drawBriefPattern()));
}

TEST(BriefPatternTest, QuarterTurnTakesTheXAxisToTheYAxis) {
    const std::vector<Brief::Pattern> patterns = rotatedBriefPatterns();
    for (std::size_t i = 0; i < patterns[0].size(); ++i) {
        const Points p = pointsOf(patterns[0][i]);
        EXPECT_EQ(pointsOf(patterns[18][i]), (Points{-p[1], p[0], -p[3], p[2]}));
        EXPECT_EQ(pointsOf(patterns[36][i]), (Points{-p[0], -p[1], -p[2], -p[3]}));
        EXPECT_EQ(pointsOf(patterns[54][i]), (Points{p[1], -p[0], p[3], -p[2]}));
    }
}

TEST(BriefPatternTest, EveryRotationIsThatOfTheRule) {
    const std::vector<Brief::Pattern> patterns = rotatedBriefPatterns();
    ASSERT_EQ(patterns.size(), 72U);
    const reference::BriefPattern drawn = reference::drawnBriefPattern().entries;
    for (std::size_t a = 0; a < patterns.size(); ++a) {
        const auto expected = reference::turnedBriefPattern(drawn, static_cast<int>(a));
        for (std::size_t i = 0; i < drawn.size(); ++i) {
            ASSERT_EQ(pointsOf(patterns[a][i]), expected[i]) << "rotation " << a << ", entry " << i;
        }
    }
}

// The sines of the computed 30 and 150 degrees are the largest number below a half. With a half it
// adds up to 1, so (0, -1) turns to a column of 1; std::round() would make it 0.
TEST(BriefPatternTest, HalfIsAddedBeforeTruncation) {
    const std::vector<Brief::Pattern> patterns = rotatedBriefPatterns();
    ASSERT_EQ(pointsOf(patterns[0][54]), (Points{8, 19, 0, -1}));
    EXPECT_EQ(pointsOf(patterns[6][54]), (Points{-3, 20, 1, -1}));
    EXPECT_EQ(pointsOf(patterns[30][54]), (Points{-16, -12, 1, 1}));
    // The same below 0.
    ASSERT_EQ(pointsOf(patterns[0][89]), (Points{-1, 0, 0, 1}));
    EXPECT_EQ(pointsOf(patterns[6][89]), (Points{-1, -1, -1, 1}));
    EXPECT_EQ(pointsOf(patterns[30][89]), (Points{1, -1, -1, -1}));
}

}  // namespace
}  // namespace marlo::detail
