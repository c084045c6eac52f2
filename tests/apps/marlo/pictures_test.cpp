// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/pictures.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <vector>

#include "apps/marlo/material.h"
#include "marlo/picture_strip.h"

namespace marlo::app {
namespace {

constexpr float kPi = std::numbers::pi_v<float>;
constexpr std::size_t kAll = 1000;
const cv::Vec3b kGrey(128, 128, 128);

cv::Mat photograph(int rows, int cols, const cv::Vec3b& colour = kGrey) {
    return {rows, cols, CV_8UC3, cv::Scalar(colour)};
}

cv::Vec3b at(const cv::Mat& picture, int x, int y) {
    return picture.at<cv::Vec3b>(y, x);
}

// On a circle or a tick, which are yellow and a little softened at their edges.
bool isDrawn(const cv::Mat& picture, int x, int y) {
    const cv::Vec3b colour = at(picture, x, y);
    return colour[0] < 90 && colour[1] > 160 && colour[2] > 160;
}

bool equal(const cv::Mat& a, const cv::Mat& b) {
    return a.size() == b.size() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

Keypoint keypoint(float x, float y, float scale, float angle) {
    return {x, y, scale, angle, 1.0F, 0, 1};
}

cv::Mat drawOne(const Keypoint& drawn) {
    return drawKeypoints(photograph(101, 101), {drawn});
}

MatchList matchList(const std::vector<std::array<std::uint32_t, 2>>& rows) {
    MatchList matches(static_cast<Eigen::Index>(rows.size()), 2);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        matches.row(static_cast<Eigen::Index>(i)) << rows[i][0], rows[i][1];
    }
    return matches;
}

TEST(ScaledKeypointsTest, OuterEdgesOfTheImageStayWhereTheyAre) {
    const std::vector<Keypoint> scaled = scaledKeypoints(
        {keypoint(-0.5F, 99.5F, 4.0F, 1.0F), keypoint(0.5F, 3.0F, 2.0F, 0.0F)}, 0.5);
    ASSERT_EQ(scaled.size(), 2U);
    EXPECT_EQ(scaled[0].x, -0.5F);
    EXPECT_EQ(scaled[0].y, 49.5F);
    EXPECT_EQ(scaled[0].scale, 2.0F);
    EXPECT_EQ(scaled[0].angle, 1.0F);
    EXPECT_EQ(scaled[1].x, 0.0F);
    EXPECT_EQ(scaled[1].y, 1.25F);
}

TEST(DrawKeypointsTest, TickRunsFromTheCentreToTheCircle) {
    const cv::Mat picture = drawOne(keypoint(50, 50, 10, 0));  // a circle of 20 pixels
    for (const int x : {50, 55, 60, 65, 70}) EXPECT_TRUE(isDrawn(picture, x, 50)) << x;
    EXPECT_EQ(at(picture, 74, 50), kGrey);
    EXPECT_EQ(at(picture, 40, 50), kGrey);
}

TEST(DrawKeypointsTest, AnglesRunCounterClockwise) {
    const cv::Mat up = drawOne(keypoint(50, 50, 10, kPi / 2));
    EXPECT_TRUE(isDrawn(up, 50, 40));
    EXPECT_EQ(at(up, 50, 60), kGrey);
    const cv::Mat left = drawOne(keypoint(50, 50, 10, kPi));
    EXPECT_TRUE(isDrawn(left, 40, 50));
    EXPECT_EQ(at(left, 60, 50), kGrey);
    // 3-4-5: the tick ends at (50 + 16, 50 - 12).
    const cv::Mat slanted = drawOne(keypoint(50, 50, 10, std::atan2(3.0F, 4.0F)));
    EXPECT_TRUE(isDrawn(slanted, 58, 44));
    EXPECT_EQ(at(slanted, 58, 56), kGrey);
}

TEST(DrawKeypointsTest, RadiusIsTwiceTheScale) {
    const cv::Mat picture = drawOne(keypoint(50, 50, 10, 0));
    EXPECT_TRUE(isDrawn(picture, 50, 30));
    EXPECT_TRUE(isDrawn(picture, 50, 70));
    EXPECT_TRUE(isDrawn(picture, 30, 50));
    EXPECT_EQ(at(picture, 50, 65), kGrey);
    EXPECT_EQ(at(picture, 50, 75), kGrey);
}

TEST(DrawKeypointsTest, SmallestCirclesHaveARadiusOfTwoPixels) {
    const cv::Mat picture = drawOne(keypoint(50, 50, 0.25F, 0));
    EXPECT_TRUE(isDrawn(picture, 48, 50));
    EXPECT_TRUE(isDrawn(picture, 50, 52));
    EXPECT_EQ(at(picture, 50, 55), kGrey);
}

TEST(DrawKeypointsTest, PositionsBetweenPixelsAreSeen) {
    const cv::Mat picture = drawOne(keypoint(50.5F, 50, 10, kPi / 2));
    const cv::Vec3b left = at(picture, 50, 40);
    const cv::Vec3b right = at(picture, 51, 40);
    EXPECT_NEAR(left[2], right[2], 8);
    EXPECT_GT(left[2], kGrey[2]);
    EXPECT_LT(left[2], 240);
}

TEST(DrawKeypointsTest, LinesAreShadedOnLightGround) {
    const cv::Vec3b white(255, 255, 255);
    const cv::Mat picture = drawKeypoints(photograph(101, 101, white), {keypoint(50, 50, 10, 0)});
    EXPECT_TRUE(isDrawn(picture, 60, 50));
    EXPECT_LT(at(picture, 60, 51)[2], 200);
    EXPECT_LT(at(picture, 60, 49)[2], 200);
    EXPECT_EQ(at(picture, 60, 54), white);
}

TEST(DrawKeypointsTest, SmallCirclesLieOnTopOfLargeOnes) {
    const Keypoint large = keypoint(40, 50, 10, 0);
    const Keypoint small = keypoint(60, 50, 2, 0);
    EXPECT_TRUE(equal(drawKeypoints(photograph(101, 101), {small, large}),
                      drawKeypoints(photograph(101, 101), {large, small})));
}

TEST(DrawKeypointsTest, LargePhotographsAreReducedAndKeypointsWithThem) {
    const cv::Mat picture =
        drawKeypoints(photograph(200, 400), {keypoint(100.5F, 80.5F, 20, 0)}, 200);
    EXPECT_EQ(picture.size(), cv::Size(200, 100));
    for (const int x : {50, 60, 70}) EXPECT_TRUE(isDrawn(picture, x, 40)) << x;
    EXPECT_TRUE(isDrawn(picture, 50, 60));
    EXPECT_EQ(at(picture, 50, 65), kGrey);
}

TEST(DrawKeypointsTest, LongerSideIsAtMost2400PixelsIfNothingElseIsSaid) {
    EXPECT_EQ(drawKeypoints(photograph(3600, 1200), {}).size(), cv::Size(800, 2400));
}

TEST(DrawKeypointsTest, SmallPhotographsAreNotEnlarged) {
    EXPECT_EQ(drawKeypoints(photograph(7, 9), {}).size(), cv::Size(9, 7));
}

TEST(DrawKeypointsTest, PhotographItselfStaysAsItIs) {
    const cv::Mat ours = photograph(101, 101);
    static_cast<void>(drawKeypoints(ours, {keypoint(50, 50, 10, 0)}));
    EXPECT_TRUE(equal(ours, photograph(101, 101)));
}

TEST(DrawKeypointsTest, KeypointsOutsideOfThePhotographDoNoHarm) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    const cv::Mat picture = drawKeypoints(
        photograph(101, 101), {keypoint(-1000, 50, 2, 0), keypoint(1e30F, 0, 2, 0),
                               keypoint(kInfinity, 3, 2, 0), keypoint(kNaN, kNaN, 2, kNaN)});
    EXPECT_TRUE(equal(picture, photograph(101, 101)));
}

TEST(DrawKeypointsTest, OtherImagesAreRefused) {
    EXPECT_THROW(static_cast<void>(drawKeypoints(cv::Mat(), {})), std::invalid_argument);
    EXPECT_THROW(static_cast<void>(drawKeypoints(cv::Mat::zeros(9, 9, CV_8UC1), {})),
                 std::invalid_argument);
}

// Two photographs, 400 and 500 pixels wide, with keypoints every 20 rows at x = 100 of both; match
// i is a level line between x = 100 and x = 508 at the height 20 i + 10.
class DrawMatchesTest : public testing::Test {
protected:
    static int height(std::size_t match) { return static_cast<int>(20 * match + 10); }

