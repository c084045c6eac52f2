// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/detail/orientation_histogram.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>
#include <vector>

#include "references/sift_reference.h"
#include "support/detail/gradient_source.h"
#include "support/gradient.h"
#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

using Eigen::Index;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr float kPi = std::numbers::pi_v<float>;

// The direction in the middle of a bin.
float middleOf(int bin) {
    return static_cast<float>(bin) * 0.17453294F - 3.0543263F;
}

// Gradient images written pixel by pixel, zero elsewhere. A point at (20, 20) with sigma 2 sees
// the pixels within 9 of it.
class OrientationHistogramTest : public testing::Test {
protected:
    static constexpr float kRow = 20.0F;
    static constexpr float kCol = 20.0F;
    static constexpr float kSigma = 2.0F;

    FloatImage magnitude = FloatImage::Zero(41, 41);
    FloatImage orientation = FloatImage::Zero(41, 41);

    void put(Index row, Index col, float m, float direction) {
        magnitude(row, col) = m;
        orientation(row, col) = direction;
    }

    OrientationBins histogram(float row = kRow, float col = kCol, float sigma = kSigma) const {
        OrientationBins bins;
        bins.fill(-77.0F);
        orientationHistogram(GradientSource(magnitude, orientation), row, col, sigma, bins);
        return bins;
    }

    // The bin in which the only sample lies: smoothing keeps it the largest.
    [[nodiscard]] int onlyBin() const {
        const OrientationBins bins = histogram();
        return static_cast<int>(std::max_element(bins.begin(), bins.end()) - bins.begin());
    }

    [[nodiscard]] std::vector<float> angles(float row = kRow, float col = kCol) const {
        OrientationBins bins{};
        const float threshold =
            orientationHistogram(GradientSource(magnitude, orientation), row, col, kSigma, bins);
        std::vector<float> found;
        forEachOrientation(bins, threshold, [&](float angle) { found.push_back(angle); });
        return found;
    }
};

float sum(const OrientationBins& bins) {
    float total = 0.0F;
    for (const float bin : bins) {
        total += bin;
    }
    return total;
}

void expectNear(const OrientationBins& bins, const OrientationBins& expected, float tolerance) {
    for (std::size_t i = 0; i < bins.size(); ++i) {
        EXPECT_NEAR(bins[i], expected[i], tolerance) << "bin " << i;
    }
}

TEST_F(OrientationHistogramTest, EveryDirectionHasItsBin) {
    for (int bin = 0; bin < 36; ++bin) {
        put(20, 20, 1.0F, middleOf(bin));
        EXPECT_EQ(onlyBin(), bin);
        put(20, 20, 1.0F, middleOf(bin) - 0.08F);
        EXPECT_EQ(onlyBin(), bin);
        put(20, 20, 1.0F, middleOf(bin) + 0.08F);
        EXPECT_EQ(onlyBin(), bin);
    }
}

TEST_F(OrientationHistogramTest, BinsBeginAThousandthOfARadianBeforeTheFullTenDegrees) {
    const float boundary = 0.5F * (middleOf(20) + middleOf(21));
    put(20, 20, 1.0F, boundary - 0.0008F);
    EXPECT_EQ(onlyBin(), 21);
    put(20, 20, 1.0F, boundary - 0.0012F);
    EXPECT_EQ(onlyBin(), 20);
}

TEST_F(OrientationHistogramTest, PlusPiCountsInTheLastBinAndMinusPiInTheFirst) {
    put(20, 20, 1.0F, kPi);
    EXPECT_EQ(onlyBin(), 35);
    put(20, 20, 1.0F, -kPi);
    EXPECT_EQ(onlyBin(), 0);
}

TEST_F(OrientationHistogramTest, DirectionsBeyondPiByMoreThanABinAreReportedAndCountInTheFirst) {
    put(20, 20, 1.0F, 3.5F);
    testing::internal::CaptureStderr();
    const int bin = onlyBin();
    (void)std::fflush(stderr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "bin 38\n");
    EXPECT_EQ(bin, 0);
}

