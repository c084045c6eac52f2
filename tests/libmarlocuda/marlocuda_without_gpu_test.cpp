// SPDX-License-Identifier: BSD-3-Clause
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libmarlocuda/marlocuda.h"

/// The CUDA variant where it finds no GPU: without a driver, or with all GPUs hidden from it.
namespace marlo {
namespace {

using testing::Each;

constexpr float kUntouched = 42.0F;
constexpr unsigned int kUntouchedCount = 42;
constexpr int kNoUsableGpu = 1;

TEST(MarlocudaWithoutGpuTest, HasNoGpu) {
    EXPECT_FALSE(cuda::isFeatureAvailable());
    EXPECT_FALSE(cuda::gpusAvailableForProcessing());
    std::vector<std::string> descriptions{"old text"};
    cuda::getDeviceStrings(descriptions);
    EXPECT_TRUE(descriptions.empty());
}

TEST(MarlocudaWithoutGpuTest, SaysWhyThereIsNone) {
    std::string description = "old text";
    cuda::getActiveDeviceString(description);
    EXPECT_THAT(description, testing::MatchesRegex("no GPU: .+"));
}

TEST(MarlocudaWithoutGpuTest, EveryCallFailsAndWritesNothing) {
    std::array<float, 256> pixels{};
    std::array<float, 256> out{};
    pixels.fill(kUntouched);
    out.fill(kUntouched);
    std::array<float*, 12> images{};
    images.fill(out.data());
    Keypoint keypoint(kUntouched, kUntouched);
    std::uint64_t count = kUntouchedCount;
    unsigned int index = kUntouchedCount;
    unsigned int best = kUntouchedCount;
    unsigned int second = kUntouchedCount;
    EXPECT_EQ(mlcDetectLdah(pixels.data(), 16, 16, &keypoint, &count), kNoUsableGpu);
    EXPECT_EQ(mlcGradient(pixels.data(), 16, 16, out.data(), out.data()), kNoUsableGpu);
    EXPECT_EQ(mlcGaussianFilter(pixels.data(), 16, 16, 1.6), kNoUsableGpu);
    EXPECT_EQ(mlcGradientPyramid(pixels.data(), 16, 16, images.data(), images.data(), 2, 1.6, 4),
              kNoUsableGpu);
    EXPECT_EQ(mlcHammingDistance(pixels.data(), 1, pixels.data(), 4, &index, &best, &second, 16),
              kNoUsableGpu);
    EXPECT_THAT(pixels, Each(kUntouched));
    EXPECT_THAT(out, Each(kUntouched));
    EXPECT_EQ(keypoint.x, kUntouched);
    EXPECT_EQ(count, kUntouchedCount);
    EXPECT_EQ(index, kUntouchedCount);
    EXPECT_EQ(best, kUntouchedCount);
    EXPECT_EQ(second, kUntouchedCount);
}

}  // namespace
}  // namespace marlo