    DrawMatchesTest() {
        std::vector<std::array<std::uint32_t, 2>> rows;
        for (std::uint32_t i = 0; i < 10; ++i) {
            keypoints.push_back(keypoint(100, static_cast<float>(height(i)), 2, 0));
            rows.push_back({i, i});
            scores.push_back(0.1F * static_cast<float>(i));
        }
        matches = matchList(rows);
    }

    [[nodiscard]] cv::Mat draw(const MatchList& verified, std::size_t mostLines) const {
        return drawMatches(first, second, keypoints, keypoints, matches, scores, verified,
                           mostLines);
    }

    // In the middle of a line.
    static cv::Vec3b colourOf(const cv::Mat& picture, std::size_t match) {
        return at(picture, 300, height(match));
    }
    static int widthOf(const cv::Mat& picture, std::size_t match) {
        int width = 0;
        for (int y = height(match) - 9; y <= height(match) + 9; ++y) {
            width += at(picture, 300, y) == kGrey ? 0 : 1;
        }
        return width;
    }

    cv::Mat first = photograph(220, 400);
    cv::Mat second = photograph(300, 500);
    std::vector<Keypoint> keypoints;
    MatchList matches;
    std::vector<float> scores;
    MatchList none{0, 2};
};

bool isRed(const cv::Vec3b& colour) {
    return colour[2] > colour[1] + 60 && colour[2] > colour[0] + 60;
}

TEST_F(DrawMatchesTest, PhotographsAreSideBySideAboveAStrip) {
    first = photograph(220, 400, {10, 20, 30});
    second = photograph(300, 500, {40, 50, 60});
    keypoints.clear();
    scores.clear();
    matches.resize(0, 2);
    const cv::Mat picture = draw(none, kAll);
    EXPECT_EQ(picture.size(), cv::Size(908, 300 + stripHeight(908, 2)));
    EXPECT_EQ(at(picture, 0, 0), cv::Vec3b(10, 20, 30));
    EXPECT_EQ(at(picture, 399, 219), cv::Vec3b(10, 20, 30));
    EXPECT_EQ(at(picture, 408, 0), cv::Vec3b(40, 50, 60));
    EXPECT_EQ(at(picture, 907, 299), cv::Vec3b(40, 50, 60));
    const cv::Vec3b ground = at(picture, 403, 0);
    EXPECT_EQ(at(picture, 399, 220), ground);
    EXPECT_EQ(at(picture, 907, picture.rows - 1), ground);
}

TEST_F(DrawMatchesTest, LinesRunFromKeypointToKeypoint) {
    const cv::Mat picture = draw(none, kAll);
    EXPECT_NE(at(picture, 100, 10), kGrey);
    EXPECT_NE(at(picture, 508, 10), kGrey);
    EXPECT_EQ(at(picture, 90, 10), kGrey);
    EXPECT_EQ(at(picture, 518, 10), kGrey);
}

TEST_F(DrawMatchesTest, VerifiedLinesAreThickAndOthersThinAndRed) {
    const cv::Mat picture = draw(matchList({{0, 0}, {9, 9}}), kAll);
    EXPECT_FALSE(isRed(colourOf(picture, 0)));
    EXPECT_TRUE(isRed(colourOf(picture, 1)));
    EXPECT_TRUE(isRed(colourOf(picture, 8)));
    EXPECT_FALSE(isRed(colourOf(picture, 9)));
    EXPECT_EQ(colourOf(picture, 1), colourOf(picture, 8));
    EXPECT_GT(widthOf(picture, 0), widthOf(picture, 1));
}

TEST_F(DrawMatchesTest, VerifiedLinesHaveTheColourOfTheirScore) {
    const cv::Mat picture = draw(matches, kAll);
    const cv::Vec3b lowest = colourOf(picture, 0);  // violet
    EXPECT_GT(lowest[0], lowest[1]);
    const cv::Vec3b highest = colourOf(picture, 9);  // yellow
    EXPECT_GT(highest[1], highest[0] + 100);
    EXPECT_GT(highest[2], highest[0] + 100);
    for (std::size_t i = 1; i < 10; ++i) EXPECT_NE(colourOf(picture, i), colourOf(picture, i - 1));
}

TEST_F(DrawMatchesTest, WithoutVerifiedMatchesLinesAreThinAndHaveTheColourOfTheirScore) {
    const cv::Mat picture = draw(none, kAll);
    EXPECT_GT(colourOf(picture, 9)[1], colourOf(picture, 9)[0] + 100);
    EXPECT_FALSE(isRed(colourOf(picture, 0)));
    EXPECT_EQ(widthOf(picture, 0), widthOf(draw(matchList({{9, 9}}), kAll), 0));
}

TEST_F(DrawMatchesTest, EqualScoresHaveTheHighestColour) {
    scores.assign(10, 1.0F);
    const cv::Mat picture = draw(none, kAll);
    EXPECT_EQ(colourOf(picture, 0), colourOf(picture, 9));
    EXPECT_GT(colourOf(picture, 0)[1], colourOf(picture, 0)[0] + 100);
}

TEST_F(DrawMatchesTest, MoreMatchesThanLinesAreThinnedOutEvenly) {
    const cv::Mat picture = draw(none, 5);
    for (std::size_t i = 0; i < 10; ++i) {
        EXPECT_EQ(colourOf(picture, i) != kGrey, i % 2 == 0) << i;
    }
}

TEST_F(DrawMatchesTest, SameMatchesGiveTheSamePicture) {
    EXPECT_TRUE(equal(draw(matchList({{3, 3}}), 7), draw(matchList({{3, 3}}), 7)));
}

TEST_F(DrawMatchesTest, NoLinesAtAllArePossible) {
    const cv::Mat picture = draw(none, 0);
    for (std::size_t i = 0; i < 10; ++i) EXPECT_EQ(colourOf(picture, i), kGrey);
}

TEST_F(DrawMatchesTest, LargePicturesAreReducedAndKeypointsWithThem) {
    first = photograph(800, 2000);
    second = photograph(800, 2000);
    keypoints = {keypoint(1000.5F, 400.5F, 2, 0)};  // (250, 100) at a quarter of the size
    matches = matchList({{0, 0}});
    scores = {1.0F};
    const cv::Mat picture =
        drawMatches(first, second, keypoints, keypoints, matches, scores, none, 1, 1008);
    EXPECT_EQ(picture.cols, 1008);
    EXPECT_EQ(picture.rows, 200 + stripHeight(1008, 2));
    EXPECT_NE(at(picture, 250, 100), kGrey);
    EXPECT_NE(at(picture, 500 + 8 + 250, 100), kGrey);
    EXPECT_EQ(at(picture, 240, 100), kGrey);
}

TEST_F(DrawMatchesTest, HighPicturesAreReducedSoThatTheStripHasRoom) {
    first = photograph(3000, 1000);
    second = photograph(2000, 1000);
    const cv::Mat picture = draw(none, kAll);
    EXPECT_LE(picture.rows, 2400);
    EXPECT_GT(picture.rows, 2300);
}

TEST_F(DrawMatchesTest, EachMatchNeedsAScore) {
    scores.pop_back();
    EXPECT_THROW(static_cast<void>(draw(none, kAll)), std::invalid_argument);
}

TEST_F(DrawMatchesTest, IndicesBeyondTheKeypointsAreRefused) {
    matches(4, 1) = 10;
    EXPECT_THROW(static_cast<void>(draw(none, kAll)), std::invalid_argument);
}

TEST(MatchesCaptionTest, SaysHowManyAreVerifiedAndDrawn) {
    EXPECT_EQ(matchesCaption(200, 150, 200), "200 matches, 150 verified (75 %)");
    EXPECT_EQ(matchesCaption(1000, 999, 400),
              "1000 matches, 999 verified (99 %); 400 of them drawn, evenly chosen");
    EXPECT_EQ(matchesCaption(1, 1, 1), "1 match, 1 verified (100 %)");
    EXPECT_EQ(matchesCaption(0, 0, 0), "0 matches, 0 verified");
}

TEST(DrawCoverageTest, PlacesWithManyKeypointsAreYellowAndEmptyOnesViolet) {
    const std::vector<Keypoint> keypoints(50, keypoint(200, 300, 2, 0));
    const cv::Mat picture = drawCoverage(photograph(600, 800), keypoints);
    EXPECT_EQ(picture.size(), cv::Size(800, 600 + stripHeight(800, 2)));
    const cv::Vec3b many = at(picture, 200, 300);
    EXPECT_GT(many[1], many[0] + 60);
    EXPECT_GT(many[2], many[0] + 60);
    const cv::Vec3b few = at(picture, 600, 300);
    EXPECT_GT(few[0], few[1]);
    EXPECT_EQ(at(picture, 799, 0), few);
}

TEST(DrawCoverageTest, NumbersAreSmoothedOverTwoPercentOfTheLongerSide) {
    const cv::Mat picture =
        drawCoverage(photograph(600, 800), {keypoint(400, 300, 2, 0), keypoint(-50, 0, 2, 0)});
    // Two sigmas away from the only one: e^-2, a seventh of the most. The map begins there with
    // blue; at four sigmas it has reached its end.
    EXPECT_NE(at(picture, 432, 300), at(picture, 600, 300));
    EXPECT_NE(at(picture, 432, 300), at(picture, 400, 300));
    EXPECT_EQ(at(picture, 480, 300), at(picture, 600, 300));
    EXPECT_EQ(at(picture, 0, 0), at(picture, 600, 300));
}

TEST(DrawCoverageTest, PhotographIsSeenInGrey) {
    cv::Mat ours = photograph(600, 800, {0, 0, 0});
    ours.colRange(400, 800) = cv::Scalar(255, 255, 255);
    const cv::Mat picture = drawCoverage(ours, {});
    const cv::Vec3b dark = at(picture, 100, 100);
    const cv::Vec3b light = at(picture, 700, 100);
    const int difference = light[0] - dark[0];
    EXPECT_GT(difference, 40);
    EXPECT_NEAR(light[1] - dark[1], difference, 1);
    EXPECT_NEAR(light[2] - dark[2], difference, 1);
}

TEST(DrawCoverageTest, LargePhotographsAreReducedSoThatTheStripHasRoom) {
    const cv::Mat high = drawCoverage(photograph(3000, 2000), {});
    EXPECT_LE(high.rows, 2400);
    EXPECT_GT(high.rows, 2300);
    EXPECT_EQ(drawCoverage(photograph(1000, 4000), {}, 1000).cols, 1000);
}

TEST(DrawCoverageTest, NarrowPhotographsStandInTheMiddleOfAStripThatCanBeRead) {
    const cv::Mat picture = drawCoverage(photograph(50, 40), {});
    EXPECT_EQ(picture.size(), cv::Size(640, 50 + stripHeight(640, 2)));
    EXPECT_EQ(at(picture, 299, 10), at(picture, 0, 0));
    EXPECT_NE(at(picture, 300, 10), at(picture, 0, 0));
    EXPECT_NE(at(picture, 339, 10), at(picture, 0, 0));
    EXPECT_EQ(at(picture, 340, 10), at(picture, 0, 0));
}

// The working image of a panorama of 200 x 100 pixels has 206 x 126, a margin of 3, the discs'
// centres in columns 35 and 171 of row 91, and keeps a radius of 31.8 of them. It begins in row 112
// of the picture; the panorama lies in the middle above.
class DrawPanoramaTest : public testing::Test {
protected:
    static constexpr int kLower = 112;

