// SPDX-License-Identifier: BSD-3-Clause
// A host with a detector and an extractor of its own, the library's selector and transform, and a
// picture whose features are known.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "libfeatures/features.h"
#include "utilities/captured_log.h"

namespace marlo {
namespace {

// Finds the pixels that are brighter than all their neighbours; its response is their brightness.
class BrightSpots : public IKeypointDetector, public SiftLdahBaseParams {
public:
    [[nodiscard]] std::unique_ptr<IKeypointDetector> clone() const override {
        return std::make_unique<BrightSpots>(*this);
    }
    [[nodiscard]] bool hasOrientations() const override { return false; }
    [[nodiscard]] bool supportsIntImages() const override { return false; }
    [[nodiscard]] bool supportsFloatImages() const override { return true; }
    void detect(const ByteImage& /*image*/, std::vector<Keypoint>& /*keypoints*/) override {
        throw std::runtime_error("BrightSpots needs a float image");
    }
    void detect(const FloatImage& image, std::vector<Keypoint>& keypoints) override {
        keypoints.clear();
        for (Eigen::Index y = 1; y + 1 < image.rows(); ++y) {
            for (Eigen::Index x = 1; x + 1 < image.cols(); ++x) {
                const auto around = image.block<3, 3>(y - 1, x - 1);
                if ((around.array() >= image(y, x)).count() == 1) {
                    keypoints.emplace_back(static_cast<float>(x) / imageScale,
                                           static_cast<float>(y) / imageScale, 1.0F / imageScale,
                                           0.0F, image(y, x), 0, 1);
                }
            }
        }
    }
};

// Four floats a row: the pixels above, left, right and below.
class Crosses : public IDescriptorExtractor, public SiftLdahBaseParams {
public:
    [[nodiscard]] std::unique_ptr<IDescriptorExtractor> cloneExtractor() const override {
        return std::make_unique<Crosses>(*this);
    }
    void compute(const ByteImage& /*image*/, std::vector<Keypoint>& /*keypoints*/,
                 DescMat& /*descriptors*/) override {
        throw std::runtime_error("Crosses needs a float image");
    }
    void compute(const FloatImage& image, std::vector<Keypoint>& keypoints,
                 DescMat& descriptors) override {
        descriptors.create(static_cast<int>(keypoints.size()), 4, DescMat::Float);
        for (std::size_t i = 0; i < keypoints.size(); ++i) {
            const auto x = static_cast<Eigen::Index>(keypoints[i].x * imageScale);
            const auto y = static_cast<Eigen::Index>(keypoints[i].y * imageScale);
            auto* const row = reinterpret_cast<float*>(descriptors.row(static_cast<int>(i)).data);
            row[0] = image(y - 1, x);
            row[1] = image(y, x - 1);
            row[2] = image(y, x + 1);
            row[3] = image(y + 1, x);
        }
    }
};

class PlugInsTest : public testing::Test {
protected:
    PlugInsTest() {
        extensibleFactoryInstance<IKeypointDetector>().registerType(
            "SIFT-BrightSpots", [] { return std::make_unique<BrightSpots>(); });
        extensibleFactoryInstance<IDescriptorExtractor>().registerType(
            "SIFT-Crosses", [] { return std::make_unique<Crosses>(); });
        registerMainKeypointSelectors();
        registerMainTransforms();
    }
};

TEST_F(PlugInsTest, HostsPlugInsRunTheWholeRoadWithTheLibrarysOwn) {
    // Spots at (3, 2), (8, 5) and (12, 9), the second the brightest and the last the faintest.
    FloatImage image = FloatImage::Zero(12, 16);
    image(2, 3) = 0.5F;
    image(5, 8) = 1.0F;
    image(9, 12) = 0.25F;
    image(5, 9) = 0.125F;

    FeaturesController controller(QStringLiteral("SIFT-BrightSpots"),
                                  QStringLiteral("SIFT-Crosses"), QStringLiteral("TOP"),
                                  QStringLiteral("Default"));
    controller.setFeatureSetParams(0.5, 24, 32, 2);  // the host has halved a 32 x 24 image
    std::vector<Keypoint> keypoints;
    DescMat descriptors;
    controller.process(image, keypoints, descriptors);

    ASSERT_EQ(keypoints.size(), 2U);
    EXPECT_EQ(keypoint2p2(keypoints[0]), Eigen::Vector2f(16.0F, 10.0F));
    EXPECT_EQ(keypoint2p2(keypoints[1]), Eigen::Vector2f(6.0F, 4.0F));
    ASSERT_EQ(descriptors.rows, 2);
    const auto* const first = reinterpret_cast<const float*>(descriptors.data);
    EXPECT_THAT(std::vector<float>(first, first + 8),
                testing::ElementsAre(0.0F, 0.0F, 0.125F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F));
}

TEST_F(PlugInsTest, LogTellsWhyAResultIsEmpty) {
    const test::CapturedLog log;
    FeaturesController controller(QStringLiteral("SIFT-BrightSpots"),
                                  QStringLiteral("SIFT-Crosses"), QStringLiteral("TOP"),
                                  QStringLiteral("Default"));
    controller.setFeatureSetParams(1.0, 12, 16, 2);
    std::vector<Keypoint> keypoints;
    DescMat descriptors;
    controller.process(ByteImage(ByteImage::Zero(12, 16)), keypoints, descriptors);

    EXPECT_TRUE(keypoints.empty());
    EXPECT_TRUE(descriptors.empty());
    EXPECT_THAT(
        log.lines(),
        testing::ElementsAre(
            "2 [] |FeaturesController - Created with detector/selector/extractor/transform: "
            "SIFT-BrightSpots / TOP / SIFT-Crosses / Default",
            "7 [] |Exception found trying to detect keypoints: BrightSpots needs a float image",
            "3 [feature_selector_top:29] |FeatureSelectorTOP::select 0 keypoints as input and you "
            "want to select 2",
            "7 [] |Exception found trying to select keypoints: Number of keypoints to select or "
            "the number of input keypoints is 0",
            "7 [] |Exception found trying to compute descriptors: Crosses needs a float image"));
}

}  // namespace
}  // namespace marlo
