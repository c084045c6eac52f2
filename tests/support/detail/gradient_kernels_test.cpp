// SPDX-License-Identifier: BSD-3-Clause
#include "support/detail/gradient_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <vector>

#include "utilities/kernel_parameters.h"
#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

using Eigen::Index;

class GradientKernelTest : public test::KernelTest<GradientFunction> {
protected:
    // Magnitudes, then directions, and a guard behind each.
    static std::vector<float> gradientsOf(GradientFunction* kernel, const FloatImage& image,
                                          Index row) {
        const auto count = static_cast<std::size_t>(image.cols());
        std::vector<float> values(2 * count + 2, -77.0F);
        const auto rowAt = [&](Index r) {
            return image.data() + std::clamp<Index>(r, 0, image.rows() - 1) * image.cols();
        };
        kernel({rowAt(row - 1), rowAt(row), rowAt(row + 1), image.cols()}, values.data(),
               values.data() + count + 1);
        EXPECT_EQ(values[count], -77.0F);
        EXPECT_EQ(values[2 * count + 1], -77.0F);
        return values;
    }
};

TEST_P(GradientKernelTest, GivesTheBitsOfThePortableKernel) {
    GradientFunction* portable = gradientKernels().back().run;
    for (Index rows = 1; rows <= 4; ++rows) {
        for (Index cols = 1; cols <= 40; ++cols) {
            const FloatImage image = test::noiseImage(rows, cols, 1);
            for (Index row = 0; row < rows; ++row) {
                const std::vector<float> result = gradientsOf(GetParam().run, image, row);
                const std::vector<float> expected = gradientsOf(portable, image, row);
                EXPECT_EQ(
                    std::memcmp(result.data(), expected.data(), result.size() * sizeof(float)), 0)
                    << "row " << row << " of " << rows << " x " << cols;
            }
        }
    }
}

TEST_P(GradientKernelTest, ExtremeDifferencesGiveTheBitsOfThePortableKernel) {
    GradientFunction* portable = gradientKernels().back().run;
    const float largest = std::numeric_limits<float>::max();
    const std::vector<float> values = {0.0F,
                                       -0.0F,
                                       1.0F,
                                       -1.0F,
                                       largest,
                                       -largest,
                                       std::numeric_limits<float>::denorm_min(),
                                       1e-30F,
                                       std::numeric_limits<float>::infinity(),
                                       -std::numeric_limits<float>::infinity()};
    test::Random random(3);
    for (int i = 0; i < 50; ++i) {
        FloatImage image(3, 33);
        for (Index k = 0; k < image.size(); ++k) {
            const float choice = random.uniform(0.0F, static_cast<float>(values.size()));
            image.data()[k] = values[static_cast<std::size_t>(choice)];
        }
        const std::vector<float> result = gradientsOf(GetParam().run, image, 1);
        const std::vector<float> expected = gradientsOf(portable, image, 1);
        for (std::size_t k = 0; k < result.size(); ++k) {
            // The sign of a NaN has no meaning.
            EXPECT_TRUE(result[k] == expected[k] ||
                        (result[k] != result[k] && expected[k] != expected[k]));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryKernelOfThisBuild, GradientKernelTest,
                         test::everyKernel(gradientKernels()), test::KernelName());

}  // namespace
}  // namespace marlo::detail
