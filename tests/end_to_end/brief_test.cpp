// SPDX-License-Identifier: BSD-3-Clause
// Keypoints of a float image, described by Brief on the byte image of which it was made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "libfeatures/features.h"
#include "utilities/captured_log.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

constexpr int kSize = 241;  // 4k + 1: every fourth pixel is one of the turned image, too

struct Features {
    std::vector<Keypoint> keypoints;  // with the angles of the detector
    DescMat descriptors;
};

// From counter-clockwise radians to clockwise degrees, as the header of Brief has it.
float degreesOf(float radians) {
    return std::fmod(360.0F - radians * 57.29578F, 360.0F);
}

enum class Angles { Converted, AsDetected };

Features featuresOf(const FloatImage& image, Angles angles) {
    const ByteImage bytes = (image * 255.0F).cast<unsigned char>();
    const FloatImage floats = bytes.cast<float>() / 255.0F;
    const auto detector = extensibleFactoryInstance<IKeypointDetector>().create("SIFT");
    setFeaDetSiftLdahParams(detector.get(), 1.0F);
    const auto selector = extensibleFactoryInstance<IKeypointSelector>().create("TOP");
    selector->setNumberOfKeypoints(400);
    const auto extractor = extensibleFactoryInstance<IDescriptorExtractor>().create("Brief");

    Features features;
    std::vector<Keypoint> detected;
    detector->detect(floats, detected);
    selector->select(detected, features.keypoints);
    std::vector<Keypoint> keypoints = features.keypoints;
    if (angles == Angles::Converted) {
        for (Keypoint& k : keypoints) k.angle = degreesOf(k.angle);
    }
    extractor->compute(bytes, keypoints, features.descriptors);
    return features;
}

struct Matches {
    int all = 0;
    int right = 0;  // within a pixel of where the turn takes the keypoint
};

// Nearest rows by Hamming distance, from both sides.
Matches matchWithTurned(const FloatImage& image, Angles angles) {
    const Features upright = featuresOf(image, angles);
    const Features turned = featuresOf(test::turnedLeft(image), angles);
    const auto matcher = extensibleFactoryInstance<IDescriptorMatcher>().create("LeftRight");
    Matches matches;
    for (const DMatch& match : matcher->match(upright.descriptors, turned.descriptors)) {
        const Keypoint& a = upright.keypoints[match.queryIndex];
        const Keypoint& b = turned.keypoints[match.trainIndex];
        ++matches.all;
        if (std::hypot(a.y - b.x, static_cast<float>(kSize - 1) - a.x - b.y) < 1.0F) {
            ++matches.right;
        }
    }
    return matches;
}

class BriefRoadTest : public testing::Test {
protected:
    BriefRoadTest() {
        registerMainFeatureDetectors();
        registerMainDescriptorExtractors();
        registerMainKeypointSelectors();
        registerMainDescriptorMatchers();
    }

    const FloatImage image = test::fadingImage(kSize, kSize, 1);
};

TEST_F(BriefRoadTest, AnglesInDegreesMatchAnImageWithItsTurnedCopy) {
    const Matches matches = matchWithTurned(image, Angles::Converted);
    EXPECT_GT(matches.all, 150);
    EXPECT_GT(matches.right, matches.all * 19 / 20) << matches.right << " of " << matches.all;
}

TEST_F(BriefRoadTest, AnglesInRadiansDoNot) {
    const Matches matches = matchWithTurned(image, Angles::AsDetected);
    EXPECT_LT(matches.right, 10) << matches.right << " of " << matches.all;
}

TEST_F(BriefRoadTest, EveryConvertedAngleHasAStep) {
    // The ends of what detectors give, and what is nearest to 0.
    std::vector<Keypoint> keypoints;
    for (const float radians : {-3.1415927F, 3.1415927F, 1e-9F, -1e-9F, 0.0F, -0.0F}) {
        keypoints.emplace_back(30.0F, 30.0F, 1.0F, degreesOf(radians), 1.0F, 0, 0);
    }
    const test::CapturedLog log;
    DescMat descriptors;
    const ByteImage bytes = ByteImage::Zero(60, 60);
    Brief().compute(bytes, keypoints, descriptors);
    EXPECT_THAT(log.lines(), testing::Each(testing::StartsWith("3")));
}

}  // namespace
}  // namespace marlo
