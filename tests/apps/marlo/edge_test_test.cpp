// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/edge_test.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace marlo::app {
namespace {

constexpr double kScale = 2.0;

FloatImage imageOf(const std::function<double(double x, double y)>& value) {
    FloatImage image(64, 80);
    for (Eigen::Index row = 0; row < image.rows(); ++row) {
        for (Eigen::Index col = 0; col < image.cols(); ++col) {
            image(row, col) =
                static_cast<float>(value(static_cast<double>(col), static_cast<double>(row)));
        }
    }
    return image;
}

// A Gaussian spot at (40.3, 31.6), of standard deviations `along` and `across`, turned.
FloatImage spot(double along, double across, double turn) {
    return imageOf([=](double x, double y) {
        const double u = std::cos(turn) * (x - 40.3) + std::sin(turn) * (y - 31.6);
        const double v = std::cos(turn) * (y - 31.6) - std::sin(turn) * (x - 40.3);
        return std::exp(-0.5 * (u * u / (along * along) + v * v / (across * across)));
    });
}

TEST(EdgeTestTest, ARoundSpotHasEqualCurvatures) {
    EXPECT_NEAR(curvatureRatio(spot(3.0, 3.0, 0.0), 40.3, 31.6, kScale), 1.0, 0.001);
}

TEST(EdgeTestTest, AnOvalSpotHasTheRatioOfItsSquaredAxesAfterBlurring) {
    // Blurred by 2, variances 36 and 4 become 40 and 8: curvatures in their inverse ratio.
    EXPECT_NEAR(curvatureRatio(spot(6.0, 2.0, 0.0), 40.3, 31.6, kScale), 5.0, 0.05);
}

TEST(EdgeTestTest, TheDirectionOfASpotChangesNothing) {
    for (const double turn : {0.3, 0.785, 1.57, 2.5}) {
        EXPECT_NEAR(curvatureRatio(spot(6.0, 2.0, turn), 40.3, 31.6, kScale), 5.0, 0.05) << turn;
    }
}

TEST(EdgeTestTest, ADarkSpotIsAsGoodAsABrightOne) {
    const FloatImage dark = (1.0F - spot(6.0, 2.0, 0.3).array()).matrix();
    EXPECT_NEAR(curvatureRatio(dark, 40.3, 31.6, kScale), 5.0, 0.05);
}

TEST(EdgeTestTest, ABarIsAnEdge) {
    const FloatImage bar =
        imageOf([](double x, double) { return std::exp(-0.5 * (x - 40.0) * (x - 40.0) / 4.0); });
    EXPECT_GT(curvatureRatio(bar, 40.0, 30.0, kScale), 1000.0);
}

TEST(EdgeTestTest, ASaddleIsWorseThanAnyEdge) {
    const FloatImage saddle = imageOf([](double x, double y) {
        return 0.001 * ((x - 40.0) * (x - 40.0) - (y - 30.0) * (y - 30.0));
    });
    EXPECT_TRUE(std::isinf(curvatureRatio(saddle, 40.0, 30.0, kScale)));
}

TEST(EdgeTestTest, PlacesBeyondTheImageAreThoseOfItsSides) {
    const FloatImage image = spot(6.0, 2.0, 0.3);
    for (const double x : {-50.0, 0.0, 79.0, 200.0}) {
        EXPECT_GE(curvatureRatio(image, x, -3.0, 20.0), 1.0) << x;
    }
    EXPECT_GE(curvatureRatio(FloatImage::Constant(1, 1, 0.5F), 0.0, 0.0, kScale), 1.0);
}

TEST(EdgeTestTest, KeypointsAboveTheRatioGoAndOthersStayInTheirOrder) {
    const FloatImage image = imageOf([](double x, double y) {
        const double round = std::exp(-0.5 * ((x - 20) * (x - 20) + (y - 30) * (y - 30)) / 4);
        const double oval = std::exp(-0.5 * ((x - 55) * (x - 55) / 36 + (y - 30) * (y - 30) / 4));
        return round + oval;
    });
    // An image scale of 0.5: positions and sizes of the original are twice as large.
    const Keypoint round(40.0F, 60.0F, 4.0F, 0.0F, 2.0F, 0, 1);
    const Keypoint oval(110.0F, 60.0F, 4.0F, 0.0F, 3.0F, 0, 1);
    Keypoint turned = round;
    turned.angle = 1.0F;
    std::vector<Keypoint> strict{round, oval, turned};
    removeEdges(image, 0.5, 4.0, strict);
    ASSERT_EQ(strict.size(), 2U);
    EXPECT_EQ(strict[0].angle, 0.0F);
    EXPECT_EQ(strict[1].angle, 1.0F);
    std::vector<Keypoint> lax{round, oval, turned};
    removeEdges(image, 0.5, 6.0, lax);
    EXPECT_EQ(lax.size(), 3U);
}

}  // namespace
}  // namespace marlo::app