TEST_F(OrientationHistogramTest, DirectionsWithinABinBeyondPiCountInTheLastBinSilently) {
    put(20, 20, 1.0F, 3.3F);
    testing::internal::CaptureStderr();
    const int bin = onlyBin();
    (void)std::fflush(stderr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(bin, 35);
}

TEST_F(OrientationHistogramTest, SamplesWeighLessAwayFromThePoint) {
    // Smoothing spreads a sample and, but for the last bin, keeps the sum.
    const auto weightAt = [&](Index row, Index col) {
        magnitude.setZero();
        put(row, col, 2.0F, middleOf(17));
        return sum(histogram());
    };
    EXPECT_NEAR(weightAt(20, 20), 2.0F, 1e-6F);
    EXPECT_NEAR(weightAt(20, 23), 2.0F * std::exp(-9.0F / 18.0F), 1e-6F);
    EXPECT_NEAR(weightAt(15, 24), 2.0F * std::exp(-41.0F / 18.0F), 1e-6F);
}

TEST_F(OrientationHistogramTest, TheWindowIsADiscAroundTheSubPixelPosition) {
    // Radius 9 for sigma 2: squared distances below 81.5.
    const auto sees = [&](Index row, Index col, float pointRow, float pointCol) {
        magnitude.setZero();
        put(row, col, 1.0F, 0.0F);
        return sum(histogram(pointRow, pointCol)) > 0.0F;
    };
    EXPECT_TRUE(sees(29, 20, 20.0F, 20.0F));
    EXPECT_TRUE(sees(11, 20, 20.0F, 20.0F));
    EXPECT_TRUE(sees(20, 29, 20.0F, 20.0F));
    EXPECT_TRUE(sees(24, 28, 20.0F, 20.0F));   // 80
    EXPECT_FALSE(sees(21, 29, 20.0F, 20.0F));  // 82
    EXPECT_FALSE(sees(30, 20, 20.0F, 20.0F));
    EXPECT_TRUE(sees(29, 20, 20.4F, 20.0F));
    EXPECT_FALSE(sees(11, 20, 20.4F, 20.0F));  // 88.4
    // From half a pixel on, the box of the window is that of the next pixel.
    EXPECT_FALSE(sees(12, 11, 20.6F, 20.0F));
    EXPECT_TRUE(sees(29, 20, 20.6F, 20.0F));
    EXPECT_FALSE(sees(30, 20, 20.6F, 20.0F));  // 88.4
}

TEST_F(OrientationHistogramTest, AWindowAtTheBorderLeavesOutTheLastTwoRowsAndColumns) {
    const auto sees = [&](Index row, Index col, float pointRow, float pointCol) {
        magnitude.setZero();
        put(row, col, 1.0F, 0.0F);
        return sum(histogram(pointRow, pointCol)) > 0.0F;
    };
    EXPECT_TRUE(sees(38, 20, 37.0F, 20.0F));
    EXPECT_FALSE(sees(39, 20, 37.0F, 20.0F));
    EXPECT_FALSE(sees(40, 20, 37.0F, 20.0F));
    EXPECT_TRUE(sees(20, 38, 20.0F, 37.0F));
    EXPECT_FALSE(sees(20, 39, 20.0F, 37.0F));
    EXPECT_FALSE(sees(20, 40, 20.0F, 37.0F));
    EXPECT_TRUE(sees(0, 20, 3.0F, 20.0F));
    EXPECT_TRUE(sees(20, 0, 20.0F, 3.0F));
    // Pixels beyond the right border are not those at the beginning of the next row.
    EXPECT_FALSE(sees(21, 0, 20.0F, 37.0F));
}

TEST_F(OrientationHistogramTest, NegativeAndZeroMagnitudesCountNothing) {
    put(20, 20, -1.0F, middleOf(5));
    put(20, 21, 0.0F, middleOf(5));
    EXPECT_THAT(histogram(), testing::Each(0.0F));
    EXPECT_THAT(angles(), IsEmpty());
}

TEST_F(OrientationHistogramTest, ThresholdIsFourFifthsOfTheLargestSmoothedBin) {
    put(20, 20, 3.0F, middleOf(12));
    OrientationBins bins{};
    const float threshold =
        orientationHistogram(GradientSource(magnitude, orientation), kRow, kCol, kSigma, bins);
    EXPECT_EQ(threshold, 0.8F * bins[12]);
}

TEST_F(OrientationHistogramTest, ASecondPeakIsKeptFromFourFifthsOn) {
    // Far apart, so that smoothing treats both alike.
    for (const float share : {0.79F, 0.799F, 0.801F, 0.81F}) {
        put(20, 20, 1.0F, middleOf(8));
        put(21, 20, share / std::exp(-1.0F / 18.0F), middleOf(26));
        if (share < 0.8F) {
            EXPECT_THAT(angles(), ElementsAre(testing::FloatNear(middleOf(8), 1e-5F))) << share;
        } else {
            EXPECT_THAT(angles(), ElementsAre(testing::FloatNear(middleOf(8), 1e-5F),
                                              testing::FloatNear(middleOf(26), 1e-5F)))
                << share;
        }
    }
}

TEST_F(OrientationHistogramTest, APeakExactlyAtTheThresholdIsKept) {
    OrientationBins bins{};
    bins[8] = 1.0F;
    bins[20] = 0.8F * bins[8];
    bins[30] = std::nextafter(bins[20], 0.0F);
    std::vector<float> found;
    forEachOrientation(bins, 0.8F * bins[8], [&](float angle) { found.push_back(angle); });
    EXPECT_THAT(found, ElementsAre(middleOf(8), middleOf(20)));
}

TEST_F(OrientationHistogramTest, PeaksAreStrictlyHigherThanTheirNeighbours) {
    OrientationBins bins{};
    bins[8] = bins[9] = 1.0F;
    std::vector<float> found;
    forEachOrientation(bins, 0.8F, [&](float angle) { found.push_back(angle); });
    EXPECT_THAT(found, IsEmpty());
}

TEST_F(OrientationHistogramTest, PeaksLieBetweenBins) {
    EXPECT_EQ(peakOffset(0.0F, 1.0F, 0.0F), 0.0F);
    EXPECT_EQ(peakOffset(0.0F, 1.0F, 0.5F), 0.5F * 0.5F / 1.5F);
    EXPECT_EQ(peakOffset(0.5F, 1.0F, 0.0F), -0.5F * 0.5F / 1.5F);
    // A negative peak is turned over first.
    EXPECT_EQ(peakOffset(-2.0F, -1.0F, -1.5F), peakOffset(2.0F, 1.0F, 1.5F));
}

TEST_F(OrientationHistogramTest, ASingleEdgeGivesItsNormal) {
    for (const float direction : {-2.9F, -1.3F, 0.2F, 0.5F * kPi, 2.0F, 3.0F}) {
        // A step across the point: a ramp of the distance from the edge, soft over two pixels.
        FloatImage image(41, 41);
        for (Index r = 0; r < 41; ++r) {
            for (Index c = 0; c < 41; ++c) {
                const float distance = std::cos(direction) * (static_cast<float>(c) - 20.0F) -
                                       std::sin(direction) * (static_cast<float>(r) - 20.0F);
                image(r, c) = std::tanh(0.5F * distance);
            }
        }
        gradOriImages(image, magnitude, orientation);
        const std::vector<float> found = angles();
        ASSERT_EQ(found.size(), 1U) << direction;
        EXPECT_NEAR(found[0], direction, 0.5F * 0.17453294F + 1e-5F);
    }
}

TEST_F(OrientationHistogramTest, TwoOppositeDirectionsGiveTwoAngles) {
    for (Index r = 15; r <= 25; ++r) {
        for (Index c = 15; c <= 25; ++c) {
            if (c != 20) {
                put(r, c, 1.0F, c < 20 ? middleOf(7) : middleOf(25));
            }
        }
    }
    const std::vector<float> found = angles();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_NEAR(found[0], middleOf(7), 1e-4F);
    EXPECT_NEAR(found[1], middleOf(25), 1e-4F);
    EXPECT_NEAR(found[1] - found[0], kPi, 1e-4F);
}

TEST_F(OrientationHistogramTest, AnAngleInTheLastBinIsNotWrapped) {
    put(20, 20, 1.0F, middleOf(35));
    put(21, 20, 0.9F, middleOf(0));
    const std::vector<float> found = angles();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_GT(found[0], middleOf(35) + 0.05F);
    EXPECT_LE(found[0], kPi + 1e-5F);
}

TEST_F(OrientationHistogramTest, AFlatWindowHasNoOrientation) {
    EXPECT_THAT(angles(), IsEmpty());
}

TEST_F(OrientationHistogramTest, SmoothingIsExactlySixMeansOfThree) {
    test::Random random(1);
    for (int i = 0; i < 50; ++i) {
        OrientationBins bins{};
        for (float& bin : bins) {
            bin = random.uniform(0.0F, 10.0F);
        }
        reference::OrientationBins expected = bins;
        reference::smooth(expected);
        smoothOrientationBins(bins);
        EXPECT_EQ(bins, expected);
    }
}

TEST_F(OrientationHistogramTest, TheLastBinIsSmoothedWithASlightlySmallerWeight) {
    OrientationBins bins{};
    bins.fill(1.0F);
    smoothOrientationBins(bins);
    EXPECT_EQ(bins[17], std::pow(3.0F * 0.33333334F, 6.0F));
    EXPECT_LT(bins[35], bins[17]);
}

TEST_F(OrientationHistogramTest, AgreesWithTheReference) {
    magnitude = test::noiseImage(41, 41, 2);
    orientation = test::noiseImage(41, 41, 3, -kPi, kPi);
    test::Random random(4);
    for (int i = 0; i < 100; ++i) {
        const float row = random.uniform(2.0F, 38.0F);
        const float col = random.uniform(2.0F, 38.0F);
        const float sigma = random.uniform(1.0F, 6.0F);
        reference::OrientationBins expected =
            reference::rawOrientationHistogram(magnitude, orientation, row, col, sigma);
        reference::smooth(expected);
        const float largest = *std::max_element(expected.begin(), expected.end());
        expectNear(histogram(row, col, sigma), expected, 2e-6F * largest);
    }
}

}  // namespace
}  // namespace marlo::detail
