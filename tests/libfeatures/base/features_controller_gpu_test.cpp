// SPDX-License-Identifier: BSD-3-Clause
// The controller's choice between GPU and CPU, over a GPU library that does as it is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "libfeatures/base/cuda_exceptions.h"
#include "libfeatures/base/features_controller.h"
#include "libfeatures/base/parameter_setters.h"
#include "libfeatures/base/registration.h"
#include "libfeatures/descriptors/sift_ldah_descriptor.h"
#include "libfeatures/detectors/features_2d_sift_ldah.h"
#include "utilities/controller_fixture.h"
#include "utilities/keypoint_fields.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using test::fieldsOf;
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

// The library's own plug-ins.

constexpr char kNoResources[] =
    "2 [] |CudaException catch : Not enough resources for the detector.";
constexpr char kDetectionFailed[] =
    "6 [] |CudaException catch : Cuda processing error.. Falling back to CPU code";
constexpr char kDescriptionFailed[] = "6 [] |CudaException catch : Cuda processing error.";

std::vector<unsigned char> bytesOf(const DescMat& rows) {
    return {rows.data, rows.data + static_cast<std::size_t>(rows.rows) * rows.step};
}

class FeaturesControllerGpuPlugInsTest : public testing::Test {
protected:
    FeaturesControllerGpuPlugInsTest() {
        registerMainFeatureDetectors();
        registerMainDescriptorExtractors();
        registerMainKeypointSelectors();
        registerMainTransforms();
        gpu.reset();
        gpu.featureAvailable = gpu.gpusAvailable = true;
        gpu.maximumKeypoints = 1000;
        gpu.keypoints = {Keypoint(20.0F, 31.0F, 2.0F, 0.5F, 0.75F, 0, 1),
                         Keypoint(40.5F, 12.0F, 5.0F, -2.0F, 0.5F, 1, 3),
                         Keypoint(33.0F, 28.0F, 9.0F, 3.0F, 0.25F, 2, 2)};
        gpu.gradientPyramid.onSuccess = writeGradients;
    }

    test::StandIn& gpu = test::StandIn::instance();
    const test::CapturedLog log;
    const QString ldah = QStringLiteral("LDAH");
    const QString sift = QStringLiteral("SIFT");
    const FloatImage image = test::photographLikeImage(64, 80, 1);
    std::vector<Keypoint> keypoints;
    DescMat descriptors;

    // Gradients that come from no image, so that rows show which of the two made them.
    static void writeGradients(const test::GradientPyramidCall& call) {
        for (std::size_t i = 0; i < 12; ++i) {
            if (i % 4 == 0) continue;
            const auto pixels =
                static_cast<Eigen::Index>((call.rows >> (i / 4)) * (call.cols >> (i / 4)));
            const auto seed = static_cast<std::uint32_t>(2 * i);
            const FloatImage magnitude = test::noiseImage(1, pixels, seed);
            const FloatImage orientation = test::noiseImage(1, pixels, seed + 1, -3.0F, 3.0F);
            std::copy_n(magnitude.data(), pixels, call.magnitudes[i]);
            std::copy_n(orientation.data(), pixels, call.orientations[i]);
        }
    }

    static FeaturesController controller(const QString& name, double imageScale = 0.5,
                                         const char* selector = "TOP") {
        FeaturesController created(name, name, QLatin1String(selector), QStringLiteral("Default"));
        created.setFeatureSetParams(imageScale, 128, 160, 20);
        return created;
    }

    // Without what selectors say about how many keypoints they are given.
    [[nodiscard]] std::vector<std::string> linesAfterCreation() const {
        std::vector<std::string> lines = log.lines();
        lines.erase(lines.begin());
        std::erase_if(lines, [](const std::string& line) { return line.front() == '3'; });
        return lines;
    }
    [[nodiscard]] std::size_t gpuDetections() const {
        return gpu.calls<test::DetectLdahCall>().size();
    }
    [[nodiscard]] std::size_t gpuDescriptions() const {
        return gpu.calls<test::GradientPyramidCall>().size();
    }

    // What the GPU finds in an image of half the size.
    [[nodiscard]] std::vector<Keypoint> foundOnGpu() const {
        std::vector<Keypoint> found = gpu.keypoints;
        for (Keypoint& keypoint : found) {
            keypoint.x *= 2.0F;
            keypoint.y *= 2.0F;
            keypoint.scale *= 2.0F;
        }
        return found;
    }
    [[nodiscard]] std::vector<Keypoint> foundOnCpu() const {
        const auto detector = Features2dSiftLdah::createDetectorLDAH();
        setFeaDetSiftLdahParams(detector.get(), 0.5F);
        std::vector<Keypoint> found;
        detector->detect(image, found);
        return found;
    }
    std::vector<unsigned char> describedBy(std::unique_ptr<IDescriptorExtractor> extractor,
                                           std::vector<Keypoint> of) {
        setDescSiftLdahParams(extractor.get(), 0.5F);
        DescMat rows;
        extractor->compute(image, of, rows);
        return bytesOf(rows);
    }
};

