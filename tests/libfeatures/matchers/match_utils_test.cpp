// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/match_utils.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "utilities/matching_cases.h"

namespace marlo {
namespace {

using Eigen::Vector3d;
using test::sameMatches;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

using Matches = std::vector<DMatch>;
using Points = std::vector<Vector3d>;

TEST(UpdateWrappedIndicesTest, PutsRowsOfTheFullMatricesInPlaceOfPositions) {
    Matches matches = {{0, 2, 0.25F}, {1, 0, 0.5F}, {2, 1, 0.75F}};
    updateWrappedIndices(matches, {70, 80, 90}, {5, 4294967295U, 3});
    EXPECT_TRUE(sameMatches(matches, {{70, 3, 0.25F}, {80, 5, 0.5F}, {90, 4294967295U, 0.75F}}));
}

TEST(UpdateWrappedIndicesTest, SeveralMatchesMayShareAPosition) {
    Matches matches = {{1, 0, 0.5F}, {1, 0, 0.25F}, {0, 0, 0.125F}};
    updateWrappedIndices(matches, {4, 4}, {9});
    EXPECT_TRUE(sameMatches(matches, {{4, 9, 0.5F}, {4, 9, 0.25F}, {4, 9, 0.125F}}));
}

TEST(UpdateWrappedIndicesTest, LeavesDistancesAlone) {
    Matches matches = {{0, 0, std::numeric_limits<float>::quiet_NaN()}, {0, 0, -0.0F}};
    const float nan = matches[0].distance;
    updateWrappedIndices(matches, {1}, {1});
    EXPECT_TRUE(sameMatches(matches, {{1, 1, nan}, {1, 1, -0.0F}}));
}

TEST(UpdateWrappedIndicesTest, NoMatchesNeedNoLists) {
    Matches matches;
    updateWrappedIndices(matches, {}, {});
    EXPECT_TRUE(matches.empty());
}

const Vector3d kUsable(1.0, -2.0, 3.0);

// Whether a match with this point in the first or in the second image is kept.
bool keptInFirst(const Vector3d& point) {
    Matches matches = {{0, 0, 1.0F}};
    removeInfiniteMatches(matches, {point}, {kUsable});
    return !matches.empty();
}
bool keptInSecond(const Vector3d& point) {
    Matches matches = {{0, 0, 1.0F}};
    removeInfiniteMatches(matches, {kUsable}, {point});
    return !matches.empty();
}

TEST(RemoveInfiniteMatchesTest, RemovesComponentsThatAreNotFinite) {
    for (const double value : {kNaN, -kNaN, kInfinity, -kInfinity}) {
        for (int component = 0; component < 3; ++component) {
            Vector3d point = kUsable;
            point[component] = value;
            EXPECT_FALSE(keptInFirst(point)) << point.transpose();
            EXPECT_FALSE(keptInSecond(point)) << point.transpose();
        }
    }
}

TEST(RemoveInfiniteMatchesTest, RemovesZeroVectorsOfEitherSign) {
    for (int signs = 0; signs < 8; ++signs) {
        const Vector3d point((signs & 1) != 0 ? -0.0 : 0.0, (signs & 2) != 0 ? -0.0 : 0.0,
                             (signs & 4) != 0 ? -0.0 : 0.0);
        EXPECT_FALSE(keptInFirst(point)) << point.transpose();
        EXPECT_FALSE(keptInSecond(point)) << point.transpose();
    }
}

TEST(RemoveInfiniteMatchesTest, KeepsPointsWithOneComponentThatIsNotZero) {
    for (const double value : {1e-300, -1e-300, 5e-324, 1.0}) {
        for (int component = 0; component < 3; ++component) {
            Vector3d point(0.0, 0.0, 0.0);
            point[component] = value;
            EXPECT_TRUE(keptInFirst(point)) << point.transpose();
            EXPECT_TRUE(keptInSecond(point)) << point.transpose();
        }
    }
}

TEST(RemoveInfiniteMatchesTest, KeepsPointsWhoseLengthOverflows) {
    const double largest = std::numeric_limits<double>::max();
    EXPECT_TRUE(keptInFirst({largest, -largest, largest}));
    EXPECT_TRUE(keptInSecond({largest, -largest, largest}));
}

TEST(RemoveInfiniteMatchesTest, FindsPointsByTheIndicesOfTheMatch) {
    const Points points1 = {{0, 0, 0}, {1, 1, 1}, {kNaN, 1, 1}, {2, 2, 2}};
    const Points points2 = {{1, 1, 1}, {0, kInfinity, 0}, {3, 3, 3}};
    Matches matches = {{3, 2, 0.1F}, {0, 2, 0.2F}, {1, 0, 0.3F}, {2, 0, 0.4F},
                       {1, 1, 0.5F}, {1, 2, 0.6F}, {3, 1, 0.7F}, {3, 0, 0.8F}};
    removeInfiniteMatches(matches, points1, points2);
    EXPECT_TRUE(sameMatches(matches, {{3, 2, 0.1F}, {1, 0, 0.3F}, {1, 2, 0.6F}, {3, 0, 0.8F}}));
}

TEST(RemoveInfiniteMatchesTest, LeavesAListOfUsablePointsAsItIs) {
    const Matches before = {{1, 0, 0.5F}, {0, 1, 0.75F}, {1, 1, -1.0F}};
    Matches matches = before;
    removeInfiniteMatches(matches, {{1, 0, 0}, {0, 1, 0}}, {{0, 0, 1}, {-1, 0, 0}});
    EXPECT_TRUE(sameMatches(matches, before));
}

TEST(RemoveInfiniteMatchesTest, MayRemoveEverything) {
    Matches matches = {{0, 0, 0.5F}, {0, 1, 0.75F}};
    removeInfiniteMatches(matches, {{0, 0, 0}}, {{1, 1, 1}, {2, 2, 2}});
    EXPECT_TRUE(matches.empty());
}

TEST(RemoveInfiniteMatchesTest, NoMatchesNeedNoPoints) {
    Matches matches;
    removeInfiniteMatches(matches, {}, {});
    EXPECT_TRUE(matches.empty());
}

TEST(CopyBestMatchesTest, KeepsWhatIsStrictlyAboveTheThreshold) {
    const Matches matches = {{0, 1, 0.5F}, {2, 3, 0.5000001F}, {4, 5, 0.49999997F}, {6, 7, 1.0F}};
    EXPECT_TRUE(sameMatches(copyBestMatches(matches, 0.5F), {{2, 3, 0.5000001F}, {6, 7, 1.0F}}));
}

TEST(CopyBestMatchesTest, KeepsTheOrderAndTheInput) {
    const Matches matches = {{9, 1, 0.6F}, {0, 8, 0.9F}, {3, 3, 0.1F}, {9, 1, 0.7F}};
    const Matches before = matches;
    EXPECT_TRUE(
        sameMatches(copyBestMatches(matches, 0.2F), {{9, 1, 0.6F}, {0, 8, 0.9F}, {9, 1, 0.7F}}));
    EXPECT_TRUE(sameMatches(matches, before));
}

TEST(CopyBestMatchesTest, NaNIsAboveNothing) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    EXPECT_TRUE(copyBestMatches({{0, 0, nan}}, -infinity).empty());
}

TEST(CopyBestMatchesTest, NothingIsAboveNaN) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    EXPECT_TRUE(copyBestMatches({{0, 0, 1.0F}, {0, 0, infinity}}, nan).empty());
}

