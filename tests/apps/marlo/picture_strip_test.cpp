// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/picture_strip.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <string>

namespace marlo::app {
namespace {

const cv::Vec3b kGround(34, 30, 28);

// The columns that have something else than ground: first and last, or -1 and -1.
std::pair<int, int> extent(const cv::Mat& strip) {
    std::pair<int, int> found(-1, -1);
    for (int x = 0; x < strip.cols; ++x) {
        for (int y = 0; y < strip.rows; ++y) {
            if (strip.at<cv::Vec3b>(y, x) == kGround) continue;
            if (found.first < 0) found.first = x;
            found.second = x;
        }
    }
    return found;
}

int count(const cv::Mat& strip, const cv::Vec3b& colour) {
    cv::Mat mask;
    cv::inRange(strip, cv::Scalar(colour), cv::Scalar(colour), mask);
    return cv::countNonZero(mask);
}

TEST(PictureStripTest, IsAsWideAsAskedForAndHasTheHeightThatWasAnnounced) {
    for (const int width : {640, 1000, 2400}) {
        const cv::Mat strip = drawStrip(width, {{StripText{"one"}}, {StripText{"two"}}});
        EXPECT_EQ(strip.size(), cv::Size(width, stripHeight(width, 2)));
        EXPECT_EQ(strip.type(), CV_8UC3);
    }
}

TEST(PictureStripTest, LettersGrowWithThePicture) {
    const auto [smallFirst, smallLast] = extent(drawStrip(1200, {{StripText{"text"}}}));
    const auto [largeFirst, largeLast] = extent(drawStrip(2400, {{StripText{"text"}}}));
    EXPECT_NEAR(largeLast - largeFirst, 2 * (smallLast - smallFirst), 8);
}

TEST(PictureStripTest, LongRowsAreMadeToFit) {
    const auto [first, last] = extent(drawStrip(640, {{StripText{std::string(90, 'm')}}}));
    EXPECT_GT(first, 0);
    EXPECT_LT(last, 640);
    EXPECT_GT(last, 560);
}

TEST(PictureStripTest, RowsLieBelowEachOther) {
    const cv::Mat strip = drawStrip(640, {{StripText{"a"}}, {}, {StripText{"c"}}});
    const int third = strip.rows / 3;
    EXPECT_GT(extent(strip.rowRange(0, third)).first, 0);
    EXPECT_EQ(extent(strip.rowRange(third, 2 * third)).first, -1);
    EXPECT_GT(extent(strip.rowRange(2 * third, strip.rows)).first, 0);
}

TEST(PictureStripTest, LinesHaveTheirColourAndWidth) {
    const cv::Vec3b red(0, 0, 255);
    const int thin = count(drawStrip(1000, {{StripLine{cv::Scalar(red), 1}}}), red);
    const int thick = count(drawStrip(1000, {{StripLine{cv::Scalar(red), 3}}}), red);
    EXPECT_GT(thin, 20);
    EXPECT_GE(thick, 2 * thin);
}

TEST(PictureStripTest, BarsRunFromTheFirstColourToTheLast) {
    const cv::Vec3b red(0, 0, 255);
    const cv::Vec3b blue(255, 0, 0);
    cv::Mat colours(1, 2, CV_8UC3);
    colours.at<cv::Vec3b>(0) = red;
    colours.at<cv::Vec3b>(1) = blue;
    const cv::Mat strip = drawStrip(1000, {{StripBar{colours}}});
    const auto [first, last] = extent(strip);
    const int middle = strip.rows / 2;
    EXPECT_EQ(strip.at<cv::Vec3b>(middle, first), red);
    EXPECT_EQ(strip.at<cv::Vec3b>(middle, last), blue);
}

TEST(PictureStripTest, ItemsFollowFromLeftToRight) {
    const cv::Vec3b red(0, 0, 255);
    const cv::Mat bar(1, 1, CV_8UC3, cv::Scalar(red));
    const auto [first, last] = extent(drawStrip(1000, {{StripBar{bar}}}));
    const cv::Mat strip = drawStrip(1000, {{StripBar{bar}, StripText{"text"}}});
    EXPECT_EQ(strip.at<cv::Vec3b>(strip.rows / 2, last), red);
    EXPECT_EQ(extent(strip).first, first);
    EXPECT_GT(extent(strip).second, last + 10);
}

}  // namespace
}  // namespace marlo::app