TEST_F(FeaturesControllerGpuPlugInsTest, DetectorAndExtractorAreThoseOfTheGpu) {
    auto created = controller(ldah);
    EXPECT_THAT(log.lines(),
                ElementsAre("2 [] |FeaturesController - Created with "
                            "detector/selector/extractor/transform: LDAHCuda / TOP / LDAHCuda / "
                            "Default"));
    created.detect(image, keypoints);
    ASSERT_EQ(gpuDetections(), 1U);
    EXPECT_EQ(gpu.calls<test::DetectLdahCall>()[0].data, image.data());
    EXPECT_EQ(fieldsOf(keypoints), fieldsOf(foundOnGpu()));
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(gpuDescriptions(), 1U);
    EXPECT_EQ(bytesOf(descriptors),
              describedBy(SiftLdahDescriptor::createDescriptorLDAH(), foundOnGpu()));
    EXPECT_THAT(linesAfterCreation(), IsEmpty());
    EXPECT_EQ(created.sizeOfDescriptors(), 16);
    EXPECT_TRUE(created.detectorHasOrientations());
    EXPECT_FALSE(created.supportsIntImageInput());
}

TEST_F(FeaturesControllerGpuPlugInsTest, SiftRowsStartFromTheSameDetector) {
    auto created = controller(sift);
    created.detect(image, keypoints);
    EXPECT_EQ(gpuDetections(), 1U);
    EXPECT_EQ(fieldsOf(keypoints), fieldsOf(foundOnGpu()));
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(descriptors.cols, 128);
    EXPECT_EQ(bytesOf(descriptors),
              describedBy(SiftLdahDescriptor::createDescriptorSIFT(), foundOnGpu()));
    EXPECT_EQ(created.sizeOfDescriptors(), 128);
}

TEST_F(FeaturesControllerGpuPlugInsTest, WithoutAGpuTheLibraryIsNotAsked) {
    gpu.gpusAvailable = false;
    auto created = controller(ldah);
    created.process(image, keypoints, descriptors);
    EXPECT_EQ(keypoints.size(), 20U);
    EXPECT_EQ(descriptors.rows, 20);
    EXPECT_EQ(gpuDetections(), 0U);
    EXPECT_EQ(gpuDescriptions(), 0U);
}

TEST_F(FeaturesControllerGpuPlugInsTest, ProcessSelectsAndDescribesWhatTheGpuFound) {
    auto created = controller(ldah);
    created.setFeatureSetParams(0.5, 128, 160, 2);
    created.process(image, keypoints, descriptors);
    std::vector<Keypoint> strongest = foundOnGpu();
    strongest.pop_back();
    EXPECT_EQ(fieldsOf(keypoints), fieldsOf(strongest));
    EXPECT_EQ(bytesOf(descriptors),
              describedBy(SiftLdahDescriptor::createDescriptorLDAH(), strongest));
    EXPECT_THAT(linesAfterCreation(), IsEmpty());
}

TEST_F(FeaturesControllerGpuPlugInsTest, ProcessWithoutSelectorGivesNothing) {
    auto created = controller(ldah, 0.5, "");
    created.process(image, keypoints, descriptors);
    EXPECT_THAT(keypoints, IsEmpty());
    EXPECT_EQ(descriptors.rows, 0);
}

TEST_F(FeaturesControllerGpuPlugInsTest, FailedDetectionsGoToTheCpuForGood) {
    const std::vector<Keypoint> expected = foundOnCpu();
    ASSERT_GT(expected.size(), 20U);
    const std::vector<std::pair<int, std::string>> failures = {
        {1, kNoResources}, {2, kNoResources}, {3, kDetectionFailed}, {-1, kDetectionFailed}};
    for (const QString& name : {ldah, sift}) {
        for (const auto& [status, line] : failures) {
            const std::size_t linesBefore = log.lines().size() + 1;  // the one of the creation
            gpu.detectLdah.statuses = {status};
            gpu.allCalls.clear();
            auto created = controller(name);
            created.detect(image, keypoints);
            EXPECT_EQ(fieldsOf(keypoints), fieldsOf(expected));
            keypoints.clear();
            created.detect(image, keypoints);
            EXPECT_EQ(fieldsOf(keypoints), fieldsOf(expected));
            EXPECT_EQ(gpuDetections(), 1U) << name.toStdString() << ' ' << status;
            const std::vector<std::string> lines = log.lines();
            ASSERT_EQ(lines.size(), linesBefore + 1) << name.toStdString() << ' ' << status;
            EXPECT_EQ(lines.back(), line) << name.toStdString() << ' ' << status;
        }
    }
}

TEST_F(FeaturesControllerGpuPlugInsTest, AnotherControllerTriesTheGpuAgain) {
    gpu.detectLdah.statuses = {3};
    controller(ldah).detect(image, keypoints);
    controller(ldah).detect(image, keypoints);
    EXPECT_EQ(gpuDetections(), 2U);
    EXPECT_EQ(fieldsOf(keypoints), fieldsOf(foundOnGpu()));
}

