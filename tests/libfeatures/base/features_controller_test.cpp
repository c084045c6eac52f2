// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/features_controller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "libfeatures/base/cuda_exceptions.h"
#include "libfeatures/selectors/feature_selector_default.h"
#include "utilities/controller_fixture.h"

namespace marlo {
namespace {

using test::DetectorAndExtractor;
using test::Journal;
using test::PlainDetector;
using test::PlainSelector;
using test::ScaledDetector;
using test::ScaledExtractor;
using testing::ElementsAre;
using testing::IsEmpty;

class FeaturesControllerTest : public test::ControllerFixture {};

// Creation by names.

TEST_F(FeaturesControllerTest, LogsTheNamesItWasCreatedWith) {
    const auto created = controller("LDAH", "SIFT", "TOP", "Widening");
    EXPECT_THAT(log.lines(),
                ElementsAre("2 [] |FeaturesController - Created with "
                            "detector/selector/extractor/transform: LDAH / TOP / SIFT / Widening"));
}

TEST_F(FeaturesControllerTest, RefusesUnknownNamesOfEachKind) {
    EXPECT_EQ(refusal([] { controller("ldah", "LDAH"); }),
              "marlo::IKeypointDetector - The type (ldah) is not registered");
    EXPECT_EQ(refusal([] { controller("LDAH", "ORB"); }),
              "marlo::IDescriptorExtractor - The type (ORB) is not registered");
    EXPECT_EQ(refusal([] { controller("LDAH", "LDAH", "BEST"); }),
              "marlo::IKeypointSelector - The type (BEST) is not registered");
    EXPECT_EQ(refusal([] { controller("LDAH", "LDAH", "TOP", "Cubic"); }),
              "marlo::ITransform - The type (Cubic) is not registered");
    EXPECT_EQ(refusal([] { controller("LDAH", "LDAH", "TOP", ""); }),
              "marlo::ITransform - The type () is not registered");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FeaturesControllerTest, CreatesDetectorThenSelectorThenExtractorThenTransform) {
    EXPECT_EQ(refusal([] { controller("a", "b", "c", "d"); }),
              "marlo::IKeypointDetector - The type (a) is not registered");
    EXPECT_EQ(refusal([] { controller("LDAH", "b", "c", "d"); }),
              "marlo::IKeypointSelector - The type (c) is not registered");
    EXPECT_EQ(refusal([] { controller("LDAH", "b", "TOP", "d"); }),
              "marlo::IDescriptorExtractor - The type (b) is not registered");
}

TEST_F(FeaturesControllerTest, RefusesACreatorThatGivesNoObject) {
    EXPECT_EQ(refusal([] { controller("Nothing", "LDAH"); }),
              "FeaturesController - The creator of Nothing gave no object");
}

TEST_F(FeaturesControllerTest, EqualCpuNamesMakeOneObjectForBothRoles) {
    auto created = controller("LDAH", "LDAH");
    created.setFeatureSetParams(1.0, 20, 30, 5);
    created.process(image, keypoints, descriptors);
    EXPECT_EQ(journal,
              (Journal{"LDAH.setParams 1", "LDAH.detect 30x20 0.5", "TOP.setNumberOfKeypoints 5",
                       "TOP.select", "LDAH.compute 30x20 0.5"}));
}

TEST_F(FeaturesControllerTest, DifferentNamesMakeTwoObjects) {
    auto created = controller("LDAH", "SIFT");
    created.setFeatureSetParams(0.5, 20, 30, 5);
    created.process(image, keypoints, descriptors);
    EXPECT_EQ(journal,
              (Journal{"LDAH.setParams 0.5", "LDAH.detect 30x20 0.5", "TOP.setNumberOfKeypoints 5",
                       "TOP.select", "extractor SIFT.setParams 0.5",
                       "extractor SIFT.compute 30x20 0.5"}));
}

TEST_F(FeaturesControllerTest, DetectorThatCannotExtractGetsAnExtractorBesideIt) {
    extensibleFactoryInstance<IKeypointDetector>().registerType(
        "LDAH", [this] { return std::make_unique<ScaledDetector>("only detector", journal); });
    auto created = controller("LDAH", "LDAH");
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(journal, (Journal{"extractor LDAH.setParams 0", "extractor LDAH.compute 30x20 0.5"}));
}

TEST_F(FeaturesControllerTest, OnlyTheCpuNamesMakeOneObject) {
    extensibleFactoryInstance<IKeypointDetector>().registerType(
        "LDAHCuda", [this] { return std::make_unique<DetectorAndExtractor>("both", journal); });
    auto created = controller("LDAHCuda", "LDAHCuda");
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(journal,
              (Journal{"extractor LDAHCuda.setParams 0", "extractor LDAHCuda.compute 30x20 0.5"}));
}

// Creation from objects.

TEST_F(FeaturesControllerTest, LogsThatItWasCreatedFromObjects) {
    const FeaturesController created(std::make_unique<PlainDetector>(), nullptr, nullptr,
                                     std::make_unique<DefaultTransform>());
    EXPECT_THAT(log.lines(),
                ElementsAre("2 [features_controller:216] |FeaturesController - Created with "
                            "detector/selector/extractor/transform objects"));
}

TEST_F(FeaturesControllerTest, ObjectsRunTheWholeRoad) {
    FeaturesController created(std::make_unique<ScaledDetector>("detector", journal, cpuDetect),
                               std::make_unique<ScaledExtractor>("extractor", journal, cpuCompute),
                               std::make_unique<PlainSelector>("selector", journal),
                               std::make_unique<test::WideningTransform>(journal));
    created.setFeatureSetParams(2.0, 20, 30, 7);
    created.process(image, keypoints, descriptors);
    EXPECT_EQ(journal, (Journal{"transformImage 30x20", "detector.setParams 2",
                                "detector.detect 60x20 100.5", "selector.setNumberOfKeypoints 7",
                                "selector.select", "transformKeypointsBack 30x20",
                                "extractor.setParams 2", "extractor.compute 60x20 100.5"}));
    EXPECT_EQ(keypoints.size(), 2U);
    EXPECT_EQ(descriptors.rows, 2);
}

TEST_F(FeaturesControllerTest, DetectorObjectServesAsExtractorWhereThereIsNone) {
    FeaturesController created(
        std::make_unique<DetectorAndExtractor>("both", journal, cpuDetect, cpuCompute), nullptr,
        nullptr, std::make_unique<DefaultTransform>());
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(journal, Journal{"both.compute 30x20 0.5"});
}

TEST_F(FeaturesControllerTest, ObjectsAreNamedAfterTheirMode) {
    const auto sizeFor = [this](bool useSift) {
        auto detector = std::make_unique<ScaledDetector>("detector", journal);
        detector->useSift = useSift;
        return FeaturesController(std::move(detector), nullptr, nullptr,
                                  std::make_unique<DefaultTransform>())
            .sizeOfDescriptors();
    };
    EXPECT_EQ(sizeFor(false), 16);
    EXPECT_EQ(sizeFor(true), 128);
}

TEST_F(FeaturesControllerTest, ObjectsWithoutTheseParametersAreNotSupported) {
    FeaturesController created(std::make_unique<PlainDetector>(cpuDetect), nullptr, nullptr,
                               std::make_unique<DefaultTransform>());
    created.detect(image, keypoints);
    created.compute(image, keypoints, descriptors);
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to detect keypoints: Detector  not "
                            "supported in mapper.",
                            "7 [] |Exception found trying to compute descriptors: Descriptor "
                            "extractor  not supported in mapper."));
    EXPECT_EQ(refusal([&] { (void)created.sizeOfDescriptors(); }),
              "Unsupported type for the controller");
}

