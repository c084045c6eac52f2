// SPDX-License-Identifier: BSD-3-Clause
// The road of an image to LDAH codes and on to matches.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <vector>

#include "libfeatures/features.h"
#include "utilities/captured_log.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

constexpr int kSize = 241;  // 4k + 1: every fourth pixel is one of the turned image, too

struct Features {
    std::vector<Keypoint> keypoints;
    DescMat descriptors;
};

Features featuresOf(const FloatImage& image, const char* key) {
    const QLatin1String both(key);
    Features features;
    FeaturesController controller(both, both, QLatin1String("TOP"), QLatin1String("Default"));
    controller.setFeatureSetParams(1.0, kSize, kSize, 400);
    controller.process(image, features.keypoints, features.descriptors);
    return features;
}

class LdahRoadTest : public testing::Test {
protected:
    LdahRoadTest() {
        registerMainFeatureDetectors();
        registerMainDescriptorExtractors();
        registerMainKeypointSelectors();
        registerMainTransforms();
        registerMainDescriptorMatchers();
    }

    const FloatImage image = test::fadingImage(kSize, kSize, 1);
};

TEST_F(LdahRoadTest, AnImageAndItsTurnedCopyHaveTheSameFeatures) {
    const Features upright = featuresOf(image, "LDAH");
    const Features turned = featuresOf(test::turnedLeft(image), "LDAH");
    ASSERT_GT(upright.keypoints.size(), 100U);
    ASSERT_EQ(upright.descriptors.rows, static_cast<int>(upright.keypoints.size()));
    ASSERT_EQ(upright.descriptors.cols, 16);
    ASSERT_EQ(upright.descriptors.type(), DescMat::Byte);

    const auto matcher = extensibleFactoryInstance<IDescriptorMatcher>().create("DistFracMutual");
    const std::vector<DMatch> matches = matcher->match(upright.descriptors, turned.descriptors);
    std::size_t right = 0;
    for (const DMatch& match : matches) {
        const Keypoint& a = upright.keypoints[match.queryIndex];
        const Keypoint& b = turned.keypoints[match.trainIndex];
        const float x = a.y;
        const float y = static_cast<float>(kSize - 1) - a.x;
        if (std::hypot(x - b.x, y - b.y) < 1.0F) ++right;
    }
    RecordProperty("keypoints", static_cast<int>(upright.keypoints.size()));
    RecordProperty("matches", static_cast<int>(matches.size()));
    RecordProperty("right", static_cast<int>(right));
    // Neighbours whose surroundings are alike fail the ratio test.
    EXPECT_GT(matches.size(), upright.keypoints.size() / 2);
    EXPECT_GT(static_cast<double>(right), 0.95 * static_cast<double>(matches.size()))
        << right << " of " << matches.size();
}

TEST_F(LdahRoadTest, RowsAreThoseThatAHostMakesFromSiftRows) {
    const Features sift = featuresOf(image, "SIFT");
    const Features ldah = featuresOf(image, "LDAH");
    DescMat expected;
    ldahRowsFromSift(sift.descriptors, expected);
    ASSERT_EQ(ldah.descriptors.rows, expected.rows);
    EXPECT_EQ(std::memcmp(ldah.descriptors.data, expected.data,
                          static_cast<std::size_t>(expected.rows) * expected.step),
              0);
}

TEST_F(LdahRoadTest, NothingIsLoggedAsAnError) {
    const test::CapturedLog log;
    featuresOf(image, "LDAH");
    for (const std::string& line : log.lines())
        EXPECT_THAT(line, testing::Not(testing::StartsWith("7")));
}

}  // namespace
}  // namespace marlo
