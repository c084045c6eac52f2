// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/marlocuda.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>
#include <vector>

#include "libmarlocuda/detail/cpu_order.h"
#include "libmarlocuda/detail/detection.h"
#include "libmarlocuda/detail/session.h"
#include "libmarlocuda/keypoint_agreement.h"
#include "libmarlocuda/on_cpu/gpu_on_cpu.h"
#include "utilities/keypoint_fields.h"
#include "utilities/synthetic_images.h"

/// The entry points with a GPU that has as much memory, and fails when, a test says so.
namespace marlo::test {
namespace {

using gpu::CpuOrder;
using testing::ElementsAre;
using testing::HasSubstr;

std::string activeDevice() {
    std::string text = "old text";
    cuda::getActiveDeviceString(text);
    return text;
}

class MarlocudaTest : public testing::Test {
protected:
    void SetUp() override {
        gpu::Session::endOfThisThread();
        gpu.reset();
        cuda::setProcessingEnabled(true);
        // A call that succeeds, so that no failure is remembered.
        ASSERT_EQ(mlcGaussianFilter(nullptr, 0, 0, 1.0), 0);
    }
    void TearDown() override {
        cuda::setProcessingEnabled(true);
        CpuOrder::kind = CpuOrder::Forward;
        CpuOrder::mostBlocks = 4096;
    }

    int detect() {
        count = 0;
        keypoints.assign(mlcMaximumKeypointsLDAH(80, 100), Keypoint(-1.0F, -1.0F));
        return mlcDetectLdah(image.data(), 80, 100, keypoints.data(), &count);
    }