TEST_F(FeaturesControllerTest, ObjectsCannotGoWithoutDetectorOrTransform) {
    const char* const message =
        "FeaturesController - The detector and the transform must not be null";
    EXPECT_EQ(refusal([] {
                  FeaturesController(nullptr, nullptr, nullptr,
                                     std::make_unique<DefaultTransform>());
              }),
              message);
    EXPECT_EQ(refusal([] {
                  FeaturesController(std::make_unique<PlainDetector>(), nullptr, nullptr, nullptr);
              }),
              message);
}

TEST_F(FeaturesControllerTest, GpuFailureOfAnObjectReachesTheCaller) {
    FeaturesController created(std::make_unique<ScaledDetector>(
                                   "detector", journal, [](auto&) { throw cuda::CudaException(); }),
                               nullptr, nullptr, std::make_unique<DefaultTransform>());
    EXPECT_EQ(refusal([&] { created.detect(image, keypoints); }), "Cannot fallback to CPU: LDAH");
}

TEST_F(FeaturesControllerTest, GpuFailureOfASharedObjectReachesTheCaller) {
    auto both = std::make_unique<DetectorAndExtractor>(
        "both", journal, cpuDetect, [](auto&, auto&) { throw cuda::CudaException(); });
    both->useSift = true;
    FeaturesController created(std::move(both), nullptr, nullptr,
                               std::make_unique<DefaultTransform>());
    EXPECT_EQ(refusal([&] { created.compute(image, keypoints, descriptors); }),
              "Cannot fallback to CPU: SIFT");
}

