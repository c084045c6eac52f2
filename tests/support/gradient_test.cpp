// SPDX-License-Identifier: BSD-3-Clause
#include "support/gradient.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "references/sift_reference.h"
#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using Eigen::Index;
using test::noiseImage;
using test::sameBits;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kPi = std::numbers::pi_v<float>;

const std::vector<std::pair<int, int>> kSizes = {{1, 1},    {1, 7},    {7, 1},   {2, 3},
                                                 {3, 2},    {11, 11},  {12, 12}, {13, 13},
                                                 {1000, 3}, {3, 1000}, {37, 61}};

struct Gradients {
    FloatImage magnitude;
    FloatImage orientation;
};

// The outputs hold rubbish before the call, so that a pixel left out is noticed.
Gradients gradientsOf(const FloatImage& image) {
    Gradients result{FloatImage::Constant(image.rows(), image.cols(), -77.0F),
                     FloatImage::Constant(image.rows(), image.cols(), -77.0F)};
    gradOriImages(image, result.magnitude, result.orientation);
    return result;
}

// The gradient at the centre of a 3 x 3 image with these differences (not halved).
reference::Gradient gradientOf(float right, float left, float above, float below) {
    const test::NumberOfThreads one(1);
    FloatImage image = FloatImage::Zero(3, 3);
    image(1, 2) = right;
    image(1, 0) = left;
    image(0, 1) = above;
    image(2, 1) = below;
    const Gradients result = gradientsOf(image);
    return {result.magnitude(1, 1), result.orientation(1, 1)};
}

TEST(GradientTest, AgreesWithTheReference) {
    for (const auto& [rows, cols] : kSizes) {
        const FloatImage image = noiseImage(rows, cols, 1);
        const Gradients result = gradientsOf(image);
        for (Index r = 0; r < rows; ++r) {
            for (Index c = 0; c < cols; ++c) {
                const reference::Gradient expected = reference::gradient(image, r, c);
                EXPECT_NEAR(result.magnitude(r, c), expected.magnitude, 1e-6F)
                    << r << ", " << c << " of " << rows << " x " << cols;
                EXPECT_NEAR(result.orientation(r, c), expected.orientation, 1e-6F)
                    << r << ", " << c << " of " << rows << " x " << cols;
            }
        }
    }
}

TEST(GradientTest, DirectionsGrowCounterClockwiseAsDisplayed) {
    struct Case {
        float right, above, direction;
    };
    const std::vector<Case> cases = {
        {1, 0, 0.0F}, {1, 1, 0.25F * kPi},    {0, 1, 0.5F * kPi},   {-1, 1, 0.75F * kPi},
        {-1, 0, kPi}, {-1, -1, -0.75F * kPi}, {0, -1, -0.5F * kPi}, {1, -1, -0.25F * kPi}};
    for (const Case& c : cases) {
        const reference::Gradient result = gradientOf(c.right, -c.right, c.above, -c.above);
        EXPECT_NEAR(result.orientation, c.direction, 3e-7F) << c.right << ", " << c.above;
        EXPECT_FLOAT_EQ(result.magnitude, std::hypot(c.right, c.above));
    }
    // The four along the axes exactly.
    EXPECT_EQ(gradientOf(1, -1, 0, 0).orientation, 0.0F);
    EXPECT_EQ(gradientOf(0, 0, 1, -1).orientation, 0.5F * kPi);
    EXPECT_EQ(gradientOf(-1, 1, 0, 0).orientation, kPi);
    EXPECT_EQ(gradientOf(0, 0, -1, 1).orientation, -0.5F * kPi);
}

TEST(GradientTest, TheSignOfAZeroDifferenceMeansNothing) {
    // Above minus below is +0 and -0 here.
    for (const float above : {0.0F, -0.0F}) {
        for (const float below : {0.0F, -0.0F}) {
            EXPECT_EQ(gradientOf(-1, 1, above, below).orientation, kPi);
            const float ahead = gradientOf(1, -1, above, below).orientation;
            EXPECT_EQ(ahead, 0.0F);
            for (const float right : {0.0F, -0.0F}) {
                const reference::Gradient none = gradientOf(right, 0.0F, above, below);
                EXPECT_EQ(none.orientation, 0.0F);
                EXPECT_EQ(none.magnitude, 0.0F);
            }
        }
    }
}

