// SPDX-License-Identifier: BSD-3-Clause
#include "support/gauss_filter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "references/sift_reference.h"
#include "support/image.h"
#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using Eigen::Index;
using test::noiseImage;
using test::sameBits;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

const std::vector<std::pair<int, int>> kSizes = {
    {1, 1}, {1, 7}, {7, 1}, {2, 3}, {11, 11}, {12, 12}, {13, 13}, {1000, 3}, {3, 1000}, {37, 61}};
const std::vector<double> kSigmas = {0.3, 1.2263, 1.5198685, 3.1, 20.0};

FloatImage blurred(FloatImage image, double sigma) {
    conv_in_place(image.data(), static_cast<int>(image.rows()), static_cast<int>(image.cols()),
                  sigma);
    return image;
}

float largestDifference(const FloatImage& a, const FloatImage& b) {
    return (a - b).cwiseAbs().maxCoeff();
}

std::string named(int rows, int cols, double sigma) {
    return std::to_string(rows) + " x " + std::to_string(cols) + ", sigma " + std::to_string(sigma);
}

TEST(GaussFilterTest, AgreesWithTheExactConvolution) {
    for (const auto& [rows, cols] : kSizes) {
        const FloatImage image = noiseImage(rows, cols, 1);
        for (const double sigma : kSigmas) {
            EXPECT_LT(largestDifference(blurred(image, sigma),
                                        reference::exactGaussianBlur(image, sigma)),
                      1e-5F)
                << named(rows, cols, sigma);
        }
    }
}

TEST(GaussFilterTest, SigmaOfZeroChangesNothing) {
    const FloatImage image = noiseImage(13, 17, 2);
    EXPECT_TRUE(sameBits(blurred(image, 0.0), image));
    EXPECT_TRUE(sameBits(blurred(image, -0.0), image));
}

TEST(GaussFilterTest, VerySmallSigmasChangeNothing) {
    const FloatImage image = noiseImage(13, 17, 2);
    for (const double sigma : {std::numeric_limits<double>::denorm_min(), 1e-300, 1e-20, 0.01}) {
        EXPECT_TRUE(sameBits(blurred(image, sigma), image)) << sigma;
    }
}

TEST(GaussFilterTest, ConstantImagesStayConstant) {
    const test::NumberOfThreads one(1);  // many small images
    for (const auto& [rows, cols] : kSizes) {
        for (const double sigma : kSigmas) {
            for (const float value : {0.0F, 0.7F, 1.0F, -0.3F}) {
                const FloatImage result = blurred(FloatImage::Constant(rows, cols, value), sigma);
                EXPECT_EQ(result.minCoeff(), result.maxCoeff()) << named(rows, cols, sigma);
                EXPECT_NEAR(result(0, 0), value, 1e-6F) << named(rows, cols, sigma);
            }
        }
    }
}

TEST(GaussFilterTest, SigmasLargeAgainstTheImageGiveItsMean) {
    for (const auto& [rows, cols] : {std::pair(1, 1), std::pair(1, 9), std::pair(24, 10)}) {
        const FloatImage image = noiseImage(rows, cols, 3);
        const double mean = image.cast<double>().mean();
        for (const double sigma : {1e3, 1e9, 1e300, std::numeric_limits<double>::max()}) {
            const FloatImage result = blurred(image, sigma);
            EXPECT_NEAR(result.minCoeff(), mean, 1e-5) << named(rows, cols, sigma);
            EXPECT_NEAR(result.maxCoeff(), mean, 1e-5) << named(rows, cols, sigma);
        }
    }
}

TEST(GaussFilterTest, AnyNumberOfThreadsGivesTheSameBits) {
    for (const auto& [rows, cols] : {std::pair(101, 67), std::pair(1000, 3), std::pair(5, 300)}) {
        const FloatImage image = noiseImage(rows, cols, 4);
        for (const double sigma : {0.3, 1.5198685, 3.1, 20.0}) {
            const test::NumberOfThreads one(1);
            const FloatImage byOne = blurred(image, sigma);
            for (const int threads : {2, 3, 7}) {
                const test::NumberOfThreads several(threads);
                EXPECT_TRUE(sameBits(blurred(image, sigma), byOne))
                    << named(rows, cols, sigma) << ", threads " << threads;
            }
        }
    }
}

