// SPDX-License-Identifier: BSD-3-Clause
// The controller's choice between GPU and CPU, over a GPU library that does as it is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "libfeatures/base/cuda_exceptions.h"
#include "libfeatures/base/features_controller.h"
#include "utilities/controller_fixture.h"

namespace marlo {
namespace {

using test::Journal;
using testing::ElementsAre;
using testing::IsEmpty;

class FeaturesControllerGpuTest : public test::ControllerFixture {
protected:
    FeaturesControllerGpuTest() { useGpu(); }
};

template <typename Exception>
void fail(std::vector<Keypoint>& /*keypoints*/) {
    throw Exception();
}

template <typename Exception>
void failToCompute(std::vector<Keypoint>& /*keypoints*/, DescMat& /*descriptors*/) {
    throw Exception();
}

// Choice.

TEST_F(FeaturesControllerGpuTest, UsableGpuReplacesDetectorAndExtractor) {
    auto created = controller("LDAH", "LDAH");
    created.detect(image, keypoints);
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(journal,
              (Journal{"LDAHCuda.setParams 0", "LDAHCuda.detect 30x20 0.5",
                       "extractor LDAHCuda.setParams 0", "extractor LDAHCuda.compute 30x20 0.5"}));
    EXPECT_THAT(log.lines(),
                ElementsAre("2 [] |FeaturesController - Created with "
                            "detector/selector/extractor/transform: LDAHCuda / TOP / LDAHCuda / "
                            "Default"));
}

TEST_F(FeaturesControllerGpuTest, SiftIsReplacedToo) {
    auto created = controller("SIFT", "SIFT");
    created.detect(image, keypoints);
    EXPECT_EQ(journal.at(0), "SIFTCuda.setParams 0");
}

TEST_F(FeaturesControllerGpuTest, OnlyExactNamesAreReplaced) {
    auto created = controller("LDAHOther", "Brief");
    EXPECT_THAT(log.lines(),
                ElementsAre("2 [] |FeaturesController - Created with "
                            "detector/selector/extractor/transform: LDAHOther / TOP / Brief / "
                            "Default"));
}

TEST_F(FeaturesControllerGpuTest, GpuThatCannotProcessIsNotUsed) {
    gpu.gpusAvailable = false;
    auto created = controller("LDAH", "LDAH");
    created.detect(image, keypoints);
    EXPECT_EQ(journal.at(0), "LDAH.setParams 0");
}

TEST_F(FeaturesControllerGpuTest, WithoutTheFeatureNoGpuIsAskedFor) {
    gpu.featureAvailable = false;
    auto created = controller("LDAH", "LDAH");
    created.detect(image, keypoints);
    EXPECT_EQ(journal.at(0), "LDAH.setParams 0");
    EXPECT_THAT(gpu.calls<test::GpusAvailableCall>(), IsEmpty());
}

TEST_F(FeaturesControllerGpuTest, BothConstructorsAndCreationCheckTheGpu) {
    { const auto created = controller("LDAH", "LDAH"); }
    EXPECT_EQ(gpu.calls<test::GpusAvailableCall>().size(), 2U);
    gpu.allCalls.clear();
    const FeaturesController created(std::make_unique<test::PlainDetector>(), nullptr, nullptr,
                                     std::make_unique<DefaultTransform>());
    EXPECT_EQ(gpu.calls<test::GpusAvailableCall>().size(), 1U);
}

// Fallback of the detector.

TEST_F(FeaturesControllerGpuTest, DetectorFailureFallsBackWithAWarningAndRepeats) {
    auto created = controller("LDAH", "LDAH");
    created.setFeatureSetParams(0.5, 1, 1, 1);
    gpuDetect = fail<cuda::CudaException>;
    created.detect(image, keypoints);
    EXPECT_EQ(keypoints.size(), 2U);
    // The parameters are set when the detector is replaced, and again for the repeated detection.
    EXPECT_EQ(journal,
              (Journal{"LDAHCuda.setParams 0.5", "LDAHCuda.detect 30x20 0.5", "LDAH.setParams 0.5",
                       "LDAH.setParams 0.5", "LDAH.detect 30x20 0.5"}));
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("6 [] |CudaException catch : Cuda processing error.. Falling back to "
                            "CPU code"));
}

TEST_F(FeaturesControllerGpuTest, LackOfResourcesFallsBackWithAnInformation) {
    auto created = controller("SIFT", "SIFT");
    gpuDetect = fail<cuda::CudaNoResourcesException>;
    created.detect(image, keypoints);
    EXPECT_EQ(keypoints.size(), 2U);
    EXPECT_EQ(journal.back(), "SIFT.detect 30x20 0.5");
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("2 [] |CudaException catch : Not enough resources for the detector."));
}