// Detection.

TEST_F(FeaturesControllerTest, DetectWorksOnTheImageItself) {
    auto created = controller("LDAH", "LDAH", "TOP", "Widening");
    created.setFeatureSetParams(0.25, 20, 30, 5);
    keypoints.resize(9);
    created.detect(image, keypoints);
    EXPECT_EQ(journal, (Journal{"LDAH.setParams 0.25", "LDAH.detect 30x20 0.5"}));
    EXPECT_EQ(keypoints.size(), 2U);
}

TEST_F(FeaturesControllerTest, DetectTakesByteImages) {
    auto created = controller("SIFT", "SIFT");
    created.detect(ByteImage(ByteImage::Constant(4, 3, 7)), keypoints);
    EXPECT_EQ(journal, (Journal{"SIFT.setParams 0", "SIFT.detect 3x4 7"}));
}

TEST_F(FeaturesControllerTest, ScaleIsSetBeforeEveryDetection) {
    auto created = controller("LDAH", "LDAH");
    created.setFeatureSetParams(0.5, 20, 30, 5);
    created.detect(image, keypoints);
    created.setFeatureSetParams(0.1, 20, 30, 5);
    created.detect(image, keypoints);
    EXPECT_EQ(journal, (Journal{"LDAH.setParams 0.5", "LDAH.detect 30x20 0.5", "LDAH.setParams 0.1",
                                "LDAH.detect 30x20 0.5"}));
}

TEST_F(FeaturesControllerTest, DetectionErrorIsLoggedAndEmptiesTheKeypoints) {
    auto created = controller("LDAH", "LDAH");
    keypoints.resize(9);
    cpuDetect = [](std::vector<Keypoint>&) {
        throw std::runtime_error("Invalid image scale, should be > 0.0");
    };
    created.detect(image, keypoints);
    EXPECT_THAT(keypoints, IsEmpty());
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to detect keypoints: Invalid image "
                            "scale, should be > 0.0"));
}

TEST_F(FeaturesControllerTest, AnyStandardExceptionOfDetectionIsLogged) {
    auto created = controller("LDAH", "LDAH");
    cpuDetect = [](std::vector<Keypoint>&) { throw std::bad_alloc(); };
    created.detect(image, keypoints);
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to detect keypoints: std::bad_alloc"));
}

TEST_F(FeaturesControllerTest, DetectorOfAnotherFamilyIsNotSupported) {
    auto created = controller("Foreign", "LDAH");
    keypoints.resize(3);
    created.detect(image, keypoints);
    EXPECT_THAT(keypoints, IsEmpty());
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to detect keypoints: Detector Foreign "
                            "not supported in mapper."));
}

TEST_F(FeaturesControllerTest, DetectorNamesAreCaseSensitive) {
    extensibleFactoryInstance<IKeypointDetector>().registerType(
        "ldah", [this] { return std::make_unique<ScaledDetector>("lower case", journal); });
    auto created = controller("ldah", "LDAH");
    created.detect(image, keypoints);
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to detect keypoints: Detector ldah not "
                            "supported in mapper."));
}

TEST_F(FeaturesControllerTest, DetectorWithoutTheParametersIsLogged) {
    auto created = controller("SIFTPlain", "LDAH");
    created.detect(image, keypoints);
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to detect keypoints: This operation is "
                            "only implemented for LDAH feature detectors"));
}

// Description.

TEST_F(FeaturesControllerTest, ComputeTakesByteImages) {
    auto created = controller("LDAH", "SIFT");
    created.compute(ByteImage(ByteImage::Constant(4, 3, 7)), keypoints, descriptors);
    EXPECT_EQ(journal, (Journal{"extractor SIFT.setParams 0", "extractor SIFT.compute 3x4 7"}));
}

