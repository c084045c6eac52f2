// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/working_image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <numeric>
#include <stdexcept>
#include <vector>

#include "apps/marlo/material.h"
#include "utilities/synthetic_images.h"

namespace marlo::app {
namespace {

using test::bytesOf;
using test::noiseImage;
using test::Random;
using test::refusal;
using test::sameBits;

constexpr double kPi = std::numbers::pi;

FloatImage rowOf(const std::vector<float>& pixels) {
    return Eigen::Map<const FloatImage>(pixels.data(), 1, static_cast<Eigen::Index>(pixels.size()));
}

// What a detector says of a place in the working image.
Keypoint foundAt(const WorkingImage& working, double x, double y) {
    return {static_cast<float>(x / working.scale()), static_cast<float>(y / working.scale())};
}

// The place in the photograph of a pixel of the working image.
Eigen::Vector2d placeOf(const WorkingImage& working, double x, double y) {
    const cv::Point2d place = working.inPhotograph(foundAt(working, x, y));
    return {place.x, place.y};
}

// Ordinary photographs.

TEST(WorkingImageTest, PhotographThatIsSmallEnoughIsTheWorkingImage) {
    const FloatImage grey = noiseImage(40, 60, 1);
    for (const WorkingImageOptions& options :
         {WorkingImageOptions{0, 0, false}, WorkingImageOptions{60, 60, false}}) {
        const WorkingImage working(FloatImage(grey), options);
        EXPECT_TRUE(sameBits(working.image(), grey));
        EXPECT_EQ(working.scale(), 1.0);
        EXPECT_EQ(working.height(), 40);
        EXPECT_EQ(working.width(), 60);
        EXPECT_EQ(working.inPhotograph(Keypoint(3.25F, 17.5F)), cv::Point2d(3.25, 17.5));
    }
}

TEST(WorkingImageTest, PixelsOfASmallerImageAreMeans) {
    FloatImage grey(2, 4);
    grey << 0.0F, 0.25F, 0.5F, 1.0F,  //
        0.5F, 0.25F, 0.5F, 0.0F;
    const WorkingImage working(std::move(grey), {2, 0, false});
    ASSERT_EQ(working.image().rows(), 1);
    ASSERT_EQ(working.image().cols(), 2);
    EXPECT_EQ(working.image()(0, 0), 0.25F);
    EXPECT_EQ(working.image()(0, 1), 0.5F);
    EXPECT_EQ(working.scale(), 0.5);
}

TEST(WorkingImageTest, PixelsAreMeansAlsoWhereOneSideCannotBecomeShorter) {
    const WorkingImage working(rowOf({1, 0, 0, 1, 0, 1, 1, 0}), {2, 0, false});
    ASSERT_EQ(working.image().rows(), 1);
    ASSERT_EQ(working.image().cols(), 2);
    EXPECT_EQ(working.image()(0, 0), 0.5F);
    EXPECT_EQ(working.image()(0, 1), 0.5F);
}

TEST(WorkingImageTest, OuterEdgesOfASmallerImageStayWhereTheyAre) {
    const WorkingImage working(noiseImage(200, 300, 1), {150, 0, false});
    EXPECT_EQ(working.image().rows(), 100);
    EXPECT_EQ(working.image().cols(), 150);
    EXPECT_EQ(placeOf(working, -0.5, -0.5), Eigen::Vector2d(-0.5, -0.5));
    EXPECT_EQ(placeOf(working, 0.0, 1.0), Eigen::Vector2d(0.5, 2.5));
    EXPECT_EQ(placeOf(working, 149.5, 99.5), Eigen::Vector2d(299.5, 199.5));
}

TEST(WorkingImageTest, EachSideHasItsOwnFactorWhereTheyHaveToBeRounded) {
    const WorkingImage working(noiseImage(203, 301, 1), {152, 0, false});
    EXPECT_EQ(working.image().rows(), 103);  // 102.5
    EXPECT_EQ(working.image().cols(), 152);
    EXPECT_EQ(working.scale(), 152.0 / 301.0);
    const Eigen::Vector2d place = placeOf(working, 100.0, 60.0);
    EXPECT_NEAR(place.x(), 100.5 * 301.0 / 152.0 - 0.5, 1e-4);
    EXPECT_NEAR(place.y(), 60.5 * 203.0 / 103.0 - 0.5, 1e-4);
}

TEST(WorkingImageTest, DetectorIsToldTheSizeOfThePhotograph) {
    const WorkingImage working(noiseImage(203, 301, 1), {152, 0, false});
    EXPECT_EQ(working.height(), 203);
    EXPECT_EQ(working.width(), 301);
}

TEST(WorkingImageTest, SmallPhotographsGetTwiceTheSize) {
    FloatImage grey(2, 40);
    for (int col = 0; col < 40; ++col) grey.col(col).setConstant(static_cast<float>(col));
    const WorkingImage working(std::move(grey), {0, 41, false});
    EXPECT_EQ(working.scale(), 2.0);
    EXPECT_EQ(working.image().rows(), 4);
    ASSERT_EQ(working.image().cols(), 80);
    EXPECT_EQ(working.height(), 2);
    EXPECT_EQ(working.width(), 40);
    EXPECT_EQ(working.image()(1, 10), 4.75F);
    EXPECT_EQ(placeOf(working, 10, 1), Eigen::Vector2d(4.75, 0.25));
}

TEST(WorkingImageTest, OrdinaryPhotographsShowNothingTwice) {
    WorkingImage working(noiseImage(50, 100, 1), {});
    std::vector<Keypoint> keypoints{Keypoint(-3, 2), Keypoint(99, 49), Keypoint(400, 400)};
    const std::string before = bytesOf(keypoints);
    working.keepOneOfEach(keypoints);
    EXPECT_EQ(bytesOf(keypoints), before);
}

// Panoramas.

TEST(WorkingImageOfPanoramaTest, OtherShapesAreRefusedAlsoIfTheyAreResized) {
    for (const WorkingImageOptions& options :
         {WorkingImageOptions{0, 0, true}, WorkingImageOptions{100, 0, true},
          WorkingImageOptions{0, 500, true}}) {
        EXPECT_EQ(refusal<std::invalid_argument>(
                      [&] { const WorkingImage working(noiseImage(200, 300, 1), options); }),
                  "A full panorama is twice as wide as high, not 300 x 200");
    }
}

TEST(WorkingImageOfPanoramaTest, HasABandAndTwoDiscs) {
    const WorkingImage working(noiseImage(200, 400, 1), {0, 0, true});
    EXPECT_EQ(working.scale(), 1.0);
    EXPECT_EQ(working.image().rows(), 250);
    EXPECT_EQ(working.image().cols(), 410);
    EXPECT_EQ(working.height(), 250);
    EXPECT_EQ(working.width(), 410);
}

TEST(WorkingImageOfPanoramaTest, KeepsItsShapeAndStaysWithinTheLongestSide) {
    // The band is the only part of that width: the panorama's, and a twentieth of its height.
    const auto widthOf = [](int longestSide) {
        const WorkingImage working(noiseImage(500, 1000, 1), {longestSide, 0, true});
        return working.image().cols();
    };
    EXPECT_EQ(widthOf(1000), 1000 + 2 * 13);
    EXPECT_EQ(widthOf(999), 998 + 2 * 12);
    EXPECT_EQ(widthOf(301), 300 + 2 * 4);
    EXPECT_EQ(widthOf(300), 300 + 2 * 4);
    EXPECT_EQ(widthOf(299), 298 + 2 * 4);
    EXPECT_EQ(widthOf(1), 2);
}

TEST(WorkingImageOfPanoramaTest, ScaleIsThatOfThePixels) {
    EXPECT_EQ(WorkingImage(noiseImage(500, 1000, 1), {250, 0, true}).scale(), 0.25);
    const WorkingImage odd(noiseImage(500, 1000, 1), {301, 0, true});
    EXPECT_NEAR(odd.scale(), 0.3, 1e-15);
    EXPECT_EQ(odd.height(), std::lround(static_cast<double>(odd.image().rows()) / 0.3));
    EXPECT_EQ(odd.width(), std::lround(308 / 0.3));
    EXPECT_EQ(WorkingImage(noiseImage(50, 100, 1), {0, 101, true}).scale(), 2.0);
}

// Where a panorama of 400 x 200 pixels lies in its working image, by hand: the cylinder's radius is
// 63.66 pixels, the margin 5, and the discs have a radius of 70.03.
constexpr int kWidth = 400;
constexpr int kHeight = 200;
constexpr double kRadius = kWidth / (2.0 * kPi);
constexpr double kMargin = 5.0;
constexpr double kFirstRow = 45.0;
constexpr double kDiscRow = 180.0;
constexpr double kNorthCol = 70.0;
constexpr double kSouthCol = 340.0;
constexpr double kDiscRadius = 1.1 * kRadius;

// The panorama's place in which a direction is seen: x right, y down, z ahead.
Eigen::Vector2d seenAt(const Eigen::Vector3d& direction) {
    const double longitude = std::atan2(direction.x(), direction.z());
    const double latitude = std::atan2(direction.y(), std::hypot(direction.x(), direction.z()));
    const double column = kWidth * (longitude / (2.0 * kPi) + 0.5);
    return {column < kWidth ? column : 0.0, kHeight * (latitude / kPi + 0.5)};
}

// Around the panorama.
double distance(const Eigen::Vector2d& a, const Eigen::Vector2d& b, double width) {
    return std::hypot(std::remainder(a.x() - b.x(), width), a.y() - b.y());
}

struct Shown {
    Eigen::Vector2d working;
    Eigen::Vector2d panorama;
};

// Places of all parts, with the place in the panorama that they show.
std::vector<Shown> placesOfAllParts() {
    std::vector<Shown> places;
    for (double x = 0.0; x <= kWidth + 2 * kMargin - 1; x += 7.3) {
        for (double y = 0.0; y <= 109.0; y += 5.7) {
            const double column = std::fmod(x - kMargin + kWidth, kWidth);
            places.push_back({{x, y}, {column, y + kFirstRow}});
        }
    }
    for (double dx = -66.7; dx < 70.0; dx += 4.6) {
        for (double dy = -66.7; dy < 70.0; dy += 4.6) {
            if (std::hypot(dx, dy) > kDiscRadius) continue;
            places.push_back({{kNorthCol + dx, kDiscRow + dy}, seenAt({dx, -kRadius, dy})});
            places.push_back({{kSouthCol + dx, kDiscRow + dy}, seenAt({dx, kRadius, -dy})});
        }
    }
    return places;
}

TEST(WorkingImageOfPanoramaTest, PositionsAreTheTrueOnes) {
    const WorkingImage working(noiseImage(kHeight, kWidth, 1), {0, 0, true});
    for (const Shown& shown : placesOfAllParts()) {
        const Eigen::Vector2d place = placeOf(working, shown.working.x(), shown.working.y());
        EXPECT_LT(distance(place, shown.panorama, kWidth), 1e-3) << shown.working.transpose();
        EXPECT_GE(place.x(), 0.0);
        EXPECT_LT(place.x(), kWidth);
    }
}

TEST(WorkingImageOfPanoramaTest, PixelsAreThoseAtTheirPositions) {
    // Every pixel of the panorama says where it is.
    FloatImage grey(kHeight, kWidth);
    std::iota(grey.data(), grey.data() + grey.size(), 1.0F);
    const WorkingImage working(std::move(grey), {0, 0, true});
    int shown = 0;
    for (int y = 0; y < working.image().rows(); ++y) {
        for (int x = 0; x < working.image().cols(); ++x) {
            const int index = static_cast<int>(working.image()(y, x)) - 1;
            if (index < 0) continue;  // black
            ++shown;
            const Eigen::Vector2d place = placeOf(working, x, y);
            const double column = std::remainder(place.x() - index % kWidth, kWidth);
            EXPECT_LE(std::abs(column), 0.5001) << x << ", " << y;
            // Half a row below the last one there is none.
            EXPECT_LE(std::abs(place.y() - index / kWidth), place.y() > 199.5 ? 1.0 : 0.5001)
                << x << ", " << y;
        }
    }
    EXPECT_GT(shown, 110 * 410 + 2 * 15000);
}

TEST(WorkingImageOfPanoramaTest, PositionsAreTheTrueOnesAlsoIfItIsMadeSmaller) {
    // 1200 x 600 pixels, of which three by three are one.
    const WorkingImage working(noiseImage(3 * kHeight, 3 * kWidth, 1), {kWidth, 0, true});
    for (const Shown& shown : placesOfAllParts()) {
        const Eigen::Vector2d place = placeOf(working, shown.working.x(), shown.working.y());
        Eigen::Vector2d expected = 3.0 * (shown.panorama.array() + 0.5).matrix();
        expected.array() -= 0.5;
        expected.y() = std::min(expected.y(), 600.0);  // the pole
        EXPECT_LT(distance(place, expected, 1200.0), 1e-3) << shown.working.transpose();
        EXPECT_GE(place.x(), 0.0);
        EXPECT_LT(place.x(), 1200.0);
    }
}

TEST(WorkingImageOfPanoramaTest, PositionsAreTheTrueOnesAlsoIfItIsEnlarged) {
    const WorkingImage working(noiseImage(kHeight / 2, kWidth / 2, 1), {0, 300, true});
    for (const Shown& shown : placesOfAllParts()) {
        const Eigen::Vector2d place = placeOf(working, shown.working.x(), shown.working.y());
        Eigen::Vector2d expected = 0.5 * (shown.panorama.array() + 0.5).matrix();
        expected.array() -= 0.5;
        expected.y() = std::max(expected.y(), 0.0);
        EXPECT_LT(distance(place, expected, 200.0), 1e-3) << shown.working.transpose();
        EXPECT_GE(place.x(), -0.5);
        EXPECT_LT(place.x(), 199.5);
    }
}

TEST(WorkingImageOfPanoramaTest, PositionsGoOnAroundTheSeamIfItIsMadeSmaller) {
    const WorkingImage working(noiseImage(2 * kHeight, 2 * kWidth, 1), {kWidth, 0, true});
    // Columns 399.5 and 399.9 of the smaller panorama.
    EXPECT_NEAR(placeOf(working, kMargin + 399.5, 50.0).x(), -0.5, 1e-3);
    EXPECT_NEAR(placeOf(working, kMargin + 399.9, 50.0).x(), 0.3, 1e-3);
    EXPECT_NEAR(placeOf(working, kMargin - 0.1, 50.0).x(), 0.3, 1e-3);
}

TEST(WorkingImageOfPanoramaTest, PositionsGoOnAroundTheSeamAndEndAtThePolesIfItIsEnlarged) {
    const WorkingImage working(noiseImage(kHeight / 2, kWidth / 2, 1), {0, 300, true});
    EXPECT_NEAR(placeOf(working, kMargin + 0.5, 50.0).x(), 0.0, 1e-3);
    EXPECT_NEAR(placeOf(working, kMargin + 0.2, 50.0).x(), -0.15, 1e-3);
    EXPECT_EQ(placeOf(working, kNorthCol, kDiscRow).y(), 0.0);
    EXPECT_EQ(placeOf(working, kSouthCol, kDiscRow).y(), 99.75);
}

TEST(WorkingImageOfPanoramaTest, PositionsEndAtThePolesIfItIsMadeSmaller) {
    const WorkingImage working(noiseImage(3 * kHeight, 3 * kWidth, 1), {kWidth, 0, true});
    EXPECT_EQ(placeOf(working, kNorthCol, kDiscRow).y(), 1.0);
    EXPECT_EQ(placeOf(working, kSouthCol, kDiscRow).y(), 600.0);
}

// All places in the working image that show a place of the panorama.
std::vector<Eigen::Vector2d> copiesOf(const Eigen::Vector2d& place) {
    std::vector<Eigen::Vector2d> copies;
    const double row = place.y() - kFirstRow;
    for (const double turn : {-1.0, 0.0, 1.0}) {
        const double col = place.x() + kMargin + turn * kWidth;
        if (row < 0.0 || row > 109.0 || col < 0.0 || col > kWidth + 2 * kMargin - 1) continue;
        copies.emplace_back(col, row);
    }
    const double longitude = (2.0 * place.x() / kWidth - 1.0) * kPi;
    const double latitude = (place.y() / kHeight - 0.5) * kPi;
    const double radius = kRadius / std::tan(std::abs(latitude));
    if (radius > kDiscRadius - 1.0) return copies;
    const double dx = radius * std::sin(longitude);
    const double dy = radius * std::cos(longitude);
    if (latitude < 0.0) copies.emplace_back(kNorthCol + dx, kDiscRow + dy);
    if (latitude > 0.0) copies.emplace_back(kSouthCol + dx, kDiscRow - dy);
    return copies;
}

TEST(WorkingImageOfPanoramaTest, OneOfEachIsKept) {
    Random random(1);
    WorkingImage same(noiseImage(kHeight, kWidth, 1), {0, 0, true});
    WorkingImage smaller(noiseImage(3 * kHeight, 3 * kWidth, 1), {kWidth, 0, true});
    for (WorkingImage* const working : {&same, &smaller}) {
        std::vector<Keypoint> keypoints;
        std::size_t count = 0;
        while (count < 500) {
            // A third of them close to the seam.
            const double x = static_cast<double>(count % 3 == 0 ? random.uniform(-4.0F, 4.0F)
                                                                : random.uniform(0.0F, 400.0F));
            const auto y = static_cast<double>(random.uniform(0.5F, 199.5F));
            // By rounding, the parts meet within a pixel of the 45 degrees.
            if (std::abs(std::abs(y - 100.0) - 50.0) < 1.0) continue;
            for (const Eigen::Vector2d& copy : copiesOf({std::fmod(x + kWidth, kWidth), y})) {
                Keypoint keypoint = foundAt(*working, copy.x(), copy.y());
                keypoint.response = static_cast<float>(count);
                keypoints.push_back(keypoint);
            }
            ++count;
        }
        EXPECT_GT(keypoints.size(), 1.2 * static_cast<double>(count));
        const std::vector<Keypoint> all = keypoints;
        working->keepOneOfEach(keypoints);
        ASSERT_EQ(keypoints.size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_EQ(keypoints[i].response, static_cast<float>(i));
            // As it was found, not as it lies in the panorama.
            EXPECT_TRUE(std::any_of(all.begin(), all.end(), [&](const Keypoint& keypoint) {
                return bytesOf({keypoint}) == bytesOf({keypoints[i]});
            }));
        }
    }
}

TEST(WorkingImageOfPanoramaTest, WhatShowsNothingIsDropped) {
    WorkingImage working(noiseImage(kHeight, kWidth, 1), {0, 0, true});
    // Between the discs, in a corner, and on the rim of a disc.
    std::vector<Keypoint> keypoints{Keypoint(205, 180), Keypoint(1, 249), Keypoint(3, 180)};
    working.keepOneOfEach(keypoints);
    EXPECT_TRUE(keypoints.empty());
}

TEST(WorkingImageOfPanoramaTest, SmallestPanoramaHasAWorkingImage) {
    const WorkingImage working(rowOf({0.25F, 0.75F}), {0, 0, true});
    EXPECT_EQ(working.scale(), 1.0);
    EXPECT_EQ(working.image().cols(), 2);
    EXPECT_GE(working.image().rows(), 1);
}

}  // namespace
}  // namespace marlo::app
