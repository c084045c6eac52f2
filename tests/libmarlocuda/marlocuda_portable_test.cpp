// SPDX-License-Identifier: BSD-3-Clause
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libmarlocuda/marlocuda.h"

namespace marlo {
namespace {

using testing::Each;

constexpr float kUntouched = 42.0F;
constexpr unsigned int kUntouchedCount = 42;

TEST(MarlocudaPortableTest, HasNoGpu) {
    EXPECT_FALSE(cuda::isFeatureAvailable());
    EXPECT_FALSE(cuda::gpusAvailableForProcessing());
}

TEST(MarlocudaPortableTest, SaysWhyThereIsNone) {
    std::string description = "old text";
    cuda::getActiveDeviceString(description);
    EXPECT_EQ(description, "no GPU: libmarlocuda was built without GPU support");
}

TEST(MarlocudaPortableTest, ListsNoDevices) {
    std::vector<std::string> descriptions{"old text"};
    cuda::getDeviceStrings(descriptions);
    EXPECT_TRUE(descriptions.empty());
}

TEST(MarlocudaPortableTest, HasNoGpuEvenIfItMayUseOne) {
    cuda::setProcessingEnabled(true);
    EXPECT_FALSE(cuda::gpusAvailableForProcessing());
}

TEST(MarlocudaPortableTest, DetectsNoKeypoints) {
    EXPECT_EQ(mlcMaximumKeypointsLDAH(1000, 1000), 0U);
    const std::array<float, 4> image{};
    Keypoint keypoint(kUntouched, kUntouched);
    std::uint64_t count = kUntouchedCount;
    const int status = mlcDetectLdah(image.data(), 2, 2, &keypoint, &count);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(keypoint.x, kUntouched);
    EXPECT_EQ(count, kUntouchedCount);
}

TEST(MarlocudaPortableTest, GradientFailsAndLeavesItsOutputs) {
    const std::array<float, 4> image{};
    std::array<float, 4> magnitude{};
    std::array<float, 4> orientation{};
    magnitude.fill(kUntouched);
    orientation.fill(kUntouched);
    EXPECT_EQ(mlcGradient(image.data(), 2, 2, magnitude.data(), orientation.data()), 1);
    EXPECT_THAT(magnitude, Each(kUntouched));
    EXPECT_THAT(orientation, Each(kUntouched));
}

TEST(MarlocudaPortableTest, GaussianFilterFailsAndLeavesTheImage) {
    std::array<float, 4> image{1.0F, 2.0F, 3.0F, 4.0F};
    EXPECT_EQ(mlcGaussianFilter(image.data(), 2, 2, 1.6), 1);
    EXPECT_THAT(image, testing::ElementsAre(1.0F, 2.0F, 3.0F, 4.0F));
}

TEST(MarlocudaPortableTest, GradientPyramidFailsAndLeavesItsOutputs) {
    const std::array<float, 4> image{};
    std::array<float, 4> pixels{};
    pixels.fill(kUntouched);
    std::array<float*, 12> images{};
    images[1] = pixels.data();
    const int status =
        mlcGradientPyramid(image.data(), 2, 2, images.data(), images.data(), 2, 1.6, 4);
    EXPECT_EQ(status, 1);
    EXPECT_THAT(pixels, Each(kUntouched));
    EXPECT_EQ(images[1], pixels.data());
}

TEST(MarlocudaPortableTest, HammingDistanceFailsAndLeavesItsOutputs) {
    const std::array<unsigned char, 16> rows{};
    unsigned int index = kUntouchedCount;
    unsigned int best = kUntouchedCount;
    unsigned int second = kUntouchedCount;
    EXPECT_EQ(mlcHammingDistance(rows.data(), 1, rows.data(), 1, &index, &best, &second, 16), 1);
    EXPECT_EQ(index, kUntouchedCount);
    EXPECT_EQ(best, kUntouchedCount);
    EXPECT_EQ(second, kUntouchedCount);
}

}  // namespace
}  // namespace marlo