TEST(GradientTest, PlanesHaveOneGradientUpToTheHalvingAtBorders) {
    // Central differences see the slope of two pixels, halved; one-sided ones that of one.
    FloatImage image(9, 11);
    for (Index r = 0; r < 9; ++r) {
        for (Index c = 0; c < 11; ++c) {
            image(r, c) = 3.0F * static_cast<float>(c) - 4.0F * static_cast<float>(r);
        }
    }
    const Gradients result = gradientsOf(image);
    for (Index i = 0; i < image.size(); ++i) {
        EXPECT_EQ(result.magnitude.data()[i], 5.0F);
        EXPECT_NEAR(result.orientation.data()[i], std::atan2(4.0F, 3.0F), 3e-7F);
    }
}

TEST(GradientTest, BordersUseTheirOnlyNeighbour) {
    FloatImage image = FloatImage::Zero(3, 3);
    image(0, 0) = 1.0F;
    const Gradients result = gradientsOf(image);
    EXPECT_EQ(result.magnitude(0, 0), std::sqrt(2.0F));
    EXPECT_NEAR(result.orientation(0, 0), 0.75F * kPi, 3e-7F);
    EXPECT_EQ(result.magnitude(0, 1), 0.5F);
    EXPECT_EQ(result.orientation(0, 1), kPi);
    EXPECT_EQ(result.magnitude(1, 0), 0.5F);
    EXPECT_EQ(result.orientation(1, 0), 0.5F * kPi);
    EXPECT_EQ(result.magnitude(1, 1), 0.0F);
}

TEST(GradientTest, ASideOfOnePixelHasNoSlope) {
    const Gradients single = gradientsOf(FloatImage::Constant(1, 1, 5.0F));
    EXPECT_EQ(single.magnitude(0, 0), 0.0F);
    EXPECT_EQ(single.orientation(0, 0), 0.0F);

    FloatImage line(1, 3);
    line << 0.0F, 1.0F, 4.0F;
    const Gradients row = gradientsOf(line);
    EXPECT_EQ(row.magnitude(0, 0), 1.0F);
    EXPECT_EQ(row.magnitude(0, 1), 2.0F);
    EXPECT_EQ(row.magnitude(0, 2), 3.0F);
    EXPECT_TRUE((row.orientation.array() == 0.0F).all());

    const Gradients column = gradientsOf(line.transpose());
    EXPECT_EQ(column.magnitude(1, 0), 2.0F);
    EXPECT_TRUE((column.orientation.array() == -0.5F * kPi).all());
}

TEST(GradientTest, DirectionsAreAccurateFromTinyToHugeGradients) {
    constexpr Index kCount = 2000;
    test::Random random(2);
    for (const float size : {1e-18F, 1e-12F, 1.0F, 1e12F, 1e18F}) {
        // Three rows; every third column is the middle of a gradient of its own.
        FloatImage image = FloatImage::Zero(3, 3 * kCount);
        std::vector<std::pair<float, float>> differences;
        for (Index i = 0; i < kCount; ++i) {
            // Also differences of very different size in the two directions.
            const float unequal = std::pow(10.0F, random.uniform(-4.0F, 0.0F));
            const float dx = size * random.uniform(-1.0F, 1.0F) * (i % 2 == 0 ? unequal : 1.0F);
            const float dy = size * random.uniform(-1.0F, 1.0F) * (i % 2 == 1 ? unequal : 1.0F);
            differences.emplace_back(dx, dy);
            image(1, 3 * i) = -dx;
            image(1, 3 * i + 2) = dx;
            image(0, 3 * i + 1) = dy;
            image(2, 3 * i + 1) = -dy;
        }
        const Gradients result = gradientsOf(image);
        for (Index i = 0; i < kCount; ++i) {
            const auto dx = static_cast<double>(differences[static_cast<std::size_t>(i)].first);
            const auto dy = static_cast<double>(differences[static_cast<std::size_t>(i)].second);
            const float direction = result.orientation(1, 3 * i + 1);
            ASSERT_NEAR(direction, std::atan2(dy, dx), 1e-6) << dx << ", " << dy;
            ASSERT_LE(std::abs(direction), kPi);
            const double length = std::hypot(dx, dy);
            // 4e-23: the square root of the smallest float.
            ASSERT_NEAR(result.magnitude(1, 3 * i + 1), length, 1e-6 * length + 4e-23)
                << dx << ", " << dy;
        }
    }
}