TEST_F(FeaturesControllerGpuTest, NextDetectionsStayOnTheCpu) {
    auto created = controller("LDAH", "LDAH");
    gpuDetect = fail<cuda::CudaException>;
    created.detect(image, keypoints);
    journal.clear();
    created.detect(image, keypoints);
    EXPECT_EQ(journal, (Journal{"LDAH.setParams 0", "LDAH.detect 30x20 0.5"}));
    EXPECT_EQ(linesAfterCreation().size(), 1U);
}

TEST_F(FeaturesControllerGpuTest, DetectorFallbackLeavesTheExtractorAlone) {
    auto created = controller("LDAH", "LDAH");
    gpuDetect = fail<cuda::CudaException>;
    created.detect(image, keypoints);
    journal.clear();
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(journal,
              (Journal{"extractor LDAHCuda.setParams 0", "extractor LDAHCuda.compute 30x20 0.5"}));
}

TEST_F(FeaturesControllerGpuTest, DetectorErrorAfterTheFallbackIsLogged) {
    auto created = controller("LDAH", "LDAH");
    gpuDetect = fail<cuda::CudaException>;
    cpuDetect = fail<std::bad_alloc>;
    keypoints.resize(3);
    created.detect(image, keypoints);
    EXPECT_THAT(keypoints, IsEmpty());
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("6 [] |CudaException catch : Cuda processing error.. Falling back to "
                            "CPU code",
                            "7 [] |Exception found trying to detect keypoints: std::bad_alloc"));
}

TEST_F(FeaturesControllerGpuTest, GpuFailureOfADetectorWithoutACpuVariantReachesTheCaller) {
    auto created = controller("LDAHOther", "LDAH");
    for (const auto& failure : {fail<cuda::CudaException>, fail<cuda::CudaNoResourcesException>}) {
        gpuDetect = failure;
        EXPECT_EQ(refusal([&] { created.detect(image, keypoints); }),
                  "Cannot fallback to CPU: LDAHOther");
    }
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("6 [] |CudaException catch : Cuda processing error.. Falling back to "
                            "CPU code",
                            "2 [] |CudaException catch : Not enough resources for the detector."));
}

TEST_F(FeaturesControllerGpuTest, GpuFailureOnTheCpuReachesTheCaller) {
    auto created = controller("LDAH", "LDAH");
    gpuDetect = fail<cuda::CudaException>;
    cpuDetect = fail<cuda::CudaException>;
    EXPECT_EQ(refusal([&] { created.detect(image, keypoints); }), "Cannot fallback to CPU: LDAH");
}

TEST_F(FeaturesControllerGpuTest, FallbackToAnUnregisteredDetectorReachesTheCaller) {
    auto created = controller("LDAH", "LDAH");
    extensibleFactoryInstance<IKeypointDetector>().registerType("LDAH", [] { return nullptr; });
    gpuDetect = fail<cuda::CudaException>;
    // The GPU detector stays in place under its own name, so a second failure ends the same way.
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(refusal([&] { created.detect(image, keypoints); }),
                  "FeaturesController - The creator of LDAH gave no object");
    }
    gpuDetect = cpuDetect;
    created.detect(image, keypoints);
    EXPECT_EQ(keypoints.size(), 2U);
}

// Fallback of the extractor.

