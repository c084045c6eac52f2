// SPDX-License-Identifier: BSD-3-Clause
#include "stand_in/marlocuda_stand_in.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "libmarlocuda/marlocuda.h"

namespace marlo::test {
namespace {

class StandInTest : public testing::Test {
protected:
    void SetUp() override { gpu.reset(); }

    StandIn& gpu = StandIn::instance();
};

TEST_F(StandInTest, HasNoGpuAtFirst) {
    EXPECT_FALSE(cuda::isFeatureAvailable());
    EXPECT_FALSE(cuda::gpusAvailableForProcessing());
}

TEST_F(StandInTest, AnswersAvailabilityAndDeviceAsScripted) {
    gpu.featureAvailable = true;
    gpu.gpusAvailable = true;
    gpu.activeDevice = "two-core test GPU";
    std::string device;
    cuda::getActiveDeviceString(device);
    EXPECT_TRUE(cuda::isFeatureAvailable());
    EXPECT_TRUE(cuda::gpusAvailableForProcessing());
    EXPECT_EQ(device, "two-core test GPU");
}

TEST_F(StandInTest, ListsDevicesAsScripted) {
    gpu.devices = {"one", "two"};
    std::vector<std::string> descriptions{"old text"};
    cuda::getDeviceStrings(descriptions);
    EXPECT_EQ(descriptions, gpu.devices);
}

TEST_F(StandInTest, RecordsWhetherAGpuMayBeUsed) {
    cuda::setProcessingEnabled(false);
    cuda::setProcessingEnabled(true);
    const auto calls = gpu.calls<SetProcessingEnabledCall>();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_FALSE(calls[0].enabled);
    EXPECT_TRUE(calls[1].enabled);
}

TEST_F(StandInTest, GivesStatusesInOrderAndThenTheLastingOne) {
    gpu.gaussianFilter.statuses = {1, 2, 77};
    gpu.gaussianFilter.status = 5;
    float pixel = 0.0F;
    EXPECT_EQ(mlcGaussianFilter(&pixel, 1, 1, 1.5), 1);
    EXPECT_EQ(mlcGaussianFilter(&pixel, 1, 1, 1.5), 2);
    EXPECT_EQ(mlcGaussianFilter(&pixel, 1, 1, 1.5), 77);
    EXPECT_EQ(mlcGaussianFilter(&pixel, 1, 1, 1.5), 5);
    EXPECT_EQ(mlcGaussianFilter(&pixel, 1, 1, 1.5), 5);
}

TEST_F(StandInTest, WritesDetectedKeypointsOnlyOnSuccess) {
    gpu.maximumKeypoints = 3;
    gpu.keypoints = {Keypoint(1.0F, 2.0F), Keypoint(3.0F, 4.0F)};
    gpu.detectLdah.statuses = {2};
    std::vector<Keypoint> buffer(mlcMaximumKeypointsLDAH(20, 30));
    std::uint64_t count = 0;
    const float image = 0.0F;

    EXPECT_EQ(mlcDetectLdah(&image, 20, 30, buffer.data(), &count), 2);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(buffer[0].x, 0.0F);

    EXPECT_EQ(mlcDetectLdah(&image, 20, 30, buffer.data(), &count), 0);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(buffer[1].x, 3.0F);
}

TEST_F(StandInTest, RecordsCallsWithTheirArguments) {
    const std::array<float, 6> image{};
    std::array<float, 6> magnitude{};
    std::array<float, 6> orientation{};
    mlcMaximumKeypointsLDAH(2, 3);
    mlcGradient(image.data(), 2, 3, magnitude.data(), orientation.data());
    mlcGaussianFilter(magnitude.data(), 3, 2, 0.75);

    ASSERT_EQ(gpu.allCalls.size(), 3U);
    EXPECT_TRUE(std::holds_alternative<MaximumKeypointsCall>(gpu.allCalls[0]));
    const GradientCall gradient = gpu.calls<GradientCall>().at(0);
    EXPECT_EQ(gradient.src, image.data());
    EXPECT_EQ(gradient.rows, 2U);
    EXPECT_EQ(gradient.cols, 3U);
    EXPECT_EQ(gradient.magnitude, magnitude.data());
    EXPECT_EQ(gradient.orientation, orientation.data());
    const GaussianFilterCall filter = gpu.calls<GaussianFilterCall>().at(0);
    EXPECT_EQ(filter.data, magnitude.data());
    EXPECT_EQ(filter.rows, 3U);
    EXPECT_EQ(filter.cols, 2U);
    EXPECT_EQ(filter.sigma, 0.75);
}

TEST_F(StandInTest, RecordsCallsOfSeveralThreads) {
    constexpr std::size_t kCalls = 2000;
    const auto ask = [] {
        for (std::size_t i = 0; i < kCalls; ++i) mlcMaximumKeypointsLDAH(1, 1);
    };
    std::thread other(ask);
    ask();
    other.join();
    EXPECT_EQ(gpu.allCalls.size(), 2 * kCalls);
}

TEST_F(StandInTest, RecordsThePointerListsOfTheGradientPyramid) {
    std::array<float, 24> pixels{};
    std::array<float*, 12> magnitudes{};
    std::array<float*, 12> orientations{};
    magnitudes[1] = pixels.data();
    orientations[11] = pixels.data() + 23;
    mlcGradientPyramid(pixels.data(), 4, 6, magnitudes.data(), orientations.data(), 2, 1.6, 4);

    const GradientPyramidCall call = gpu.calls<GradientPyramidCall>().at(0);
    EXPECT_EQ(call.magnitudes, std::vector<float*>(magnitudes.begin(), magnitudes.end()));
    EXPECT_EQ(call.orientations, std::vector<float*>(orientations.begin(), orientations.end()));
    EXPECT_EQ(call.lastOctave, 2);
    EXPECT_EQ(call.initialSigma, 1.6);
    EXPECT_EQ(call.levelsPerOctave, 4);
}

TEST_F(StandInTest, LetsATestWriteTheResultsOfASuccessfulCall) {
    gpu.hammingDistance.statuses = {1};
    gpu.hammingDistance.onSuccess = [](const HammingDistanceCall& call) {
        call.bestIndex[0] = 7;
        call.bestDistance[0] = static_cast<unsigned int>(call.rowBytes);
        call.secondDistance[0] = 40;
    };
    unsigned int index = 0;
    unsigned int best = 0;
    unsigned int second = 0;
    EXPECT_EQ(mlcHammingDistance("q", 1, "t", 1, &index, &best, &second, 16), 1);
    EXPECT_EQ(best, 0U);
    EXPECT_EQ(mlcHammingDistance("q", 1, "t", 1, &index, &best, &second, 16), 0);
    EXPECT_EQ(index, 7U);
    EXPECT_EQ(best, 16U);
    EXPECT_EQ(second, 40U);
}

TEST_F(StandInTest, ResetForgetsScriptAndCalls) {
    gpu.featureAvailable = true;
    gpu.detectLdah.status = 1;
    gpu.keypoints.resize(2);
    mlcMaximumKeypointsLDAH(1, 1);
    gpu.reset();
    EXPECT_TRUE(gpu.allCalls.empty());
    EXPECT_FALSE(gpu.featureAvailable);
    EXPECT_EQ(gpu.detectLdah.status, 0);
    EXPECT_TRUE(gpu.keypoints.empty());
}

}  // namespace
}  // namespace marlo::test