    GpuOnCpu& gpu = GpuOnCpu::instance();
    const FloatImage image = photographLikeImage(80, 100, 1) * 255.0F;
    std::vector<Keypoint> keypoints;
    std::uint64_t count = 0;
};

TEST_F(MarlocudaTest, HasTheGpuThatIsThere) {
    EXPECT_TRUE(cuda::isFeatureAvailable());
    EXPECT_TRUE(cuda::gpusAvailableForProcessing());
    EXPECT_EQ(activeDevice(), "GPU on CPU (compute capability 9.0, 8192 MiB)");
}

TEST_F(MarlocudaTest, ListsAllGpusAndWhyOneCannotBeUsed) {
    gpu.list.devices = {{"Old", 7, 0, std::size_t{4} << 30},
                        {"Just new enough", 7, 5, std::size_t{512} << 20},
                        {"Small", 8, 6, (std::size_t{512} << 20) - 1},
                        {"Newer", 10, 0, std::size_t{9} << 30}};
    std::vector<std::string> devices{"old text"};
    cuda::getDeviceStrings(devices);
    EXPECT_THAT(devices,
                ElementsAre("Old (compute capability 7.0, 4096 MiB), not usable: compute "
                            "capability 7.5 or newer is needed",
                            "Just new enough (compute capability 7.5, 512 MiB)",
                            "Small (compute capability 8.6, 511 MiB), not usable: at least 512 MiB "
                            "of memory are needed",
                            "Newer (compute capability 10.0, 9216 MiB)"));
}

TEST_F(MarlocudaTest, SaysWhyThereIsNoGpu) {
    gpu.list.devices.clear();
    gpu.list.reason = "no driver";
    EXPECT_FALSE(cuda::isFeatureAvailable());
    EXPECT_FALSE(cuda::gpusAvailableForProcessing());
    EXPECT_EQ(activeDevice(), "no GPU: no driver");
    EXPECT_EQ(detect(), 1);
    EXPECT_EQ(gpu.operations, 0);
}

TEST_F(MarlocudaTest, DoesNotUseAnOldGpu) {
    gpu.list.devices = {{"Old", 7, 4, std::size_t{4} << 30}};
    EXPECT_TRUE(cuda::isFeatureAvailable());
    EXPECT_FALSE(cuda::gpusAvailableForProcessing());
    EXPECT_EQ(activeDevice(),
              "no GPU: Old (compute capability 7.4, 4096 MiB): compute capability 7.5 or newer is "
              "needed");
    EXPECT_EQ(detect(), 1);
}

TEST_F(MarlocudaTest, AsksTheGpuOfTheThread) {
    gpu.list.devices = {{"Old", 5, 0, std::size_t{4} << 30}, {"New", 8, 0, std::size_t{4} << 30}};
    EXPECT_FALSE(cuda::gpusAvailableForProcessing());
    gpu.deviceOfThread = 1;
    EXPECT_TRUE(cuda::gpusAvailableForProcessing());
    EXPECT_EQ(activeDevice(), "New (compute capability 8.0, 4096 MiB)");
}

TEST_F(MarlocudaTest, UsesNoGpuWhileItMayNot) {
    cuda::setProcessingEnabled(false);
    EXPECT_TRUE(cuda::isFeatureAvailable());
    EXPECT_FALSE(cuda::gpusAvailableForProcessing());
    EXPECT_EQ(activeDevice(), "no GPU: switched off");
    EXPECT_EQ(detect(), 1);
    EXPECT_EQ(gpu.operations, 0);
    cuda::setProcessingEnabled(true);
    EXPECT_EQ(detect(), 0);
}

TEST_F(MarlocudaTest, KeepsStreamAndMemoryForTheNextCall) {
    ASSERT_EQ(detect(), 0);
    ASSERT_EQ(detect(), 0);
    std::array<float, 100> pixels{};
    ASSERT_EQ(mlcGaussianFilter(pixels.data(), 10, 10, 1.0), 0);
    EXPECT_EQ(gpu.streams, 1);
    EXPECT_EQ(gpu.allocations, 1);
}

TEST_F(MarlocudaTest, TakesMoreMemoryWhenALargerImageComes) {
    ASSERT_EQ(detect(), 0);
    const std::size_t before = gpu.used;
    ASSERT_FALSE(gpuKeypoints(noiseImage(200, 200, 2, 0.0F, 255.0F)).empty());
    EXPECT_EQ(gpu.allocations, 2);
    EXPECT_GT(gpu.used, before);
    EXPECT_EQ(gpu.mostUsed, gpu.used) << "the old block was released first";
}

TEST_F(MarlocudaTest, NeedsFortyBytesAPixelToDetect) {
    (void)gpuKeypoints(FloatImage::Zero(1500, 2000));
    EXPECT_LT(gpu.used, 40U * 1500 * 2000 + 200000);
    EXPECT_GT(gpu.used, 36U * 1500 * 2000);
}

TEST_F(MarlocudaTest, ReleasesAllWhenTheThreadEnds) {
    const std::size_t before = gpu.used;
    int status = -1;
    std::thread([&] { status = detect(); }).join();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(gpu.allocations, 1);
    EXPECT_EQ(gpu.used, before);
}

TEST_F(MarlocudaTest, BeginsAnewOnAnotherGpu) {
    gpu.list.devices.push_back({"Second", 9, 0, std::size_t{8} << 30});
    ASSERT_EQ(detect(), 0);
    gpu.deviceOfThread = 1;
    ASSERT_EQ(detect(), 0);
    EXPECT_EQ(gpu.streams, 2);
    EXPECT_EQ(gpu.allocations, 2);
}

TEST_F(MarlocudaTest, AllocatesNothingForAnImageThatDoesNotFit) {
    gpu.memory = gpu.used + (std::size_t{64} << 20) + 300000;
    EXPECT_EQ(detect(), 2);
    EXPECT_EQ(gpu.allocations, 0);
    EXPECT_EQ(gpu.operations, 0);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(activeDevice(),
              "GPU on CPU (compute capability 9.0, 8192 MiB); failed: the GPU has 65 MiB of memory "
              "left, 1 MiB would be needed");
    gpu.memory += std::size_t{1} << 20;
    EXPECT_EQ(detect(), 0);
    EXPECT_EQ(activeDevice(), "GPU on CPU (compute capability 9.0, 8192 MiB)");
}

TEST_F(MarlocudaTest, CountsTheMemoryThatItHoldsAsFree) {
    ASSERT_EQ(detect(), 0);
    const FloatImage larger = noiseImage(200, 200, 6, 0.0F, 255.0F);
    gpu::MemoryPlan needed;
    (void)gpu::Detection(needed, 200, 200, gpu::mostKeypoints(200, 200));
    gpu.memory = needed.bytes() + (std::size_t{64} << 20);
    EXPECT_FALSE(gpuKeypoints(larger).empty());
    gpu::Session::endOfThisThread();
    --gpu.memory;
    std::vector<Keypoint> room(mlcMaximumKeypointsLDAH(200, 200));
    EXPECT_EQ(mlcDetectLdah(larger.data(), 200, 200, room.data(), &count), 2);
}

TEST_F(MarlocudaTest, SaysThatTheDriverFails) {
    gpu.list.devices.clear();
    gpu.list.reason = "the driver is too old";
    gpu.list.driverFails = true;
    std::vector<std::string> devices;
    cuda::getDeviceStrings(devices);
    EXPECT_THAT(devices, ElementsAre("unknown GPU, not usable: the driver is too old"));
    EXPECT_FALSE(cuda::isFeatureAvailable());
}

TEST_F(MarlocudaTest, SaysThatAllocatingFailed) {
    gpu.failsToAllocate = true;
    EXPECT_EQ(detect(), 2);
    gpu.failsToAllocate = false;
    EXPECT_EQ(detect(), 0);
}

TEST_F(MarlocudaTest, EveryEntryPointSaysWhenMemoryIsShort) {
    gpu.memory = 0;
    std::vector<float> pixels(100);
    std::array<float*, 12> images{};
    images.fill(pixels.data());
    unsigned value = 0;
    EXPECT_EQ(mlcGradient(pixels.data(), 10, 10, pixels.data(), pixels.data()), 2);
    EXPECT_EQ(mlcGaussianFilter(pixels.data(), 10, 10, 1.0), 2);
    EXPECT_EQ(mlcGradientPyramid(pixels.data(), 10, 10, images.data(), images.data(), 2, 1.6, 4),
              2);
    EXPECT_EQ(mlcHammingDistance(pixels.data(), 1, pixels.data(), 1, &value, &value, &value, 16),
              2);
}

// Calls of every entry point, and what they write, with marks where they write nothing.
struct Calls {
    explicit Calls(const FloatImage& from) : image(from) {
        for (std::size_t i = 0; i < pyramid.size(); ++i) {
            if (i % 4 == 0) continue;
            pyramid[i].assign(static_cast<std::size_t>(image.size()), kMark);
            (i < 12 ? magnitudes[i] : orientations[i - 12]) = pyramid[i].data();
        }
    }