TEST(GaussFilterTest, BadPixelsSpreadNoFurtherThanTheKernel) {
    const FloatImage image = noiseImage(41, 43, 5);
    for (const double sigma : {0.3, 1.5198685, 3.1}) {
        const FloatImage clean = blurred(image, sigma);
        const auto reach = static_cast<Index>(std::ceil(4.0 * sigma));
        for (const double bad : {kNaN, kInfinity, -kInfinity}) {
            FloatImage withBadPixel = image;
            withBadPixel(20, 21) = static_cast<float>(bad);
            const FloatImage result = blurred(withBadPixel, sigma);
            EXPECT_FALSE(std::isfinite(result(20, 21)));
            for (Index r = 0; r < image.rows(); ++r) {
                for (Index c = 0; c < image.cols(); ++c) {
                    if (std::abs(r - 20) > reach || std::abs(c - 21) > reach) {
                        EXPECT_EQ(result(r, c), clean(r, c)) << r << ", " << c;
                    }
                }
            }
        }
    }
}

TEST(GaussFilterTest, AnImpulseGivesTheKernel) {
    for (const double sigma : {0.3, 1.2263, 3.1}) {
        FloatImage impulse = FloatImage::Zero(41, 41);
        impulse(20, 20) = 1.0F;
        const FloatImage kernel = blurred(impulse, sigma);
        EXPECT_LT(largestDifference(kernel, kernel.transpose()), 1e-7F);
        EXPECT_LT(largestDifference(kernel, kernel.rowwise().reverse()), 1e-7F);
        EXPECT_LT(largestDifference(kernel, kernel.colwise().reverse()), 1e-7F);
        EXPECT_NEAR(kernel.cast<double>().sum(), 1.0, 1e-6);
        // Separable: every value is the product of those on the axes.
        for (Index r = 0; r < 41; ++r) {
            for (Index c = 0; c < 41; ++c) {
                EXPECT_NEAR(kernel(r, c), kernel(r, 20) * kernel(20, c) / kernel(20, 20), 1e-7F);
            }
        }
        // And a Gaussian out to four sigma.
        const auto radius = static_cast<Index>(std::ceil(4.0 * sigma));
        for (Index i = 0; i <= 20; ++i) {
            const double x = static_cast<double>(i) / sigma;
            const double expected =
                i <= radius ? static_cast<double>(kernel(20, 20)) * std::exp(-0.5 * x * x) : 0.0;
            EXPECT_NEAR(kernel(20, 20 + i), expected, 1e-7) << sigma << " at " << i;
        }
        EXPECT_GT(kernel(20, 20 + radius), 0.0F);
    }
}

TEST(GaussFilterTest, BlursOneImageAfterAnotherAlike) {
    const FloatImage image = noiseImage(37, 61, 6);
    const FloatImage first = blurred(image, 3.1);
    (void)blurred(noiseImage(61, 37, 7), 20.0);
    EXPECT_TRUE(sameBits(blurred(image, 3.1), first));
}

TEST(GaussFilterTest, DoesNothingForAnImageWithoutPixels) {
    EXPECT_NO_THROW(conv_in_place(nullptr, 0, 0, 1.5));
    EXPECT_NO_THROW(conv_in_place(nullptr, 0, 7, 1.5));
    EXPECT_NO_THROW(conv_in_place(nullptr, 7, 0, 1.5));
}

// What conv_in_place() says to these arguments; the image must be as before.
std::string refusal(int rows, int cols, double sigma) {
    const FloatImage image = noiseImage(3, 3, 8);
    FloatImage touched = image;
    std::string message = "nothing thrown";
    try {
        conv_in_place(touched.data(), rows, cols, sigma);
    } catch (const std::invalid_argument& error) {
        message = error.what();
    }
    EXPECT_TRUE(sameBits(touched, image));
    return message;
}

TEST(GaussFilterTest, RefusesMoreRowsOrColumnsThanItCanCount) {
    float pixel = 0.5F;
    EXPECT_THROW(conv_in_place(&pixel, (1 << 28) + 1, 0, 1.0), std::invalid_argument);
    EXPECT_THROW(conv_in_place(&pixel, 0, (1 << 28) + 1, 1.0), std::invalid_argument);
    EXPECT_NO_THROW(conv_in_place(&pixel, 1 << 28, 0, 1.0));
    EXPECT_EQ(pixel, 0.5F);
}

TEST(GaussFilterTest, RefusesNegativeSizes) {
    constexpr auto kNegativeSize = "An image to blur cannot have a negative size.";
    EXPECT_EQ(refusal(-1, 3, 1.0), kNegativeSize);
    EXPECT_EQ(refusal(3, -1, 1.0), kNegativeSize);
    EXPECT_EQ(refusal(std::numeric_limits<int>::min(), 0, 1.0), kNegativeSize);
}

TEST(GaussFilterTest, RefusesSigmasThatAreNotFiniteOrNegative) {
    constexpr auto kBadSigma = "The sigma of a blur must be finite and not negative.";
    for (const double sigma : {-1.0, -1e-300, -kInfinity, kInfinity, kNaN}) {
        EXPECT_EQ(refusal(3, 3, sigma), kBadSigma) << sigma;
    }
}

}  // namespace
}  // namespace marlo
