// SPDX-License-Identifier: BSD-3-Clause
// How well positions, scales, directions and descriptors of SIFT on the CPU hit what they should.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include "libfeatures/descriptors/sift_descriptor.h"
#include "libfeatures/detectors/features_2d_sift_ldah.h"
#include "support/gradient.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using Eigen::Index;

constexpr float kPi = std::numbers::pi_v<float>;

struct Features {
    std::vector<Keypoint> keypoints;
    DescMat descriptors;

    [[nodiscard]] std::vector<float> row(std::size_t i) const {
        std::vector<float> values(128);
        std::memcpy(values.data(), descriptors.data + i * descriptors.step, 512);
        return values;
    }
};

std::unique_ptr<Features2dSiftLdah> sift() {
    std::unique_ptr<Features2dSiftLdah> object(
        dynamic_cast<Features2dSiftLdah*>(Features2dSiftLdah::createDetectorSIFT().release()));
    object->setParams(1.0F);
    return object;
}

Features featuresOf(const FloatImage& image) {
    Features features;
    const auto object = sift();
    object->detect(image, features.keypoints);
    object->compute(image, features.keypoints, features.descriptors);
    return features;
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

float cosine(const std::vector<float>& a, const std::vector<float>& b) {
    float sum = 0.0F;
    for (std::size_t i = 0; i < a.size(); ++i) {
        sum += a[i] * b[i];
    }
    return sum;
}

// The standard deviation of a blob whose difference of Gaussians is extreme at `scale`. The input
// counts as blurred by 0.5, so that level t of the scale space has the variance s^2 - 0.25 + t^2
// there, and the centre of the difference of levels t and k t is 1 / (s^2 - 0.25 + t^2) -
// 1 / (s^2 - 0.25 + k^2 t^2) times a constant: extreme where k t^2 = s^2 - 0.25.
double blobOfScale(double scale) {
    const double k = std::cbrt(2.0);
    return std::sqrt(k * scale * scale + 0.25);
}

class BlobAccuracyTest : public testing::TestWithParam<int> {};

TEST_P(BlobAccuracyTest, CentresAndSizesOfBlobsAreFound) {
    const double octaveFactor = GetParam();
    std::vector<double> positionErrors;
    std::vector<double> scaleErrors;
    test::Random random(1);
    const auto drawn = [&](double low, double high) {
        return static_cast<double>(
            random.uniform(static_cast<float>(low), static_cast<float>(high)));
    };
    for (int i = 0; i < 30; ++i) {
        // Scales from the middle of the levels of an octave, 1.6 * 2^(1/3 to 1), in equal steps.
        const double scale = octaveFactor * 1.6 * std::exp2((0.75 + 2.5 * i / 29.0) / 3.0);
        const double sigma = blobOfScale(scale);
        const auto size = static_cast<Index>(12.0 * sigma + 10.0 * octaveFactor);
        const double row = 0.5 * static_cast<double>(size) + octaveFactor * drawn(-1.0, 1.0);
        const double col = 0.5 * static_cast<double>(size) + octaveFactor * drawn(-1.0, 1.0);
        FloatImage image = FloatImage::Constant(size, size, 0.2F);
        test::addBlob(image, row, col, sigma, i % 2 == 0 ? 0.7 : -0.15);

        // The strongest is the blob. Which octave finds it is that of its scale.
        std::vector<Keypoint> keypoints;
        sift()->detect(image, keypoints);
        ASSERT_FALSE(keypoints.empty()) << scale;
        const Keypoint& found = *std::max_element(
            keypoints.begin(), keypoints.end(),
            [](const Keypoint& a, const Keypoint& b) { return a.response < b.response; });
        EXPECT_EQ(1 << found.octave, GetParam()) << scale;
        positionErrors.push_back(
            std::hypot(static_cast<double>(found.x) - col, static_cast<double>(found.y) - row));
        scaleErrors.push_back(std::abs(static_cast<double>(found.scale) / scale - 1.0));
        EXPECT_LT(positionErrors.back(), 0.15 * octaveFactor) << scale;
        EXPECT_LT(scaleErrors.back(), 0.03) << scale;
    }
    RecordProperty("medianPositionError", std::to_string(median(positionErrors)));
    RecordProperty("medianScaleError", std::to_string(median(scaleErrors)));
    EXPECT_LT(median(positionErrors), 0.03 * octaveFactor);
    EXPECT_LT(median(scaleErrors), 0.03);
}

INSTANTIATE_TEST_SUITE_P(EveryOctave, BlobAccuracyTest, testing::Values(1, 2, 4));

// Turning by 90 degrees. 4k + 1 rows and columns: every second, and every fourth, pixel of the
// image is one of the turned image.

// Where a point of an image of `size` pixels comes to lie when it is turned to the left.
Keypoint turnedLeft(Keypoint keypoint, Index size) {
    const float x = keypoint.x;
    keypoint.x = keypoint.y;
    keypoint.y = static_cast<float>(size - 1) - x;
    keypoint.angle = std::remainder(keypoint.angle + 0.5F * kPi, 2.0F * kPi);
    return keypoint;
}

float angleBetween(float a, float b) {
    return std::abs(std::remainder(a - b, 2.0F * kPi));
}

TEST(TurnedImageTest, HasTheTurnedKeypointsAndTheirDescriptors) {
    constexpr Index kSize = 241;
    std::size_t total = 0;
    std::size_t found = 0;
    std::vector<double> similarities;
    for (std::uint32_t seed = 1; seed <= 3; ++seed) {
        const FloatImage image = test::fadingImage(kSize, kSize, seed);
        const Features upright = featuresOf(image);
        const Features turned = featuresOf(test::turnedLeft(image));
        total += upright.keypoints.size();
        for (std::size_t i = 0; i < upright.keypoints.size(); ++i) {
            const Keypoint expected = turnedLeft(upright.keypoints[i], kSize);
            for (std::size_t j = 0; j < turned.keypoints.size(); ++j) {
                const Keypoint& other = turned.keypoints[j];
                if (other.octave == expected.octave && other.layer == expected.layer &&
                    std::hypot(other.x - expected.x, other.y - expected.y) < 0.05F &&
                    angleBetween(other.angle, expected.angle) < 0.02F) {
                    ++found;
                    similarities.push_back(
                        static_cast<double>(cosine(upright.row(i), turned.row(j))));
                    break;
                }
            }
        }
    }
    ASSERT_GT(total, 100U);
    EXPECT_GT(static_cast<double>(found), 0.99 * static_cast<double>(total))
        << found << " of " << total;
    // Directions and cells turn with the keypoint, so rows agree value by value; but for the
    // fraction of a pixel, which does not turn with it.
    EXPECT_GT(median(similarities), 0.98);
    EXPECT_GT(*std::min_element(similarities.begin(), similarities.end()), 0.9);
}

class TurnedDescriptorTest : public testing::Test {
protected:
    static constexpr Index kSize = 65;

    // The row of a keypoint at the gradients of an image.
    static std::vector<float> rowOf(const FloatImage& image, const Keypoint& keypoint) {
        FloatImage magnitude(image.rows(), image.cols());
        FloatImage orientation(image.rows(), image.cols());
        gradOriImages(image, magnitude, orientation);
        Features features;
        allocateDescriptors(features.descriptors, 1, true);
        insertDescriptorsCurrentScaleAndOctave(features.descriptors, {keypoint}, 1.0F, 1, magnitude,
                                               orientation, 1.0F, 0, true);
        return features.row(0);
    }

    // Keypoints at pixel centres, as many as `count`, some near the borders.
    static std::vector<Keypoint> keypointsAtPixels(int count) {
        test::Random random(2);
        std::vector<Keypoint> keypoints;
        for (int i = 0; i < count; ++i) {
            keypoints.emplace_back(
                std::floor(random.uniform(5.0F, 60.0F)), std::floor(random.uniform(5.0F, 60.0F)),
                random.uniform(1.6F, 4.0F), random.uniform(-kPi, kPi), 1.0F, 0, 1);
        }
        return keypoints;
    }

    const FloatImage image = test::photographLikeImage(kSize, kSize, 3);
    const FloatImage turnedImage = test::turnedLeft(image);
};

TEST_F(TurnedDescriptorTest, TurningTheKeypointWithTheImageKeepsTheDescriptor) {
    for (const Keypoint& keypoint : keypointsAtPixels(50)) {
        Keypoint turned = turnedLeft(keypoint, kSize);
        turned.angle = keypoint.angle + 0.5F * kPi;
        EXPECT_GT(cosine(rowOf(image, keypoint), rowOf(turnedImage, turned)), 0.999F) << keypoint;
    }
}

TEST_F(TurnedDescriptorTest, KeepingTheAngleTurnsCellsAndDirections) {
    for (Keypoint keypoint : keypointsAtPixels(50)) {
        keypoint.angle = 0.0F;
        Keypoint turned = turnedLeft(keypoint, kSize);
        turned.angle = 0.0F;
        const std::vector<float> upright = rowOf(image, keypoint);
        std::vector<float> expected(128);
        for (std::size_t r = 0; r < 4; ++r) {
            for (std::size_t c = 0; c < 4; ++c) {
                for (std::size_t o = 0; o < 8; ++o) {
                    expected[((3 - c) * 4 + r) * 8 + (o + 2) % 8] = upright[(r * 4 + c) * 8 + o];
                }
            }
        }
        EXPECT_GT(cosine(rowOf(turnedImage, turned), expected), 0.999F) << keypoint;
    }
}

}  // namespace
}  // namespace marlo
