// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/feature_detector_ldah_cuda.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "libfeatures/base/cuda_exceptions.h"
#include "libfeatures/base/parameter_setters.h"
#include "stand_in/marlocuda_stand_in.h"
#include "utilities/keypoint_fields.h"
#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using test::DetectLdahCall;
using test::fieldsOf;
using test::MaximumKeypointsCall;
using testing::IsEmpty;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

std::vector<Keypoint> randomKeypoints(std::size_t count, std::uint32_t seed) {
    test::Random random(seed);
    std::vector<Keypoint> keypoints;
    for (std::size_t i = 0; i < count; ++i) {
        keypoints.emplace_back(random.uniform(0.0F, 4000.0F), random.uniform(0.0F, 3000.0F),
                               random.uniform(1.0F, 20.0F), random.uniform(-3.0F, 3.0F),
                               random.uniform(0.0F, 1.0F),
                               static_cast<unsigned char>(random.below(3)),
                               static_cast<unsigned char>(1 + random.below(3)));
    }
    return keypoints;
}

class FeatureDetectorLDAHCudaTest : public testing::Test {
protected:
    FeatureDetectorLDAHCudaTest() {
        gpu.reset();
        gpu.maximumKeypoints = 100;
        detector.setParams(1.0F);
    }

    test::StandIn& gpu = test::StandIn::instance();
    FeatureDetectorLDAHCuda detector;
    const FloatImage image = test::noiseImage(7, 11, 1);
    std::vector<Keypoint> keypoints;

    void findOnGpu(std::size_t count) {
        gpu.keypoints = randomKeypoints(count, 3);
        gpu.maximumKeypoints = count + 5;
    }

    template <typename Exception, typename Image>
    std::string refusal(const Image& given) {
        try {
            detector.detect(given, keypoints);
        } catch (const Exception& error) {
            return error.what();
        }
        return "nothing thrown";
    }
};

TEST_F(FeatureDetectorLDAHCudaTest, StartsWithoutAnImageScale) {
    const FeatureDetectorLDAHCuda fresh;
    EXPECT_EQ(fresh.imageScale, 0.0F);
    EXPECT_FALSE(fresh.useSift);
}

TEST_F(FeatureDetectorLDAHCudaTest, TakesItsScaleThroughTheSetter) {
    setFeaDetSiftLdahParams(&detector, 0.25F);
    EXPECT_EQ(detector.imageScale, 0.25F);
}

TEST_F(FeatureDetectorLDAHCudaTest, TheInterfaceIsTheFirstBaseAndTheParametersTheSecond) {
    const void* const object = &detector;
    const auto* const interface = static_cast<const IKeypointDetector*>(&detector);
    const auto* const parameters = static_cast<const SiftLdahBaseParams*>(&detector);
    EXPECT_EQ(interface, object);
    EXPECT_EQ(reinterpret_cast<const char*>(parameters) - reinterpret_cast<const char*>(interface),
              static_cast<std::ptrdiff_t>(sizeof(IKeypointDetector)));
}

TEST_F(FeatureDetectorLDAHCudaTest, HasOrientationsAndTakesFloatImages) {
    EXPECT_TRUE(detector.hasOrientations());
    EXPECT_FALSE(detector.supportsIntImages());
    EXPECT_TRUE(detector.supportsFloatImages());
}

TEST_F(FeatureDetectorLDAHCudaTest, ACloneHasTheParametersForItself) {
    for (const bool useSift : {false, true}) {
        detector.useSift = useSift;
        detector.setParams(0.5F);
        const std::unique_ptr<IKeypointDetector> clone = detector.clone();
        detector.setParams(3.0F);
        const auto* const copy = dynamic_cast<const FeatureDetectorLDAHCuda*>(clone.get());
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->imageScale, 0.5F);
        EXPECT_EQ(copy->useSift, useSift);
    }
}

TEST_F(FeatureDetectorLDAHCudaTest, RefusesByteImages) {
    keypoints.resize(3);
    EXPECT_EQ(refusal<std::runtime_error>(ByteImage(ByteImage::Zero(20, 20))),
              "ui8 image version of detect not implemented");
    EXPECT_EQ(keypoints.size(), 3U);
    EXPECT_THAT(gpu.allCalls, IsEmpty());
}

TEST_F(FeatureDetectorLDAHCudaTest, RefusesScalesOfZeroAndBelowBeforeAskingTheGpu) {
    keypoints.resize(3);
    for (const float scale : {0.0F, -0.0F, -1e-30F, -1.0F}) {
        detector.setParams(scale);
        EXPECT_EQ(refusal<std::runtime_error>(image), "Invalid image scale, should be > 0.0")
            << scale;
    }
    EXPECT_EQ(keypoints.size(), 3U);
    EXPECT_THAT(gpu.allCalls, IsEmpty());
}

