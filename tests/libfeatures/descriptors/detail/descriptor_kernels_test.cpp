// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/detail/descriptor_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <numbers>
#include <vector>

#include "utilities/kernel_parameters.h"
#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

using Eigen::Index;

constexpr float kPi = std::numbers::pi_v<float>;

using Values = std::array<float, kDescriptorSize>;

Values valuesOf(DescriptorFunction* kernel, const GradientSource& gradients,
                const DescriptorWindow& window) {
    alignas(32) Values values;
    values.fill(-77.0F);
    kernel(gradients, window, values.data());
    return values;
}

bool sameBits(const Values& a, const Values& b) {
    return std::memcmp(a.data(), b.data(), sizeof a) == 0;
}

// Windows anywhere in an image of 60 x 70 pixels, of cells of 1 to 12 pixels, cut to the image.
std::vector<DescriptorWindow> randomWindows() {
    test::Random random(1);
    std::vector<DescriptorWindow> windows;
    for (int i = 0; i < 200; ++i) {
        const float cell = random.uniform(1.0F, 12.0F);
        const auto radius = static_cast<std::ptrdiff_t>(3.6F * cell);
        DescriptorWindow window;
        window.angle = random.uniform(-kPi, kPi);
        window.centreRow = static_cast<std::ptrdiff_t>(random.uniform(0.0F, 60.0F));
        window.centreCol = static_cast<std::ptrdiff_t>(random.uniform(0.0F, 70.0F));
        window.firstRow = std::max(-radius, -window.centreRow);
        window.lastRow = std::min(radius, 59 - window.centreRow);
        window.firstCol = std::max(-radius, -window.centreCol);
        window.lastCol = std::min(radius, 69 - window.centreCol);
        window.cosScaled = std::cos(window.angle) / cell;
        window.sinScaled = std::sin(window.angle) / cell;
        window.rowShift = random.uniform(-0.5F, 0.5F) / cell;
        window.colShift = random.uniform(-0.5F, 0.5F) / cell;
        window.turnsDown = 1;
        window.turnsUp = 1;
        windows.push_back(window);
    }
    return windows;
}

class DescriptorKernelTest : public test::KernelTest<DescriptorFunction> {
protected:
    FloatImage magnitude = test::noiseImage(60, 70, 2);
    FloatImage orientation = test::noiseImage(60, 70, 3, -kPi, kPi);
    const std::vector<DescriptorWindow> windows = randomWindows();
};

TEST_P(DescriptorKernelTest, GivesTheBitsOfThePortableKernel) {
    DescriptorFunction* portable = descriptorKernels().back().run;
    const GradientSource gradients(magnitude, orientation);
    for (const DescriptorWindow& window : windows) {
        const Values values = valuesOf(GetParam().run, gradients, window);
        EXPECT_GT(*std::max_element(values.begin(), values.end()), 0.0F);
        EXPECT_TRUE(sameBits(values, valuesOf(portable, gradients, window)));
    }
}

TEST_P(DescriptorKernelTest, AnEmptyWindowGivesNaN) {
    const Values values =
        valuesOf(GetParam().run, GradientSource(magnitude, orientation), DescriptorWindow());
    EXPECT_TRUE(std::all_of(values.begin(), values.end(), [](float v) { return std::isnan(v); }));
}

INSTANTIATE_TEST_SUITE_P(EveryKernelOfThisBuild, DescriptorKernelTest,
                         test::everyKernel(descriptorKernels()), test::KernelName());

}  // namespace
}  // namespace marlo::detail