TEST(CopyBestMatchesTest, InfinityIsAboveEveryNumber) {
    const float infinity = std::numeric_limits<float>::infinity();
    const float largest = std::numeric_limits<float>::max();
    EXPECT_TRUE(sameMatches(copyBestMatches({{0, 0, infinity}, {1, 1, -infinity}}, largest),
                            {{0, 0, infinity}}));
    EXPECT_TRUE(copyBestMatches({{0, 0, infinity}}, infinity).empty());
}

TEST(CopyBestMatchesTest, NoMatchesGiveNone) {
    EXPECT_TRUE(copyBestMatches({}, 0.5F).empty());
}

#ifndef NDEBUG
TEST(MatchUtilsDeathTest, DebugBuildsStopAtIndicesBeyondTheLists) {
    Matches matches = {{1, 0, 1.0F}};
    EXPECT_DEATH(updateWrappedIndices(matches, {7}, {7}), "queryIndex");
    EXPECT_DEATH(updateWrappedIndices(matches, {7, 8}, {}), "trainIndex");
    EXPECT_DEATH(removeInfiniteMatches(matches, {kUsable}, {kUsable}), "queryIndex");
    EXPECT_DEATH(removeInfiniteMatches(matches, {kUsable, kUsable}, {}), "trainIndex");
}
#endif

}  // namespace
}  // namespace marlo