TEST_F(FeaturesControllerTest, SharedExtractorsParametersAreNotSetAgain) {
    auto created = controller("SIFT", "SIFT");
    created.setFeatureSetParams(0.5, 1, 1, 1);
    created.compute(image, keypoints, descriptors);
    EXPECT_EQ(journal, Journal{"SIFT.compute 30x20 0.5"});
}

TEST_F(FeaturesControllerTest, ComputeErrorIsLoggedAndReleasesTheDescriptors) {
    auto created = controller("LDAH", "SIFT");
    descriptors.create(4, 16, DescMat::Byte);
    cpuCompute = [](std::vector<Keypoint>&, DescMat&) { throw std::runtime_error("out of luck"); };
    created.compute(image, keypoints, descriptors);
    EXPECT_TRUE(descriptors.empty());
    EXPECT_EQ(descriptors.cols, 0);
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to compute descriptors: out of luck"));
}

TEST_F(FeaturesControllerTest, ExtractorOfAnotherFamilyIsNotSupported) {
    auto created = controller("LDAH", "Brief");
    created.compute(image, keypoints, descriptors);
    EXPECT_THAT(journal, IsEmpty());
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to compute descriptors: Descriptor "
                            "extractor Brief not supported in mapper."));
}

// Selection.

TEST_F(FeaturesControllerTest, SelectPassesTheNumberOnAndCopiesTheResult) {
    auto created = controller("LDAH", "LDAH");
    created.setFeatureSetParams(1.0, 480, 640, 1234);
    selectKeypoints = [](const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
        out = {in.back()};
    };
    std::vector<Keypoint> out(5);
    created.select({Keypoint(1, 2), Keypoint(3, 4)}, out);
    EXPECT_EQ(journal, (Journal{"TOP.setNumberOfKeypoints 1234", "TOP.select"}));
    ASSERT_EQ(out.size(), 1U);
    EXPECT_EQ(out[0].x, 3.0F);
}

TEST_F(FeaturesControllerTest, NegativeNumberIsSignExtended) {
    auto created = controller("LDAH", "LDAH");
    created.setFeatureSetParams(1.0, 480, 640, -1);
    std::vector<Keypoint> out;
    created.select({Keypoint()}, out);
    EXPECT_EQ(journal.at(0), "TOP.setNumberOfKeypoints 18446744073709551615");
}

TEST_F(FeaturesControllerTest, SdcSelectorGetsWidthThenHeight) {
    auto created = controller("LDAH", "LDAH", "SDC");
    created.setFeatureSetParams(1.0, 480, 640, 10);
    std::vector<Keypoint> out;
    created.select({Keypoint()}, out);
    EXPECT_EQ(journal, (Journal{"SDC.setNumberOfKeypoints 10", "SDC.params 640 480 0.25 0.1",
                                "SDC.select"}));
}

TEST_F(FeaturesControllerTest, AnmsSelectorGetsItsRobustness) {
    extensibleFactoryInstance<IKeypointSelector>().registerType("ANMSBound", [this] {
        auto selector = std::make_unique<test::AnmsLikeSelector>("ANMSBound", journal);
        selector->setRobustness(0.1F);
        return selector;
    });
    auto created = controller("LDAH", "LDAH", "ANMSBound");
    std::vector<Keypoint> out;
    created.select({Keypoint()}, out);
    EXPECT_EQ(journal, (Journal{"ANMSBound.setNumberOfKeypoints 0", "ANMSBound.params 0.8",
                                "ANMSBound.select"}));
}

TEST_F(FeaturesControllerTest, DefaultSelectorGetsHeightThenWidth) {
    extensibleFactoryInstance<IKeypointSelector>().registerType(
        "Default", [] { return std::make_unique<KeypointSelectorDefault>(); });
    auto created = controller("LDAH", "LDAH", "Default");
    // Height 40 and width 6000 give 12 rows of cells over 40 pixels, so that y = 4 and y = 5 fall
    // to rows trunc(1.7) and trunc(2.0). The other way round, 1732 rows over 6000 pixels put both
    // into row 1, where only the stronger would be kept.
    created.setFeatureSetParams(1.0, 40, 6000, 10);
    std::vector<Keypoint> out;
    created.select({Keypoint(0, 4, 1, 0, 0.5F, 0, 1), Keypoint(0, 5, 1, 0, 0.75F, 0, 1)}, out);
    EXPECT_EQ(out.size(), 2U);
}