    int detect() { return mlcDetectLdah(image.data(), rows(), cols(), keypoints.data(), &count); }
    int gradient() {
        return mlcGradient(image.data(), rows(), cols(), magnitude.data(), orientation.data());
    }
    int filter() { return mlcGaussianFilter(filtered.data(), rows(), cols(), 1.5); }
    int longFilter() { return mlcGaussianFilter(longFiltered.data(), rows(), cols(), 9.0); }
    int gradientPyramid() {
        return mlcGradientPyramid(image.data(), rows(), cols(), magnitudes.data(),
                                  orientations.data(), 2, 1.6, 4);
    }
    int hamming() {
        // The image's bytes as rows of 16, the first quarter against all of them.
        const int all = static_cast<int>(image.size() / 4);
        return mlcHammingDistance(image.data(), all / 4, image.data(), all, index.data(),
                                  best.data(), second.data(), 16);
    }
    static constexpr std::array kAll = {&Calls::detect,          &Calls::gradient,
                                        &Calls::filter,          &Calls::longFilter,
                                        &Calls::gradientPyramid, &Calls::hamming};

    bool operator==(const Calls& other) const {
        return fieldsOf(keypoints) == fieldsOf(other.keypoints) && count == other.count &&
               sameBits(magnitude, other.magnitude) && sameBits(orientation, other.orientation) &&
               sameBits(filtered, other.filtered) && sameBits(longFiltered, other.longFiltered) &&
               pyramid == other.pyramid && index == other.index && best == other.best &&
               second == other.second;
    }