TEST_F(FeatureDetectorLDAHCudaTest, ANewDetectorRefusesToDetect) {
    detector = FeatureDetectorLDAHCuda();
    EXPECT_EQ(refusal<std::runtime_error>(image), "Invalid image scale, should be > 0.0");
}

TEST_F(FeatureDetectorLDAHCudaTest, GivesTheGpuTheImageAndRoomForAllItsKeypoints) {
    gpu.maximumKeypoints = 37;
    gpu.detectLdah.onSuccess = [&](const DetectLdahCall& call) {
        EXPECT_EQ(fieldsOf(keypoints), fieldsOf(std::vector<Keypoint>(37)));
        EXPECT_EQ(call.keypoints, keypoints.data());
    };
    keypoints = randomKeypoints(50, 1);
    detector.detect(image, keypoints);
    ASSERT_EQ(gpu.allCalls.size(), 2U);
    const auto sizes = gpu.calls<MaximumKeypointsCall>();
    ASSERT_EQ(sizes.size(), 1U);
    EXPECT_EQ(sizes[0].rows, 7U);
    EXPECT_EQ(sizes[0].cols, 11U);
    const auto calls = gpu.calls<DetectLdahCall>();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].data, image.data());
    EXPECT_EQ(calls[0].rows, 7U);
    EXPECT_EQ(calls[0].cols, 11U);
    EXPECT_EQ(calls[0].countBefore, 0U);
}

TEST_F(FeatureDetectorLDAHCudaTest, KeypointsAreThoseOfTheGpuInItsOrder) {
    findOnGpu(40);
    keypoints.resize(1000);
    detector.detect(image, keypoints);
    EXPECT_EQ(fieldsOf(keypoints), fieldsOf(gpu.keypoints));
}

TEST_F(FeatureDetectorLDAHCudaTest, AllTheRoomMayBeUsed) {
    findOnGpu(40);
    gpu.maximumKeypoints = 40;
    detector.detect(image, keypoints);
    EXPECT_EQ(fieldsOf(keypoints), fieldsOf(gpu.keypoints));
}

TEST_F(FeatureDetectorLDAHCudaTest, HalfTheScaleDoublesPositionsAndScalesAndNothingElse) {
    gpu.keypoints = {Keypoint(3.3F, 4.7F, 2.1F, 0.7F, 0.03F, 1, 2),
                     Keypoint(5.1F, 0.3F, 9.9F, -3.1F, 0.5F, 2, 3)};
    detector.setParams(0.5F);
    detector.detect(image, keypoints);
    EXPECT_EQ(fieldsOf(keypoints), fieldsOf({Keypoint(6.6F, 9.4F, 4.2F, 0.7F, 0.03F, 1, 2),
                                             Keypoint(10.2F, 0.6F, 19.8F, -3.1F, 0.5F, 2, 3)}));
}

TEST_F(FeatureDetectorLDAHCudaTest, FindingNothingIsNoError) {
    keypoints.resize(3);
    detector.detect(image, keypoints);
    EXPECT_THAT(keypoints, IsEmpty());
}

TEST_F(FeatureDetectorLDAHCudaTest, AnEmptyImageIsTheGpusToJudge) {
    gpu.maximumKeypoints = 0;
    keypoints.resize(3);
    detector.detect(FloatImage(), keypoints);
    EXPECT_THAT(keypoints, IsEmpty());
    ASSERT_EQ(gpu.calls<DetectLdahCall>().size(), 1U);
    EXPECT_EQ(gpu.calls<DetectLdahCall>()[0].rows, 0U);
}

TEST_F(FeatureDetectorLDAHCudaTest, AnyNumberOfThreadsScalesAnyNumberOfKeypointsOnce) {
    constexpr float kScale = 0.7F;
    detector.setParams(kScale);
    for (const int threads : {1, 2, 3, 4, 7, 16}) {
        const test::NumberOfThreads guard(threads);
        for (std::size_t count = 0; count <= 40; ++count) {
            findOnGpu(count);
            detector.detect(image, keypoints);
            std::vector<Keypoint> expected = gpu.keypoints;
            for (Keypoint& keypoint : expected) {
                keypoint.x /= kScale;
                keypoint.y /= kScale;
                keypoint.scale /= kScale;
            }
            ASSERT_EQ(fieldsOf(keypoints), fieldsOf(expected))
                << count << " keypoints, " << threads << " threads";
        }
    }
}

TEST_F(FeatureDetectorLDAHCudaTest, TheKindOfDescriptorsChangesNothing) {
    findOnGpu(5);
    detector.useSift = true;
    detector.detect(image, keypoints);
    EXPECT_EQ(fieldsOf(keypoints), fieldsOf(gpu.keypoints));
}

TEST_F(FeatureDetectorLDAHCudaTest, AScaleThatIsNotANumberIsNotRefused) {
    findOnGpu(1);
    detector.setParams(kNaN);
    detector.detect(image, keypoints);
    ASSERT_EQ(keypoints.size(), 1U);
    EXPECT_THAT(keypoints[0].x, testing::IsNan());
}