// Whether a selector is configured depends on the key that it is registered under.
class SelectorKeyTest : public test::ControllerFixture {
protected:
    Journal journalOf(const char* key, ExtensibleFactory<IKeypointSelector>::Creator creator) {
        extensibleFactoryInstance<IKeypointSelector>().registerType(key, std::move(creator));
        auto created = controller("LDAH", "LDAH", key);
        created.setFeatureSetParams(1.0, 480, 640, 10);
        std::vector<Keypoint> out;
        created.select({Keypoint()}, out);
        return journal;
    }
    Journal sdcJournalOf(const char* key) {
        return journalOf(
            key, [this] { return std::make_unique<test::SdcLikeSelector>("sdc", journal); });
    }
    Journal anmsJournalOf(const char* key) {
        return journalOf(key, [this] {
            auto selector = std::make_unique<test::AnmsLikeSelector>("anms", journal);
            selector->setRobustness(0.1F);  // not the 0.8 that the controller sets
            return selector;
        });
    }
};

TEST_F(SelectorKeyTest, AnyKeyThatBeginsWithSdcIsConfigured) {
    EXPECT_THAT(sdcJournalOf("SDCx"), testing::Contains("sdc.params 640 480 0.25 0.1"));
}

TEST_F(SelectorKeyTest, SdcInLowerCaseIsNot) {
    EXPECT_THAT(sdcJournalOf("sdc"), testing::Contains("sdc.params 0 0 0 0"));
}

TEST_F(SelectorKeyTest, SdcFurtherOnInTheKeyIsNot) {
    EXPECT_THAT(sdcJournalOf("xSDC"), testing::Contains("sdc.params 0 0 0 0"));
}

TEST_F(SelectorKeyTest, AnyKeyThatBeginsWithAnmsIsConfigured) {
    EXPECT_THAT(anmsJournalOf("ANMSx"), testing::Contains("anms.params 0.8"));
}

TEST_F(SelectorKeyTest, AnmsInLowerCaseIsNot) {
    EXPECT_THAT(anmsJournalOf("anms"), testing::Contains("anms.params 0.1"));
}

TEST_F(FeaturesControllerTest, AnyKeyThatBeginsWithDefaultIsConfigured) {
    extensibleFactoryInstance<IKeypointSelector>().registerType(
        "Defaultx", [] { return std::make_unique<KeypointSelectorDefault>(); });
    auto created = controller("LDAH", "LDAH", "Defaultx");
    created.setFeatureSetParams(1.0, 480, 640, 10);
    std::vector<Keypoint> out;
    created.select({Keypoint(1, 2, 3, 0, 0.5F, 0, 1)}, out);
    EXPECT_EQ(out.size(), 1U);
}

TEST_F(FeaturesControllerTest, SelectionErrorIsLoggedAndEmptiesTheOutput) {
    auto created = controller("LDAH", "LDAH");
    selectKeypoints = [](const std::vector<Keypoint>&, std::vector<Keypoint>&) {
        throw std::runtime_error("no choice");
    };
    std::vector<Keypoint> out(3);
    created.select({Keypoint()}, out);
    EXPECT_THAT(out, IsEmpty());
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to select keypoints: no choice"));
}

TEST_F(FeaturesControllerTest, ParametersOutOfRangeAreLoggedBeforeSelection) {
    auto created = controller("LDAH", "LDAH", "SDC");
    std::vector<Keypoint> out(3);
    created.select({Keypoint()}, out);  // width and height were never set
    EXPECT_THAT(journal, IsEmpty());
    EXPECT_THAT(out, IsEmpty());
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to select keypoints: Some of the "
                            "parameters is out of range"));
}

TEST_F(FeaturesControllerTest, SelectorThatDoesNotFitItsNameIsLogged) {
    auto created = controller("LDAH", "LDAH", "SDCWrong");
    std::vector<Keypoint> out;
    created.select({Keypoint()}, out);
    EXPECT_THAT(linesAfterCreation(),
                ElementsAre("7 [] |Exception found trying to select keypoints: This operation is "
                            "only implemented for the SDC Keypoint Selectors"));
}

