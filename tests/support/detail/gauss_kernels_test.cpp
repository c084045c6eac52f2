// SPDX-License-Identifier: BSD-3-Clause
#include "support/detail/gauss_kernels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <vector>

#include "utilities/kernel_parameters.h"
#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

using Eigen::Index;

TEST(GaussWeightsTest, ReachFourSigmaAndSumToOne) {
    for (const double sigma : {0.2, 1.0, 1.5198685, 7.3}) {
        const GaussWeights weights(sigma, 1000);
        EXPECT_EQ(weights.radius(), std::ceil(4.0 * sigma));
        double sum = static_cast<double>(weights.data()[0]);
        for (int k = 1; k <= weights.radius(); ++k) {
            sum += 2.0 * static_cast<double>(weights.data()[k]);
            EXPECT_NEAR(
                weights.data()[k],
                static_cast<double>(weights.data()[0]) * std::exp(-0.5 * (k / sigma) * (k / sigma)),
                1e-7);
        }
        EXPECT_NEAR(sum, 1.0, 1e-6);
    }
}

TEST(GaussWeightsTest, AreFoldedOntoOnePeriodOfAShortLine) {
    for (const int length : {1, 2, 5}) {
        for (const double sigma : {0.7, 3.0, 19.0, 21.0, 1e9}) {
            const GaussWeights weights(sigma, length);
            EXPECT_LE(weights.radius(), length) << sigma;
            double sum = static_cast<double>(weights.data()[0]);
            for (int k = 1; k <= weights.radius(); ++k) {
                sum += 2.0 * static_cast<double>(weights.data()[k]);
            }
            EXPECT_NEAR(sum, 1.0, 1e-6) << sigma;
        }
    }
}

TEST(MirroredTest, RepeatsTheEdgeAndGoesBack) {
    const std::vector<int> line = {2, 1, 0, 0, 1, 2, 2, 1, 0, 0, 1, 2, 2};
    for (int i = 0; i < static_cast<int>(line.size()); ++i) {
        EXPECT_EQ(mirrored(i - 9 + 3, 3), line[static_cast<std::size_t>(i + 3) % 6]) << i;
    }
    for (int i = -5; i <= 5; ++i) {
        EXPECT_EQ(mirrored(i, 1), 0);
    }
}

class BlurKernelTest : public test::KernelTest<BlurFunction> {
protected:
    // The first rows of an image, blurred by one call.
    static FloatImage blurredBlock(BlurFunction* kernel, const FloatImage& image, int rows,
                                   const GaussWeights& rowWeights, const GaussWeights& colWeights,
                                   bool inPlace) {
        FloatImage input = image;
        FloatImage output(rows, image.cols());
        std::vector<const float*> in;
        for (int r = -rowWeights.radius(); r < rows + rowWeights.radius(); ++r) {
            in.push_back(&input(mirrored(r, static_cast<int>(image.rows())), 0));
        }
        std::vector<float*> out;
        for (int r = 0; r < rows; ++r) {
            out.push_back(inPlace ? &input(r, 0) : &output(r, 0));
        }
        const int cols = static_cast<int>(image.cols());
        std::vector<float> scratch(blurScratchSize(rows, cols, colWeights));
        kernel({in.data(), out.data(), rows, cols, &rowWeights, &colWeights, scratch.data()});
        return inPlace ? FloatImage(input.topRows(rows)) : output;
    }
};

TEST_P(BlurKernelTest, GivesTheBitsOfThePortableKernel) {
    BlurFunction* portable = blurKernels().back().run;
    // Every vector width meets its ragged end, and the seams between strips.
    std::vector<int> widths = {127, 128, 129, 160, 300};
    for (int cols = 1; cols <= 70; ++cols) {
        widths.push_back(cols);
    }
    for (const int cols : widths) {
        const FloatImage image = test::noiseImage(9, cols, 1);
        for (const double sigma : {0.3, 1.5198685, 3.1}) {
            const GaussWeights rowWeights(sigma, 9);
            const GaussWeights colWeights(sigma, cols);
            for (const int rows : {1, 8}) {
                const FloatImage expected =
                    blurredBlock(portable, image, rows, rowWeights, colWeights, false);
                EXPECT_TRUE(test::sameBits(
                    blurredBlock(GetParam().run, image, rows, rowWeights, colWeights, false),
                    expected))
                    << cols << " columns, sigma " << sigma;
                EXPECT_TRUE(test::sameBits(
                    blurredBlock(GetParam().run, image, rows, rowWeights, colWeights, true),
                    expected))
                    << cols << " columns, sigma " << sigma << ", in place";
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryKernelOfThisBuild, BlurKernelTest, test::everyKernel(blurKernels()),
                         test::KernelName());

}  // namespace
}  // namespace marlo::detail