TEST(GradientTest, BadPixelsReachTheirNeighboursOnly) {
    const FloatImage image = noiseImage(19, 23, 3);
    const Gradients clean = gradientsOf(image);
    for (const float bad : {kNaN, kInfinity, -kInfinity}) {
        FloatImage withBadPixel = image;
        withBadPixel(9, 10) = bad;
        const Gradients result = gradientsOf(withBadPixel);
        for (Index r = 0; r < image.rows(); ++r) {
            for (Index c = 0; c < image.cols(); ++c) {
                if (std::abs(r - 9) + std::abs(c - 10) == 1) {
                    EXPECT_FALSE(std::isfinite(result.magnitude(r, c)));
                    if (std::isnan(bad)) {
                        EXPECT_TRUE(std::isnan(result.magnitude(r, c)));
                        EXPECT_TRUE(std::isnan(result.orientation(r, c)));
                    }
                } else {
                    EXPECT_EQ(result.magnitude(r, c), clean.magnitude(r, c)) << r << ", " << c;
                    EXPECT_EQ(result.orientation(r, c), clean.orientation(r, c)) << r << ", " << c;
                }
            }
        }
    }
}

TEST(GradientTest, AnyNumberOfThreadsGivesTheSameBits) {
    for (const auto& [rows, cols] : {std::pair(101, 67), std::pair(1000, 3), std::pair(3, 1000)}) {
        const FloatImage image = noiseImage(rows, cols, 4);
        const test::NumberOfThreads one(1);
        const Gradients byOne = gradientsOf(image);
        for (const int threads : {2, 3, 7}) {
            const test::NumberOfThreads several(threads);
            const Gradients bySeveral = gradientsOf(image);
            EXPECT_TRUE(sameBits(bySeveral.magnitude, byOne.magnitude)) << threads;
            EXPECT_TRUE(sameBits(bySeveral.orientation, byOne.orientation)) << threads;
        }
    }
}

TEST(GradientTest, NothingDependsOnWhereAPixelLiesInItsRow) {
    // Rows of every width up to 40 begin with the same pixels.
    const test::NumberOfThreads one(1);
    const FloatImage image = noiseImage(5, 40, 5);
    const Gradients whole = gradientsOf(image);
    for (Index cols = 2; cols <= 40; ++cols) {
        const Gradients part = gradientsOf(image.leftCols(cols));
        EXPECT_TRUE(
            sameBits(part.magnitude.leftCols(cols - 1), whole.magnitude.leftCols(cols - 1)));
        EXPECT_TRUE(
            sameBits(part.orientation.leftCols(cols - 1), whole.orientation.leftCols(cols - 1)));
    }
}

TEST(GradientTest, AnEmptyImageHasNoGradients) {
    EXPECT_EQ(gradientsOf(FloatImage(0, 0)).magnitude.size(), 0);
    EXPECT_EQ(gradientsOf(FloatImage(0, 5)).magnitude.cols(), 5);
    EXPECT_EQ(gradientsOf(FloatImage(5, 0)).magnitude.rows(), 5);
}

TEST(GradientTest, RefusesOutputsOfAnotherSize) {
    const FloatImage image = noiseImage(4, 6, 6);
    const std::vector<std::pair<Index, Index>> wrong = {{4, 5}, {5, 6}, {6, 4}, {3, 8}, {0, 0}};
    for (const auto& [rows, cols] : wrong) {
        for (const bool magnitudeIsWrong : {true, false}) {
            const FloatImage right = FloatImage::Constant(4, 6, -77.0F);
            const FloatImage other = FloatImage::Constant(rows, cols, -77.0F);
            FloatImage magnitude = magnitudeIsWrong ? other : right;
            FloatImage orientation = magnitudeIsWrong ? right : other;
            std::string message = "nothing thrown";
            try {
                gradOriImages(image, magnitude, orientation);
            } catch (const std::invalid_argument& error) {
                message = error.what();
            }
            EXPECT_EQ(message, "Gradient images must have the size of their source.");
            EXPECT_TRUE(sameBits(magnitude, magnitudeIsWrong ? other : right));
            EXPECT_TRUE(sameBits(orientation, magnitudeIsWrong ? right : other));
        }
    }
}

}  // namespace
}  // namespace marlo