TEST_F(FeaturesControllerTest, WithoutSelectorTheOutputIsUnchanged) {
    auto created = controller("LDAH", "LDAH", "");
    std::vector<Keypoint> out(3);
    created.select({Keypoint()}, out);
    EXPECT_EQ(out.size(), 3U);
    EXPECT_THAT(linesAfterCreation(), IsEmpty());
}

// The whole road.

TEST_F(FeaturesControllerTest, ProcessMapsKeypointsBackAndDescribesTheWorkingImage) {
    auto created = controller("LDAH", "SIFT", "TOP", "Widening");
    created.setFeatureSetParams(1.0, 20, 30, 5);
    std::vector<Keypoint> described;
    cpuCompute = [&described](std::vector<Keypoint>& in, DescMat& out) {
        described = in;
        allocateDescriptors(out, static_cast<int>(in.size()), true);
    };
    created.process(image, keypoints, descriptors);
    EXPECT_EQ(journal,
              (Journal{"transformImage 30x20", "LDAH.setParams 1", "LDAH.detect 60x20 100.5",
                       "TOP.setNumberOfKeypoints 5", "TOP.select", "transformKeypointsBack 30x20",
                       "extractor SIFT.setParams 1", "extractor SIFT.compute 60x20 100.5"}));
    ASSERT_EQ(keypoints.size(), 2U);
    EXPECT_EQ(keypoints[0].x, 1.5F);
    EXPECT_EQ(keypoints[1].x, 4.5F);
    ASSERT_EQ(described.size(), 2U);
    EXPECT_EQ(described[0].x, 1.0F);
    EXPECT_EQ(described[1].x, 4.0F);
    EXPECT_EQ(descriptors.rows, 2);
    EXPECT_EQ(descriptors.cols, 128);
}

TEST_F(FeaturesControllerTest, ProcessTakesByteImages) {
    auto created = controller("LDAH", "LDAH");
    created.setFeatureSetParams(1.0, 4, 3, 5);
    created.process(ByteImage(ByteImage::Constant(4, 3, 7)), keypoints, descriptors);
    EXPECT_EQ(journal, (Journal{"LDAH.setParams 1", "LDAH.detect 3x4 7",
                                "TOP.setNumberOfKeypoints 5", "TOP.select", "LDAH.compute 3x4 7"}));
}

TEST_F(FeaturesControllerTest, ProcessGivesSelectorsTheUnscaledWorkingSizeTruncated) {
    auto created = controller("LDAH", "LDAH", "SDC", "Widening");
    created.setFeatureSetParams(0.7, 1, 1, 5);  // 60 / 0.7 = 85.7..., 20 / 0.7 = 28.5...
    created.process(image, keypoints, descriptors);
    EXPECT_THAT(journal, testing::Contains("SDC.params 85 28 0.25 0.1"));
    created.setFeatureSetParams(0.6, 1, 1, 5);  // 60 / 0.6 is 100 in double precision, 99 in single
    created.process(image, keypoints, descriptors);
    EXPECT_THAT(journal, testing::Contains("SDC.params 100 33 0.25 0.1"));
}

TEST_F(FeaturesControllerTest, ScalesThatGiveNoSizeAreRefusedBySelectors) {
    for (const double scale : {0.0, std::numeric_limits<double>::quiet_NaN(), 1e-300, -1e-300}) {
        journal.clear();
        auto created = controller("LDAH", "LDAH", "SDC");
        created.setFeatureSetParams(scale, 1, 1, 5);
        created.process(image, keypoints, descriptors);
        EXPECT_THAT(keypoints, IsEmpty()) << scale;
        EXPECT_THAT(log.lines().back(),
                    "7 [] |Exception found trying to select keypoints: Some of the parameters is "
                    "out of range");
    }
}

TEST_F(FeaturesControllerTest, ProcessDescribesOnlyWhatWasSelected) {
    auto created = controller("LDAH", "LDAH");
    created.setFeatureSetParams(1.0, 20, 30, 1);
    selectKeypoints = [](const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
        out = {in.back()};
    };
    created.process(image, keypoints, descriptors);
    ASSERT_EQ(keypoints.size(), 1U);
    EXPECT_EQ(keypoints[0].x, 4.0F);
    EXPECT_EQ(descriptors.rows, 1);
}