TEST_F(FeaturesControllerGpuPlugInsTest, ExtractorStaysOnTheGpuWhenDetectionFails) {
    gpu.detectLdah.status = 3;
    auto created = controller(ldah);
    created.process(image, keypoints, descriptors);
    ASSERT_EQ(keypoints.size(), 20U);
    EXPECT_EQ(gpuDescriptions(), 1U);
    EXPECT_EQ(bytesOf(descriptors),
              describedBy(SiftLdahDescriptor::createDescriptorLDAH(), keypoints));
}

TEST_F(FeaturesControllerGpuPlugInsTest, FailedDescriptionsGoToTheCpuForGoodAndDetectionStays) {
    const std::vector<std::pair<int, std::string>> failures = {
        {2, kNoResources}, {1, kDescriptionFailed}, {3, kDescriptionFailed}};
    const std::vector<unsigned char> expected =
        describedBy(Features2dSiftLdah::createDescriptorLDAH(), foundOnGpu());
    for (const auto& [status, line] : failures) {
        const std::size_t linesBefore = log.lines().size() + 1;
        gpu.gradientPyramid.statuses = {status};
        gpu.allCalls.clear();
        auto created = controller(ldah);
        for (int run = 0; run < 2; ++run) {
            created.detect(image, keypoints);
            EXPECT_EQ(fieldsOf(keypoints), fieldsOf(foundOnGpu()));
            created.compute(image, keypoints, descriptors);
            EXPECT_EQ(bytesOf(descriptors), expected) << status;
        }
        EXPECT_EQ(gpuDetections(), 2U);
        EXPECT_EQ(gpuDescriptions(), 1U);
        const std::vector<std::string> lines = log.lines();
        ASSERT_EQ(lines.size(), linesBefore + 1) << status;
        EXPECT_EQ(lines.back(), line) << status;
    }
}

TEST_F(FeaturesControllerGpuPlugInsTest, WhenBothFailEverythingIsAsOnTheCpu) {
    gpu.detectLdah.status = 1;
    gpu.gradientPyramid.status = 3;
    auto created = controller(sift);
    created.process(image, keypoints, descriptors);
    EXPECT_THAT(linesAfterCreation(), ElementsAre(kNoResources, kDescriptionFailed));

    gpu.gpusAvailable = false;
    std::vector<Keypoint> keypointsOfCpu;
    DescMat descriptorsOfCpu;
    controller(sift).process(image, keypointsOfCpu, descriptorsOfCpu);
    EXPECT_EQ(fieldsOf(keypoints), fieldsOf(keypointsOfCpu));
    EXPECT_EQ(bytesOf(descriptors), bytesOf(descriptorsOfCpu));
}

TEST_F(FeaturesControllerGpuPlugInsTest, AScaleThatWasNotSetIsAnErrorAndNoReasonToLeaveTheGpu) {
    auto created = controller(ldah, 0.0);
    keypoints.resize(3);
    created.detect(image, keypoints);
    EXPECT_THAT(keypoints, IsEmpty());
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to detect keypoints: Invalid image "
                            "scale, should be > 0.0"));
    EXPECT_EQ(gpuDetections(), 0U);
    created.setFeatureSetParams(0.5, 128, 160, 20);
    created.detect(image, keypoints);
    EXPECT_EQ(fieldsOf(keypoints), fieldsOf(foundOnGpu()));
}

TEST_F(FeaturesControllerGpuPlugInsTest, ByteImagesAreAnErrorAndNoReasonToLeaveTheGpu) {
    auto created = controller(ldah);
    created.detect(ByteImage(ByteImage::Zero(20, 20)), keypoints);
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to detect keypoints: ui8 image version "
                            "of detect not implemented"));
    created.detect(image, keypoints);
    EXPECT_EQ(gpuDetections(), 1U);
}

TEST_F(FeaturesControllerGpuPlugInsTest, FindingNothingIsNoReasonToLeaveTheGpu) {
    gpu.keypoints.clear();
    auto created = controller(ldah);
    for (int run = 0; run < 2; ++run) {
        created.detect(image, keypoints);
        EXPECT_THAT(keypoints, IsEmpty());
    }
    EXPECT_EQ(gpuDetections(), 2U);
    EXPECT_THAT(linesAfterCreation(), IsEmpty());
}

TEST_F(FeaturesControllerGpuPlugInsTest, DetectorAndExtractorOfDifferentKindsAreReplacedEach) {
    FeaturesController created(ldah, sift, QStringLiteral("TOP"), QStringLiteral("Default"));
    created.setFeatureSetParams(0.5, 128, 160, 20);
    gpu.detectLdah.status = 3;
    gpu.gradientPyramid.status = 3;
    created.process(image, keypoints, descriptors);
    EXPECT_EQ(keypoints.size(), 20U);
    EXPECT_EQ(descriptors.cols, 128);
    EXPECT_EQ(bytesOf(descriptors),
              describedBy(Features2dSiftLdah::createDescriptorSIFT(), keypoints));
    EXPECT_EQ(created.sizeOfDescriptors(), 16);  // goes by the detector's name
}

}  // namespace
}  // namespace marlo
