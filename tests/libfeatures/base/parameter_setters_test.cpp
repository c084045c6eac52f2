// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/parameter_setters.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include "libfeatures/selectors/feature_selector_default.h"
#include "libfeatures/selectors/feature_selector_top.h"
#include "utilities/hand_written_plug_ins.h"

namespace marlo {
namespace {

using test::AnmsLikeSelector;
using test::DiagonalMatcher;
using test::Journal;
using test::PlainDetector;
using test::ScaledDetector;
using test::ScaledExtractor;
using test::SdcLikeSelector;

// The text of the runtime_error, and of no other exception, that the action throws.
template <typename Action>
std::string refusal(Action action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "accepted";
}

class PlainMatcher : public IDescriptorMatcher {
public:
    [[nodiscard]] std::unique_ptr<IDescriptorMatcher> clone() const override {
        return std::make_unique<PlainMatcher>(*this);
    }
    [[nodiscard]] std::vector<DMatch> match(const DescMat&, const DescMat&) const override {
        return {};
    }
    [[nodiscard]] QString kernelName() const override { return {}; }
};

class PlainExtractor : public IDescriptorExtractor {
public:
    [[nodiscard]] std::unique_ptr<IDescriptorExtractor> cloneExtractor() const override {
        return std::make_unique<PlainExtractor>(*this);
    }
    void compute(const ByteImage&, std::vector<Keypoint>&, DescMat&) override {}
    void compute(const FloatImage&, std::vector<Keypoint>&, DescMat&) override {}
};

TEST(SetFeaDetSiftLdahParamsTest, ForwardsTheScaleUnchanged) {
    Journal journal;
    ScaledDetector detector("detector", journal);
    setFeaDetSiftLdahParams(&detector, -0.5F);
    EXPECT_EQ(detector.imageScale, -0.5F);
    EXPECT_EQ(journal, Journal{"detector.setParams -0.5"});  // through the virtual function
}

TEST(SetFeaDetSiftLdahParamsTest, RefusesOtherDetectorsAndNull) {
    const std::string message = "This operation is only implemented for LDAH feature detectors";
    PlainDetector detector;
    EXPECT_EQ(refusal([&] { setFeaDetSiftLdahParams(&detector, 1.0F); }), message);
    EXPECT_EQ(refusal([] { setFeaDetSiftLdahParams(nullptr, 1.0F); }), message);
}

TEST(SetDescSiftLdahParamsTest, ForwardsTheScaleUnchanged) {
    Journal journal;
    ScaledExtractor extractor("extractor", journal);
    setDescSiftLdahParams(&extractor, 0.0F);
    EXPECT_EQ(journal, Journal{"extractor.setParams 0"});
}

TEST(SetDescSiftLdahParamsTest, RefusesOtherExtractorsAndNull) {
    const std::string message = "This operation is only implemented for LDAH feature descriptors";
    PlainExtractor extractor;
    EXPECT_EQ(refusal([&] { setDescSiftLdahParams(&extractor, 1.0F); }), message);
    EXPECT_EQ(refusal([] { setDescSiftLdahParams(nullptr, 1.0F); }), message);
}

TEST(SetDescriptorMatcherDistFracParamsTest, DefaultsAreTheStatedOnes) {
    const DiagonalMatcher matcher;
    EXPECT_EQ(matcher.maxHammingDistance, 50U);
    EXPECT_EQ(matcher.maxDistance, 1000000.0F);
    EXPECT_EQ(matcher.distanceFraction, 0.8F);
    EXPECT_TRUE(matcher.kernelName().isEmpty());
}

TEST(SetDescriptorMatcherDistFracParamsTest, UnsignedNumberSetsTheHammingLimitOnly) {
    DiagonalMatcher matcher;
    setDescriptorMatcherDistFracParams(&matcher, 7U, 0.5F);
    EXPECT_EQ(matcher.maxHammingDistance, 7U);
    EXPECT_EQ(matcher.maxDistance, 1000000.0F);
    EXPECT_EQ(matcher.distanceFraction, 0.5F);
}

TEST(SetDescriptorMatcherDistFracParamsTest, FloatSetsTheFloatLimitOnly) {
    DiagonalMatcher matcher;
    setDescriptorMatcherDistFracParams(&matcher, 7.0F, 0.5F);
    EXPECT_EQ(matcher.maxHammingDistance, 50U);
    EXPECT_EQ(matcher.maxDistance, 7.0F);
    EXPECT_EQ(matcher.distanceFraction, 0.5F);
}

TEST(SetDescriptorMatcherDistFracParamsTest, RefusesOtherMatchersAndNull) {
    const std::string message = "Operation only implemented for the DistFract Descriptor Matcher";
    PlainMatcher matcher;
    EXPECT_EQ(refusal([&] { setDescriptorMatcherDistFracParams(&matcher, 1U, 1.0F); }), message);
    EXPECT_EQ(refusal([&] { setDescriptorMatcherDistFracParams(&matcher, 1.0F, 1.0F); }), message);
    EXPECT_EQ(refusal([] { setDescriptorMatcherDistFracParams(nullptr, 1U, 1.0F); }), message);
    EXPECT_EQ(refusal([] { setDescriptorMatcherDistFracParams(nullptr, 1.0F, 1.0F); }), message);
}

TEST(SetAnmsRobustnessTest, StoresTheFactorWithoutACheck) {
    Journal journal;
    AnmsLikeSelector selector("selector", journal);
    EXPECT_EQ(selector.robustness(), 0.8F);
    setAnmsRobustness(&selector, -3.0F);
    EXPECT_EQ(selector.robustness(), -3.0F);
    setAnmsRobustness(&selector, std::numeric_limits<float>::quiet_NaN());
    EXPECT_TRUE(std::isnan(selector.robustness()));
}

TEST(SetAnmsRobustnessTest, RefusesOtherSelectorsAndNull) {
    const std::string message = "This operation is only implemented by ANMS Keypoint Selectors";
    KeypointSelectorTop selector;
    EXPECT_EQ(refusal([&] { setAnmsRobustness(&selector, 0.8F); }), message);
    EXPECT_EQ(refusal([] { setAnmsRobustness(nullptr, 0.8F); }), message);
}

TEST(SetSdcParamsTest, StoresTheFourValuesInOrder) {
    Journal journal;
    SdcLikeSelector selector("selector", journal);
    setSdcParams(&selector, 640, 480, 0.25F, 0.125F);
    EXPECT_EQ(selector.width(), 640);
    EXPECT_EQ(selector.height(), 480);
    EXPECT_EQ(selector.ek(), 0.25F);
    EXPECT_EQ(selector.er(), 0.125F);
}

TEST(SetSdcParamsTest, RefusesValuesOutOfRangeAndChangesNothing) {
    Journal journal;
    SdcLikeSelector selector("selector", journal);
    setSdcParams(&selector, 1, 1, 0.5F, 0.5F);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const auto expectRefused = [&](int width, int height, float ek, float er) {
        try {
            setSdcParams(&selector, width, height, ek, er);
            ADD_FAILURE() << "accepted " << width << ' ' << height << ' ' << ek << ' ' << er;
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ(error.what(), "Some of the parameters is out of range");
        }
    };
    expectRefused(0, 2, 1.0F, 1.0F);
    expectRefused(2, -1, 1.0F, 1.0F);
    expectRefused(2, 2, 0.0F, 1.0F);
    expectRefused(2, 2, 1.0F, 0.0F);
    expectRefused(2, 2, nan, 1.0F);
    expectRefused(2, 2, 1.0F, nan);
    EXPECT_EQ(selector.width(), 1);
    EXPECT_EQ(selector.height(), 1);
    EXPECT_EQ(selector.ek(), 0.5F);
    EXPECT_EQ(selector.er(), 0.5F);
}

TEST(SetSdcParamsTest, RefusesOtherSelectorsAndNull) {
    const std::string message = "This operation is only implemented for the SDC Keypoint Selectors";
    KeypointSelectorTop selector;
    EXPECT_EQ(refusal([&] { setSdcParams(&selector, 1, 1, 1.0F, 1.0F); }), message);
    // The class is checked before the values.
    EXPECT_EQ(refusal([] { setSdcParams(nullptr, 0, 0, 0.0F, 0.0F); }), message);
}

TEST(SetSelectorDefaultParamsTest, RefusesValuesOutOfRange) {
    KeypointSelectorDefault selector;
    for (const auto& [height, width] : {std::pair{0, 1}, std::pair{1, 0}, std::pair{-1, -1}}) {
        try {
            setSelectorDefaultParams(&selector, height, width);
            ADD_FAILURE() << "accepted " << height << ' ' << width;
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ(error.what(), "Parameters out of range");
        }
    }
}

TEST(SetSelectorDefaultParamsTest, RefusesOtherSelectorsAndNull) {
    const std::string message =
        "This operation is only implemented by The Default Keypoint Selector";
    Journal journal;
    AnmsLikeSelector anms("ANMS", journal);
    EXPECT_EQ(refusal([&] { setSelectorDefaultParams(&anms, 1, 1); }), message);
    EXPECT_EQ(refusal([] { setSelectorDefaultParams(nullptr, 1, 1); }), message);
}

TEST(ForeignPlugInSettersTest, AlwaysThrowTheirMessage) {
    Journal journal;
    PlainDetector detector;
    ScaledExtractor extractor("extractor", journal);
    EXPECT_EQ(refusal([&] { setDescExtCvBriefParams(&extractor, 32); }),
              "This operation is only implemented for the OpenCV Brief descriptor extractor");
    EXPECT_EQ(refusal([&] { setDescExtCvOrbParams(&extractor, 500); }),
              "This operation is only implemented for the OpenCV ORB descriptor extractor");
    EXPECT_EQ(refusal([&] { setFeaDetCvFastParams(&detector, 10, true); }),
              "This operation is only implemented for the OpenCV FAST Feature detector");
    EXPECT_EQ(refusal([&] { setFeaDetCvOrbParams(&detector, 500, 8, 1.2F, 31, 0, 2, 0, 31); }),
              "This operation is only implemented for the OpenCV ORB Feature detector");
    EXPECT_EQ(refusal([&] { setFeaDetCvOrbParams(&detector, QStringLiteral("fast")); }),
              "This operation is only implemented for the OpenCV ORB Feature detector");
    EXPECT_EQ(refusal([&] { setFeaDetCvBriskParams(&detector, 30, 3, 1.0F); }),
              "This operation is only implemented for the OpenCV BRISK Feature detector");
}

TEST(ForeignPlugInSettersTest, ThrowForNullToo) {
    EXPECT_THROW(setDescExtCvBriefParams(nullptr, 32), std::runtime_error);
    EXPECT_THROW(setDescExtCvOrbParams(nullptr, 500), std::runtime_error);
    EXPECT_THROW(setFeaDetCvFastParams(nullptr, 10, true), std::runtime_error);
    EXPECT_THROW(setFeaDetCvOrbParams(nullptr, 500, 8, 1.2F, 31, 0, 2, 0, 31), std::runtime_error);
    EXPECT_THROW(setFeaDetCvOrbParams(nullptr, QString()), std::runtime_error);
    EXPECT_THROW(setFeaDetCvBriskParams(nullptr, 30, 3, 1.0F), std::runtime_error);
}

}  // namespace
}  // namespace marlo