TEST_F(FeaturesControllerGpuTest, ExtractorFailureFallsBackToAnExtractorOfItsOwn) {
    auto created = controller("LDAH", "LDAH");
    created.setFeatureSetParams(0.5, 1, 1, 1);
    gpuCompute = failToCompute<cuda::CudaException>;
    keypoints.resize(3);
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(descriptors.rows, 3);
    // The detector is still on the GPU, so it cannot serve as the extractor.
    EXPECT_EQ(journal,
              (Journal{"extractor LDAHCuda.setParams 0.5", "extractor LDAHCuda.compute 30x20 0.5",
                       "extractor LDAH.setParams 0.5", "extractor LDAH.setParams 0.5",
                       "extractor LDAH.compute 30x20 0.5"}));
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("6 [] |CudaException catch : Cuda processing error."));
}

TEST_F(FeaturesControllerGpuTest, ExtractorWithoutResourcesFallsBackWithAnInformation) {
    auto created = controller("SIFT", "SIFT");
    gpuCompute = failToCompute<cuda::CudaNoResourcesException>;
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(journal.back(), "extractor SIFT.compute 30x20 0.5");
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("2 [] |CudaException catch : Not enough resources for the detector."));
}

TEST_F(FeaturesControllerGpuTest, ExtractorAfterTheDetectorFallsBackToTheDetectorItself) {
    auto created = controller("LDAH", "LDAH");
    gpuDetect = fail<cuda::CudaException>;
    gpuCompute = failToCompute<cuda::CudaException>;
    created.detect(image, keypoints);
    journal.clear();
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(journal, (Journal{"extractor LDAHCuda.setParams 0",
                                "extractor LDAHCuda.compute 30x20 0.5", "LDAH.compute 30x20 0.5"}));
    EXPECT_EQ(descriptors.rows, 2);
}

TEST_F(FeaturesControllerGpuTest, FallbackToAnUnregisteredExtractorReachesTheCaller) {
    auto created = controller("LDAH", "LDAH");
    extensibleFactoryInstance<IDescriptorExtractor>().registerType("LDAH", [] { return nullptr; });
    gpuCompute = failToCompute<cuda::CudaException>;
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(refusal([&] { created.compute(image, keypoints, descriptors); }),
                  "FeaturesController - The creator of LDAH gave no object");
    }
    gpuCompute = cpuCompute;
    keypoints.resize(3);
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(descriptors.rows, 3);
}

TEST_F(FeaturesControllerGpuTest, NextDescriptionsStayOnTheCpu) {
    auto created = controller("LDAH", "LDAH");
    gpuCompute = failToCompute<cuda::CudaException>;
    created.compute(image, keypoints, descriptors);
    journal.clear();
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(journal, (Journal{"extractor LDAH.setParams 0", "extractor LDAH.compute 30x20 0.5"}));
}

TEST_F(FeaturesControllerGpuTest, GpuFailureOfAnExtractorWithoutACpuVariantReachesTheCaller) {
    auto created = controller("LDAH", "SIFTOther");
    for (const auto& failure :
         {failToCompute<cuda::CudaException>, failToCompute<cuda::CudaNoResourcesException>}) {
        gpuCompute = failure;
        EXPECT_EQ(refusal([&] { created.compute(image, keypoints, descriptors); }),
                  "Cannot fallback to CPU: SIFTOther");
    }
}

TEST_F(FeaturesControllerGpuTest, ProcessRunsThroughBothFallbacks) {
    auto created = controller("LDAH", "LDAH");
    created.setFeatureSetParams(1.0, 20, 30, 5);
    gpuDetect = fail<cuda::CudaNoResourcesException>;
    gpuCompute = failToCompute<cuda::CudaException>;
    created.process(image, keypoints, descriptors);
    EXPECT_EQ(keypoints.size(), 2U);
    EXPECT_EQ(descriptors.rows, 2);
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("2 [] |CudaException catch : Not enough resources for the detector.",
                            "6 [] |CudaException catch : Cuda processing error."));
    EXPECT_EQ(created.sizeOfDescriptors(), 16);
}

}  // namespace
}  // namespace marlo