    static cv::Vec3b below(const cv::Mat& picture, int x, int y) {
        return at(picture, x, kLower + y);
    }

    const cv::Vec3b dark{45, 45, 45};  // 0.35 of 128
    const cv::Vec3b black{0, 0, 0};
};

TEST_F(DrawPanoramaTest, WorkingImageIsBelowThePanorama) {
    const cv::Mat picture = drawPanorama(photograph(100, 200), {});
    ASSERT_EQ(picture.size(), cv::Size(206, 100 + 12 + 126));
    ASSERT_EQ(picture.type(), CV_8UC3);
    EXPECT_EQ(at(picture, 2, 50), black);
    EXPECT_EQ(at(picture, 3, 0), kGrey);
    EXPECT_EQ(at(picture, 202, 99), kGrey);
    EXPECT_EQ(at(picture, 203, 50), black);
    EXPECT_EQ(at(picture, 103, 100), black);
    EXPECT_EQ(at(picture, 103, 111), black);
    EXPECT_EQ(below(picture, 103, 0), dark);
}

TEST_F(DrawPanoramaTest, WhatIsKeptIsBright) {
    const cv::Mat picture = drawPanorama(photograph(100, 200), {});
    EXPECT_EQ(below(picture, 5, 5), kGrey);
    EXPECT_EQ(below(picture, 200, 50), kGrey);
    EXPECT_EQ(below(picture, 35, 91), kGrey);
    EXPECT_EQ(below(picture, 171, 91), kGrey);
    EXPECT_EQ(below(picture, 35, 91 - 29), kGrey);
    EXPECT_EQ(below(picture, 171, 91 + 29), kGrey);
}

TEST_F(DrawPanoramaTest, WhatIsShownTwiceIsDark) {
    const cv::Mat picture = drawPanorama(photograph(100, 200), {});
    EXPECT_EQ(below(picture, 1, 30), dark);    // beyond the seam
    EXPECT_EQ(below(picture, 205, 30), dark);  // on both sides
    EXPECT_EQ(below(picture, 103, 54), dark);  // beyond 45 degrees
    EXPECT_EQ(below(picture, 35 + 34, 91), dark);
    EXPECT_EQ(below(picture, 171 - 34, 91), dark);
    EXPECT_EQ(below(picture, 103, 91), black);  // between the discs
}

TEST_F(DrawPanoramaTest, PartsHaveAnOutline) {
    const cv::Mat picture = drawPanorama(photograph(100, 200), {});
    EXPECT_TRUE(isDrawn(picture, 3, kLower + 25));
    EXPECT_TRUE(isDrawn(picture, 202, kLower + 25));
    EXPECT_TRUE(isDrawn(picture, 100, kLower + 3));
    EXPECT_TRUE(isDrawn(picture, 100, kLower + 52));
    EXPECT_TRUE(isDrawn(picture, 35 - 32, kLower + 91));
    EXPECT_TRUE(isDrawn(picture, 171 + 32, kLower + 91));
}

TEST_F(DrawPanoramaTest, PolesAreSeenInTheDiscs) {
    cv::Mat ours = photograph(100, 200);
    ours.rowRange(0, 20) = cv::Scalar(10, 120, 230);
    ours.rowRange(80, 100) = cv::Scalar(240, 130, 20);
    const cv::Mat picture = drawPanorama(ours, {});
    EXPECT_EQ(below(picture, 35, 91), cv::Vec3b(10, 120, 230));
    EXPECT_EQ(below(picture, 171, 91), cv::Vec3b(240, 130, 20));
    EXPECT_EQ(below(picture, 103, 25), kGrey);
}

TEST_F(DrawPanoramaTest, KeypointsAreDrawnInThePanorama) {
    const cv::Mat plain = drawPanorama(photograph(100, 200), {});
    const cv::Mat picture = drawPanorama(photograph(100, 200), {keypoint(100, 50, 10, 0)});
    for (const int x : {100, 110, 120}) EXPECT_TRUE(isDrawn(picture, 3 + x, 50)) << x;
    EXPECT_FALSE(isDrawn(picture, 3 + 90, 50));
    EXPECT_TRUE(equal(picture.rowRange(100, 238), plain.rowRange(100, 238)));
}

TEST_F(DrawPanoramaTest, LargePanoramasAreReducedSoThatBothImagesHaveRoom) {
    for (const int longest : {300, 301, 599, 1000}) {
        const cv::Mat picture = drawPanorama(photograph(1500, 3000), {}, longest);
        EXPECT_LE(picture.rows, longest);
        EXPECT_GE(picture.rows, longest - 8);
        EXPECT_LT(picture.cols, picture.rows);
    }
}

TEST_F(DrawPanoramaTest, KeypointsAreReducedWithThePanorama) {
    const cv::Mat ours = photograph(1000, 2000);
    // The one side of the panorama's middle that is drawn on; the picture is a quarter as large.
    const cv::Mat picture = drawPanorama(ours, {keypoint(999.5F, 499.5F, 100, 0)}, 577);
    const int middle = picture.cols / 2;
    const auto panoramaRows = [&] {
        int row = 0;
        while (at(picture, picture.cols / 4, row) == kGrey) ++row;
        return row;
    }();
    EXPECT_NEAR(panoramaRows, 250, 2);
    EXPECT_TRUE(isDrawn(picture, middle + 25, panoramaRows / 2));
    EXPECT_FALSE(isDrawn(picture, middle - 25, panoramaRows / 2));
}

TEST_F(DrawPanoramaTest, PanoramasOfAnySizeCanBeDrawn) {
    for (const int height : {1, 2, 3, 7, 51}) {
        const cv::Mat picture = drawPanorama(photograph(height, 2 * height), {});
        EXPECT_GE(picture.cols, 2 * height);
        EXPECT_GT(picture.rows, 2 * height);
    }
    EXPECT_FALSE(drawPanorama(photograph(50, 100), {}, 1).empty());
}

TEST_F(DrawPanoramaTest, PhotographItselfStaysAsItIs) {
    const cv::Mat ours = photograph(100, 200);
    static_cast<void>(drawPanorama(ours, {keypoint(100, 50, 10, 0)}));
    EXPECT_TRUE(equal(ours, photograph(100, 200)));
}

TEST_F(DrawPanoramaTest, OtherImagesAreRefused) {
    for (const int width : {100, 199, 201}) {
        EXPECT_EQ(test::refusal<std::invalid_argument>(
                      [&] { static_cast<void>(drawPanorama(photograph(100, width), {})); }),
                  "a full panorama is twice as wide as high");
    }
    for (const cv::Mat& other : {cv::Mat(), cv::Mat(cv::Mat::zeros(100, 200, CV_8UC1))}) {
        EXPECT_EQ(test::refusal<std::invalid_argument>(
                      [&] { static_cast<void>(drawPanorama(other, {})); }),
                  "a picture is made from an 8-bit photograph of three channels");
    }
}

TEST(CoverageCaptionTest, SaysHowKeypointsAreSpread) {
    EXPECT_EQ(coverageCaption(1234, {1200, 0.756, 1.046}),
              "1234 keypoints, occupied cells of a 20 x 20 grid: 76 %, nearest-neighbour ratio: "
              "1.05");
    EXPECT_EQ(coverageCaption(1, {1, 0.0025, 0.0}),
              "1 keypoint, occupied cells of a 20 x 20 grid: 0 %, nearest-neighbour ratio: 0.00");
}

TEST(PhotographCoverageTest, SidesOfThePhotographAreNotMixedUp) {
    // Both are inside of 600 columns and 400 rows, and lie in cells of 30 x 20 pixels.
    const Coverage measured =
        photographCoverage(photograph(400, 600), {Keypoint(5, 5), Keypoint(599, 399)});
    EXPECT_EQ(measured.places, 2U);
    EXPECT_EQ(measured.occupiedCells, 2 / 400.0);
    EXPECT_THROW(static_cast<void>(photographCoverage(cv::Mat(), {})), std::invalid_argument);
}

}  // namespace
}  // namespace marlo::app