TEST_F(FeatureDetectorLDAHCudaTest, StatusOneAndTwoMeanTooFewResources) {
    for (const int status : {1, 2}) {
        gpu.detectLdah.status = status;
        keypoints.resize(3);
        EXPECT_EQ(refusal<cuda::CudaNoResourcesException>(image),
                  "Not enough resources for the detector.")
            << status;
        EXPECT_EQ(keypoints.size(), 0U);
        EXPECT_EQ(keypoints.capacity(), 0U);
    }
}

TEST_F(FeatureDetectorLDAHCudaTest, OtherStatusesMeanAFailure) {
    for (const int status : {3, -1, -2, 77, std::numeric_limits<int>::min()}) {
        gpu.detectLdah.status = status;
        keypoints.resize(3);
        EXPECT_EQ(refusal<cuda::CudaException>(image), "Cuda processing error.") << status;
        EXPECT_EQ(keypoints.size(), 0U);
        EXPECT_EQ(keypoints.capacity(), 0U);
    }
}

TEST_F(FeatureDetectorLDAHCudaTest, WorksAgainAfterAFailure) {
    findOnGpu(5);
    gpu.detectLdah.statuses = {2, 3};
    EXPECT_THROW(detector.detect(image, keypoints), cuda::CudaNoResourcesException);
    EXPECT_THROW(detector.detect(image, keypoints), cuda::CudaException);
    detector.detect(image, keypoints);
    EXPECT_EQ(fieldsOf(keypoints), fieldsOf(gpu.keypoints));
}

class GpuImageOperationsTest : public testing::Test {
protected:
    GpuImageOperationsTest() { gpu.reset(); }

    test::StandIn& gpu = test::StandIn::instance();
    std::array<float, 6> image{1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F};
    std::array<float, 6> magnitude{};
    std::array<float, 6> orientation{};
};

TEST_F(GpuImageOperationsTest, GradientsAreThoseOfTheGpu) {
    gpu.gradient.onSuccess = [](const test::GradientCall& call) {
        call.magnitude[0] = call.src[5];
        call.orientation[5] = call.src[0];
    };
    EXPECT_TRUE(cuda::mldGradOriImages(image.data(), magnitude.data(), orientation.data(), 2, 3));
    EXPECT_EQ(magnitude[0], 6.0F);
    EXPECT_EQ(orientation[5], 1.0F);
    ASSERT_EQ(gpu.allCalls.size(), 1U);
    const auto calls = gpu.calls<test::GradientCall>();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].src, image.data());
    EXPECT_EQ(calls[0].rows, 2U);
    EXPECT_EQ(calls[0].cols, 3U);
    EXPECT_EQ(calls[0].magnitude, magnitude.data());
    EXPECT_EQ(calls[0].orientation, orientation.data());
}

TEST_F(GpuImageOperationsTest, TheBlurIsThatOfTheGpu) {
    gpu.gaussianFilter.onSuccess = [](const test::GaussianFilterCall& call) {
        call.data[2] = 42.0F;
    };
    EXPECT_TRUE(cuda::conv_gauss(image.data(), 3, 2, 1.6));
    EXPECT_EQ(image[2], 42.0F);
    ASSERT_EQ(gpu.allCalls.size(), 1U);
    const auto calls = gpu.calls<test::GaussianFilterCall>();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].data, image.data());
    EXPECT_EQ(calls[0].rows, 3U);
    EXPECT_EQ(calls[0].cols, 2U);
    EXPECT_EQ(calls[0].sigma, 1.6);
}

TEST_F(GpuImageOperationsTest, FailuresAreToldByTheResult) {
    for (const int status : {1, 2, 3, -1}) {
        gpu.gradient.status = status;
        gpu.gaussianFilter.status = status;
        EXPECT_FALSE(
            cuda::mldGradOriImages(image.data(), magnitude.data(), orientation.data(), 2, 3));
        EXPECT_FALSE(cuda::conv_gauss(image.data(), 2, 3, 1.6));
    }
}

TEST_F(GpuImageOperationsTest, SizesBeyond32BitsArePassedOn) {
    (void)cuda::mldGradOriImages(nullptr, nullptr, nullptr, 1UL << 40, (1UL << 33) + 1);
    (void)cuda::conv_gauss(nullptr, 1UL << 40, (1UL << 33) + 1, 0.5);
    EXPECT_EQ(gpu.calls<test::GradientCall>().at(0).rows, 1UL << 40);
    EXPECT_EQ(gpu.calls<test::GradientCall>().at(0).cols, (1UL << 33) + 1);
    EXPECT_EQ(gpu.calls<test::GaussianFilterCall>().at(0).rows, 1UL << 40);
    EXPECT_EQ(gpu.calls<test::GaussianFilterCall>().at(0).cols, (1UL << 33) + 1);
}

}  // namespace
}  // namespace marlo