    static constexpr float kMark = 42.0F;
    const FloatImage image;
    std::vector<Keypoint> keypoints =
        std::vector<Keypoint>(mlcMaximumKeypointsLDAH(rows(), cols()), Keypoint(kMark, kMark));
    std::uint64_t count = 0;
    FloatImage magnitude = FloatImage::Constant(image.rows(), image.cols(), kMark);
    FloatImage orientation = magnitude;
    FloatImage filtered = image;
    FloatImage longFiltered = image;
    std::array<std::vector<float>, 24> pyramid;  // magnitudes, then directions
    std::array<float*, 12> magnitudes{};
    std::array<float*, 12> orientations{};
    std::vector<unsigned> index = std::vector<unsigned>(static_cast<std::size_t>(image.size()), 42);
    std::vector<unsigned> best = index;
    std::vector<unsigned> second = index;

private:
    [[nodiscard]] std::uint64_t rows() const { return static_cast<std::uint64_t>(image.rows()); }
    [[nodiscard]] std::uint64_t cols() const { return static_cast<std::uint64_t>(image.cols()); }
};

TEST_F(MarlocudaTest, NoResultDependsOnWhichThreadOrBlockComesFirstOrHowManyBlocksThereAre) {
    const auto runIn = [](CpuOrder::Kind order, Calls& calls) {
        CpuOrder::kind = order;
        CpuOrder::mostBlocks = order == CpuOrder::Forward ? 4096 : 3;
        for (const auto call : Calls::kAll) EXPECT_EQ((calls.*call)(), 0);
    };
    for (const FloatImage& scene : {FloatImage(photographLikeImage(150, 180, 3) * 255.0F),
                                    discImage(176, 36, -3.0e4F, 2.0e4F)}) {
        Calls forward(scene);
        Calls backward(scene);
        Calls shuffled(scene);
        runIn(CpuOrder::Forward, forward);
        runIn(CpuOrder::Backward, backward);
        runIn(CpuOrder::Shuffled, shuffled);
        EXPECT_GT(forward.count, 50U);
        EXPECT_TRUE(backward == forward);
        EXPECT_TRUE(shuffled == forward);
    }
}

TEST_F(MarlocudaTest, AFailureAtAnyMomentBecomesAStatusAndTheNextCallWorks) {
    const FloatImage small = photographLikeImage(40, 50, 4) * 255.0F;
    for (const auto call : Calls::kAll) {
        Calls expected(small);
        gpu.reset();
        ASSERT_EQ((expected.*call)(), 0);
        const long long operations = gpu.operations;
        ASSERT_GT(operations, 0);
        for (long long failing = 0; failing < operations; ++failing) {
            SCOPED_TRACE(failing);
            gpu.reset();
            gpu.failingOperation = failing;
            Calls calls(small);
            EXPECT_EQ((calls.*call)(), 3);
            EXPECT_EQ(calls.count, 0U);
            EXPECT_EQ(
                activeDevice(),
                "GPU on CPU (compute capability 9.0, 8192 MiB); failed: the test lets the GPU "
                "fail");
            EXPECT_TRUE(cuda::gpusAvailableForProcessing());
            Calls again(small);
            EXPECT_EQ((again.*call)(), 0);
            EXPECT_TRUE(again == expected);
            EXPECT_EQ(gpu.streams, 1) << "the next call begins with a new stream";
        }
    }
}

TEST_F(MarlocudaTest, WritesNothingWhenItFailsBeforeTheResultsAreThere) {
    const FloatImage small = photographLikeImage(40, 50, 5) * 255.0F;
    // The copies of the results are the last that each call does.
    constexpr std::array kCopies = {1, 2, 1, 1, 18, 3};
    for (std::size_t i = 0; i < Calls::kAll.size(); ++i) {
        const auto call = Calls::kAll[i];
        Calls counting(small);
        gpu.reset();
        ASSERT_EQ((counting.*call)(), 0);
        ASSERT_FALSE(counting == Calls(small));
        const long long operations = gpu.operations;
        for (long long failing = 0; failing < operations - kCopies[i] + 1; ++failing) {
            gpu.reset();
            gpu.failingOperation = failing;
            Calls calls(small);
            ASSERT_EQ((calls.*call)(), 3);
            EXPECT_TRUE(calls == Calls(small)) << i << " " << failing;
        }
    }
}

TEST_F(MarlocudaTest, RefusesMoreKeypointsThanThereIsRoomForAndCutsNone) {
    gpu::Stream stream;
    const auto detectWithRoomFor = [&](long long capacity) {
        gpu::MemoryPlan needed;
        (void)gpu::Detection(needed, 80, 100, capacity);
        gpu::WorkingMemory memory(stream);
        gpu::MemoryPlan plan(memory.atLeast(needed.bytes()));
        gpu::Detection detection(plan, 80, 100, capacity);
        stream.upload(detection.input().data, image.data(), 80 * 100 * sizeof(float));
        detection.run(stream);
        return detection.count(stream);
    };
    ASSERT_EQ(detect(), 0);
    ASSERT_GT(count, 20U);
    const auto found = static_cast<long long>(count);
    EXPECT_EQ(detectWithRoomFor(found + 100), count);
    for (const long long capacity : {found - 1, found / 2, 1LL}) {
        try {
            (void)detectWithRoomFor(capacity);
            ADD_FAILURE() << capacity;
        } catch (const gpu::Failure& failure) {
            EXPECT_EQ(failure.status(), 2);
            EXPECT_THAT(failure.what(),
                        HasSubstr("keypoints, there is room for " + std::to_string(capacity)));
        }
    }
}

TEST_F(MarlocudaTest, RefusesMoreExtremaThanThereIsRoomForAlthoughTheKeypointsWouldFit) {
    // Many candidates end at pixels that others have.
    const FloatImage disc = discImage(36, 176, 0.0F, 65535.0F);
    const std::size_t keypointCount = gpuKeypoints(disc).size();
    ASSERT_GT(keypointCount, 0U);
    gpu::Stream stream;
    gpu::WorkingMemory memory(stream);
    const auto detectWithRoomFor = [&](std::size_t keypointsWithRoom) {
        const auto capacity = static_cast<long long>(keypointsWithRoom);
        gpu::MemoryPlan needed;
        (void)gpu::Detection(needed, 36, 176, capacity);
        gpu::MemoryPlan plan(memory.atLeast(needed.bytes()));
        gpu::Detection detection(plan, 36, 176, capacity);
        stream.upload(detection.input().data, disc.data(), 36 * 176 * sizeof(float));
        detection.run(stream);
        return detection.count(stream);
    };
    EXPECT_THROW((void)detectWithRoomFor(keypointCount), gpu::Failure);
    EXPECT_EQ(detectWithRoomFor(4 * keypointCount), keypointCount);
}

// Last: nothing works after it in this process.
TEST_F(MarlocudaTest, UsesNoGpuThatDoesNotRespondAfterAFailure) {
    ASSERT_TRUE(cuda::gpusAvailableForProcessing());
    gpu.failingOperation = 3;
    gpu.respondsAfterFailure = false;
    EXPECT_EQ(detect(), 3);
    EXPECT_TRUE(cuda::isFeatureAvailable());
    EXPECT_FALSE(cuda::gpusAvailableForProcessing());
    EXPECT_EQ(activeDevice(), "no GPU: it failed and does not respond any more");
    EXPECT_EQ(detect(), 1);
}

}  // namespace
}  // namespace marlo::test