TEST_F(FeaturesControllerTest, ProcessWithoutSelectorGivesNothing) {
    auto created = controller("LDAH", "LDAH", "");
    created.setFeatureSetParams(1.0, 20, 30, 5);
    keypoints.resize(4);
    descriptors.create(4, 16, DescMat::Byte);
    created.process(image, keypoints, descriptors);
    EXPECT_THAT(keypoints, IsEmpty());
    EXPECT_TRUE(descriptors.empty());
}

TEST_F(FeaturesControllerTest, ProcessGoesOnWithoutKeypointsAfterADetectionError) {
    auto created = controller("LDAH", "LDAH");
    created.setFeatureSetParams(1.0, 20, 30, 5);
    cpuDetect = [](std::vector<Keypoint>&) { throw std::runtime_error("blind"); };
    keypoints.resize(4);
    created.process(image, keypoints, descriptors);
    EXPECT_THAT(keypoints, IsEmpty());
    EXPECT_TRUE(descriptors.empty());
}

TEST_F(FeaturesControllerTest, ProcessRefusesAnExtractorThatDropsKeypoints) {
    auto created = controller("LDAH", "LDAH");
    created.setFeatureSetParams(1.0, 20, 30, 5);
    cpuCompute = [](std::vector<Keypoint>& in, DescMat& out) {
        in.pop_back();
        allocateDescriptors(out, static_cast<int>(in.size()), false);
    };
    EXPECT_EQ(refusal([&] { created.process(image, keypoints, descriptors); }),
              "[features_controller:462] keypoint size missmatch. Reason: The Spherical transform "
              "is not compatible with the descriptor extractor");
}

TEST_F(FeaturesControllerTest, ProcessKeepsKeypointsWhenDescriptionFails) {
    auto created = controller("LDAH", "LDAH");
    created.setFeatureSetParams(1.0, 20, 30, 5);
    cpuCompute = [](std::vector<Keypoint>&, DescMat&) { throw std::runtime_error("speechless"); };
    created.process(image, keypoints, descriptors);
    EXPECT_EQ(keypoints.size(), 2U);
    EXPECT_TRUE(descriptors.empty());
}

// Questions.

TEST_F(FeaturesControllerTest, SizeOfDescriptorsFollowsTheDetectorsName) {
    EXPECT_EQ(controller("LDAH", "SIFT").sizeOfDescriptors(), 16);
    EXPECT_EQ(controller("LDAHCuda", "SIFT").sizeOfDescriptors(), 16);
    EXPECT_EQ(controller("SIFT", "LDAH").sizeOfDescriptors(), 128);
    EXPECT_EQ(controller("SIFTCuda", "LDAH").sizeOfDescriptors(), 128);
    extensibleFactoryInstance<IKeypointDetector>().registerType(
        "ldah", [] { return std::make_unique<PlainDetector>(); });
    for (const char* const other : {"Foreign", "ldah"}) {
        EXPECT_EQ(refusal([&] { (void)controller(other, "LDAH").sizeOfDescriptors(); }),
                  "Unsupported type for the controller");
    }
}

TEST_F(FeaturesControllerTest, AnswersForItsDetector) {
    for (const bool answer : {false, true}) {
        auto detector = std::make_unique<PlainDetector>();
        detector->orientations = answer;
        detector->intImages = !answer;
        const FeaturesController created(std::move(detector), nullptr, nullptr,
                                         std::make_unique<DefaultTransform>());
        EXPECT_EQ(created.detectorHasOrientations(), answer);
        EXPECT_EQ(created.supportsIntImageInput(), !answer);
    }
}

// Lifetime.

TEST_F(FeaturesControllerTest, DestroysASharedObjectOnce) {
    { const auto created = controller("LDAH", "LDAH"); }
    EXPECT_EQ(journal, Journal{"LDAH destroyed"});
}

TEST_F(FeaturesControllerTest, CanBeMoved) {
    auto first = controller("LDAH", "LDAH");
    first.setFeatureSetParams(0.5, 20, 30, 5);
    FeaturesController second = std::move(first);
    second.detect(image, keypoints);
    EXPECT_EQ(journal.at(0), "LDAH.setParams 0.5");
}

}  // namespace
}  // namespace marlo
