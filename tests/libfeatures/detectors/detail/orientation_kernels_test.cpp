// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/detail/orientation_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <numbers>
#include <vector>

#include "utilities/kernel_parameters.h"
#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

constexpr float kPi = std::numbers::pi_v<float>;

using Bins = std::array<float, kOrientationBins>;

Bins binsOf(OrientationFunction* kernel, const GradientSource& gradients,
            const OrientationWindow& window) {
    Bins bins;
    bins.fill(-77.0F);
    kernel(gradients, window, bins.data());
    return bins;
}

bool sameBits(const Bins& a, const Bins& b) {
    return std::memcmp(a.data(), b.data(), sizeof a) == 0;
}

// Windows anywhere in images of 41 x 90 pixels, of a few pixels to all of the image.
std::vector<OrientationWindow> randomWindows() {
    test::Random random(1);
    std::vector<OrientationWindow> windows;
    for (int i = 0; i < 300; ++i) {
        const float radius = std::floor(random.uniform(1.0F, i % 10 == 0 ? 60.0F : 12.0F));
        OrientationWindow window;
        window.row = random.uniform(0.0F, 38.0F);
        window.col = random.uniform(0.0F, 87.0F);
        window.weightFactor = -4.5F / (radius * radius);
        window.squaredRadius = radius * radius + 0.5F;
        const auto first = [&](float centre) {
            return static_cast<std::ptrdiff_t>(std::max(std::floor(centre + 0.5F) - radius, 0.0F));
        };
        const auto end = [&](float centre, float count) {
            return static_cast<std::ptrdiff_t>(
                std::min(std::floor(centre + 0.5F) + radius + 1.0F, count));
        };
        window.beginRow = first(window.row);
        window.endRow = end(window.row, 39.0F);
        window.beginCol = first(window.col);
        window.endCol = end(window.col, 88.0F);
        windows.push_back(window);
    }
    return windows;
}

class OrientationKernelTest : public test::KernelTest<OrientationFunction> {
protected:
    FloatImage magnitude = test::noiseImage(41, 90, 2, -0.2F, 1.0F);
    FloatImage orientation = test::noiseImage(41, 90, 3, -kPi, kPi);
    const std::vector<OrientationWindow> windows = randomWindows();
};

TEST_P(OrientationKernelTest, GivesTheBitsOfThePortableKernel) {
    OrientationFunction* portable = orientationKernels().back().run;
    const GradientSource gradients(magnitude, orientation);
    for (const OrientationWindow& window : windows) {
        const Bins bins = binsOf(GetParam().run, gradients, window);
        EXPECT_GT(*std::max_element(bins.begin(), bins.end()), 0.0F);
        EXPECT_TRUE(sameBits(bins, binsOf(portable, gradients, window)));
    }
}

TEST_P(OrientationKernelTest, WildDirectionsCountInTheFirstBin) {
    magnitude.setZero();
    const GradientSource gradients(magnitude, orientation);
    OrientationWindow window;
    window.row = window.col = 20.0F;
    window.weightFactor = -0.1F;
    window.squaredRadius = 25.5F;
    window.beginRow = window.beginCol = 15;
    window.endRow = window.endCol = 26;
    magnitude(20, 20) = 1.0F;
    const float infinity = std::numeric_limits<float>::infinity();
    for (const float direction : {infinity, 1e30F, 1e9F, 4.0F, -3.3F, -1e9F, -1e30F, -infinity}) {
        orientation(20, 20) = direction;
        testing::internal::CaptureStderr();
        const Bins bins = binsOf(GetParam().run, gradients, window);
        (void)std::fflush(stderr);
        // Only what lies beyond +pi is reported.
        EXPECT_EQ(testing::internal::GetCapturedStderr().substr(0, 4), direction > 0 ? "bin " : "");
        EXPECT_EQ(bins[0], 1.0F) << direction;
        EXPECT_EQ(std::count(bins.begin(), bins.end(), 0.0F), kOrientationBins - 1);
    }
    orientation(20, 20) = std::numeric_limits<float>::quiet_NaN();
    const Bins none = binsOf(GetParam().run, gradients, window);
    EXPECT_EQ(std::count(none.begin(), none.end(), 0.0F), kOrientationBins);
}

INSTANTIATE_TEST_SUITE_P(EveryKernelOfThisBuild, OrientationKernelTest,
                         test::everyKernel(orientationKernels()), test::KernelName());

}  // namespace
}  // namespace marlo::detail
