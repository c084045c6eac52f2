// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/sift_descriptor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "libfeatures/descriptors/detail/ldah_tables.h"
#include "references/ldah_reference.h"
#include "references/sift_reference.h"
#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using Eigen::Index;
using test::noiseImage;
using testing::Each;
using testing::IsNan;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kPi = std::numbers::pi_v<float>;

using Row = reference::SiftDescriptor;

// Random gradients of an octave of 60 x 70 pixels, whatever the octave.
class SiftDescriptorTest : public testing::Test {
protected:
    FloatImage magnitude = noiseImage(60, 70, 1);
    FloatImage orientation = noiseImage(60, 70, 2, -kPi, kPi);

    // A keypoint in the middle, for octave factor 1 and image scale 1.
    static Keypoint middle() { return {34.3F, 30.6F, 2.5F, 0.4F, 1.0F, 0, 1}; }

    [[nodiscard]] DescMat rowsOf(const std::vector<Keypoint>& keypoints, float octaveFactor = 1.0F,
                                 float imageScale = 1.0F, unsigned char octave = 0,
                                 int layer = 1) const {
        DescMat descriptors;
        allocateDescriptors(descriptors, static_cast<int>(keypoints.size()), true);
        insertDescriptorsCurrentScaleAndOctave(descriptors, keypoints, octaveFactor, layer,
                                               magnitude, orientation, imageScale, octave, true);
        return descriptors;
    }
    static Row row(const DescMat& descriptors, std::size_t i) {
        Row values{};
        std::memcpy(values.data(), descriptors.data + i * descriptors.step, sizeof values);
        return values;
    }
    [[nodiscard]] Row rowOf(const Keypoint& keypoint) const { return row(rowsOf({keypoint}), 0); }

    [[nodiscard]] Row expectedRow(const Keypoint& keypoint, float octaveFactor = 1.0F,
                                  float imageScale = 1.0F) const {
        return reference::siftDescriptor(magnitude, orientation, keypoint, octaveFactor,
                                         imageScale);
    }
};

float length(const Row& row) {
    float sum = 0.0F;
    for (const float value : row) {
        sum += value * value;
    }
    return std::sqrt(sum);
}

float largestDifference(const Row& a, const Row& b) {
    float largest = 0.0F;
    for (std::size_t i = 0; i < a.size(); ++i) {
        // NaN counts as large.
        const float difference = std::abs(a[i] - b[i]);
        largest = difference <= largest ? largest : difference;
    }
    return largest;
}

TEST_F(SiftDescriptorTest, RowsAreThoseOfTheReference) {
    test::Random random(3);
    for (const float octaveFactor : {1.0F, 2.0F, 4.0F}) {
        for (const float imageScale : {0.5F, 1.0F, 2.0F}) {
            // Everywhere in the octave, borders and a little outside included.
            const float toImage = octaveFactor / imageScale;
            std::vector<Keypoint> keypoints;
            for (int i = 0; i < 40; ++i) {
                const float scale =
                    i % 8 == 0 ? random.uniform(8.0F, 20.0F) : random.uniform(0.3F, 6.0F);
                keypoints.emplace_back(random.uniform(-2.0F, 72.0F) * toImage,
                                       random.uniform(-2.0F, 62.0F) * toImage, scale * toImage,
                                       random.uniform(-4.0F, 4.0F), 1.0F, 1, 2);
            }
            const DescMat descriptors = rowsOf(keypoints, octaveFactor, imageScale, 1, 2);
            for (std::size_t i = 0; i < keypoints.size(); ++i) {
                ASSERT_LT(largestDifference(row(descriptors, i),
                                            expectedRow(keypoints[i], octaveFactor, imageScale)),
                          2e-6F)
                    << keypoints[i] << ", factor " << octaveFactor << ", scale " << imageScale;
            }
        }
    }
}

TEST_F(SiftDescriptorTest, SmallImagesAndOddWidthsAgreeWithTheReferenceToo) {
    test::Random random(4);
    for (const Index cols : {1, 2, 3, 7, 8, 9, 15, 17, 31, 33}) {
        magnitude = noiseImage(13, cols, 5);
        orientation = noiseImage(13, cols, 6, -kPi, kPi);
        for (int i = 0; i < 20; ++i) {
            const Keypoint keypoint(random.uniform(0.0F, static_cast<float>(cols)),
                                    random.uniform(0.0F, 13.0F), random.uniform(0.5F, 4.0F),
                                    random.uniform(-kPi, kPi), 1.0F, 0, 1);
            ASSERT_LT(largestDifference(rowOf(keypoint), expectedRow(keypoint)), 2e-6F)
                << keypoint << ", columns " << cols;
        }
    }
}

TEST_F(SiftDescriptorTest, AnglesAlongTheAxesAgreeWithTheReference) {
    for (const float angle :
         {0.0F, -0.0F, 0.5F * kPi, -0.5F * kPi, kPi, -kPi, 0.25F * kPi, 1e-7F}) {
        for (const float scale : {0.3F, 1.0F, 2.0F}) {
            Keypoint keypoint = middle();
            keypoint.angle = angle;
            keypoint.scale = scale;
            EXPECT_LT(largestDifference(rowOf(keypoint), expectedRow(keypoint)), 2e-6F) << angle;
        }
    }
}

TEST_F(SiftDescriptorTest, DirectionsAtTheEndsOfTheCircleAgreeWithTheReference) {
    for (const float direction : {-kPi, kPi, 0.0F, std::nextafter(0.4F, 0.0F), 0.4F}) {
        orientation.setConstant(direction);
        EXPECT_LT(largestDifference(rowOf(middle()), expectedRow(middle())), 2e-6F) << direction;
    }
}

TEST_F(SiftDescriptorTest, OneGradientFallsIntoItsCellAndDirection) {
    // Sigma 2: cells of 6 pixels. Angle 0 and a whole position: cell (r, c) has its middle at
    // 6 (r - 1.5) pixels below and 6 (c - 1.5) to the right. Nothing is shared there.
    const Keypoint keypoint(33.0F, 30.0F, 2.0F, 0.0F, 1.0F, 0, 1);
    for (int rowCell = 0; rowCell < 4; ++rowCell) {
        for (int colCell = 0; colCell < 4; ++colCell) {
            for (int direction = 0; direction < 8; ++direction) {
                magnitude.setZero();
                const float theta = static_cast<float>(direction) * 0.25F * kPi;
                magnitude(30 + 6 * rowCell - 9, 33 + 6 * colCell - 9) = 0.01F;
                orientation.setConstant(theta > kPi ? theta - 2.0F * kPi : theta);
                const Row values = rowOf(keypoint);
                const auto expected =
                    static_cast<std::size_t>((rowCell * 4 + colCell) * 8 + direction);
                for (std::size_t k = 0; k < 128; ++k) {
                    // Alone, it is cut to 0.2 times itself and scaled back to 1.
                    EXPECT_NEAR(values[k], k == expected ? 1.0F : 0.0F, 1e-5F)
                        << k << " for " << expected;
                }
            }
        }
    }
}

TEST_F(SiftDescriptorTest, TheFractionOfAPixelIsAddedUnrotated) {
    // A quarter turn, 0.3 pixels to the right of the centre pixel: the window moves as if it had
    // not been turned. The gradient is 2 cells ahead of the keypoint, which is up.
    const float cell = 6.0F;
    magnitude.setZero();
    magnitude(30 - 9, 33 - 3) = 1.0F;
    magnitude(30 + 9, 33 + 3) = 0.7F;
    const Keypoint keypoint(33.3F, 30.0F, cell / 3.0F, 0.5F * kPi, 1.0F, 0, 1);
    const Row values = rowOf(keypoint);
    EXPECT_LT(largestDifference(values, expectedRow(keypoint)), 2e-6F);
    const Row turned = reference::siftDescriptor(
        magnitude, orientation, Keypoint(33.0F, 30.3F, cell / 3.0F, 0.5F * kPi, 1.0F, 0, 1), 1.0F,
        1.0F);
    EXPECT_GT(largestDifference(values, turned), 1e-3F);
}

TEST_F(SiftDescriptorTest, RowsOfOtherOctavesAndLayersStayAsTheyAre) {
    std::vector<Keypoint> keypoints;
    for (const int octave : {0, 1, 2, 3, 255}) {
        for (const int layer : {0, 1, 2, 3, 4, 255}) {
            Keypoint keypoint = middle();
            keypoint.octave = static_cast<unsigned char>(octave);
            keypoint.layer = static_cast<unsigned char>(layer);
            keypoints.push_back(keypoint);
        }
    }
    DescMat descriptors;
    allocateDescriptors(descriptors, static_cast<int>(keypoints.size()), true);
    std::memset(descriptors.data, 0x3b, keypoints.size() * descriptors.step);
    const Row before = row(descriptors, 0);
    insertDescriptorsCurrentScaleAndOctave(descriptors, keypoints, 1.0F, 2, magnitude, orientation,
                                           1.0F, 1, true);
    const Row expected = rowOf(middle());
    for (std::size_t i = 0; i < keypoints.size(); ++i) {
        const bool meant = keypoints[i].octave == 1 && keypoints[i].layer == 2;
        EXPECT_EQ(row(descriptors, i), meant ? expected : before) << keypoints[i];
    }
}

TEST_F(SiftDescriptorTest, LayersBeyondAByteMatchNoKeypoint) {
    Keypoint keypoint = middle();
    for (const int layer : {257, -255, 1 - 256}) {
        EXPECT_THAT(row(rowsOf({keypoint}, 1.0F, 1.0F, 0, layer), 0), Each(0.0F));
    }
}

TEST_F(SiftDescriptorTest, RowsHaveLengthOneAlsoAtBorders) {
    for (const float x : {0.0F, 0.4F, 35.0F, 69.0F, 69.4F}) {
        for (const float y : {0.0F, 0.4F, 30.0F, 59.0F, 59.4F}) {
            Keypoint keypoint = middle();
            keypoint.x = x;
            keypoint.y = y;
            EXPECT_NEAR(length(rowOf(keypoint)), 1.0F, 1e-5F) << x << ", " << y;
        }
    }
}

TEST_F(SiftDescriptorTest, ValuesAreCutAtAFifthOfTheNorm) {
    // One direction everywhere: few values hold everything.
    orientation.setConstant(0.4F);
    const Keypoint keypoint = middle();
    const Row raw = reference::rawSiftDescriptor(magnitude, orientation, keypoint.y, keypoint.x,
                                                 keypoint.scale, keypoint.angle);
    const float norm = length(raw);
    Row cut = raw;
    for (float& value : cut) {
        value = std::min(value, 0.2F * norm);
    }
    const float largest = 0.2F * norm / length(cut);
    const Row values = rowOf(keypoint);
    EXPECT_NEAR(*std::max_element(values.begin(), values.end()), largest, 1e-5F);
    EXPECT_GT(std::count_if(values.begin(), values.end(),
                            [&](float value) { return std::abs(value - largest) < 1e-5F; }),
              1);
    EXPECT_NEAR(length(values), 1.0F, 1e-5F);
}

TEST_F(SiftDescriptorTest, BrightnessOfTheGradientsDoesNotMatter) {
    const Row expected = rowOf(middle());
    for (const float factor : {1e-6F, 0.5F, 255.0F, 1e6F}) {
        magnitude = factor * noiseImage(60, 70, 1);
        EXPECT_LT(largestDifference(rowOf(middle()), expected), 1e-5F) << factor;
    }
}

TEST_F(SiftDescriptorTest, DirectionsThatAreNoNumbersOrFarBeyondATurnAreLeftOut) {
    const FloatImage allMagnitudes = magnitude;
    FloatImage someMagnitudes = magnitude;
    FloatImage someDirections = orientation;
    test::Random random(7);
    const std::array<float, 7> bad = {kNaN, kInfinity, -kInfinity, 1e30F, -1e30F, 1e9F, -1e9F};
    for (Index i = 0; i < magnitude.size(); ++i) {
        if (random.uniform(0.0F, 1.0F) < 0.3F) {
            someMagnitudes.data()[i] = 0.0F;
            someDirections.data()[i] = bad[static_cast<std::size_t>(i) % bad.size()];
        }
    }
    magnitude = someMagnitudes;
    const Row expected = rowOf(middle());
    EXPECT_NEAR(length(expected), 1.0F, 1e-5F);
    magnitude = allMagnitudes;
    orientation = someDirections;
    EXPECT_EQ(rowOf(middle()), expected);
}

TEST_F(SiftDescriptorTest, DirectionsMayBeginAtAnyTurn) {
    Keypoint keypoint = middle();
    keypoint.angle = -2.0F;
    const Row expected = rowOf(keypoint);
    orientation =
        orientation.unaryExpr([](float x) { return x < 0.0F ? x + 6.2831855F : x; }).eval();
    const Row fromZero = rowOf(keypoint);
    for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(fromZero[i], expected[i], 1e-5F);
}

TEST_F(SiftDescriptorTest, ADirectionJustBeyondPiCounts) {
    orientation.setConstant(std::nextafter(3.1415927F, 4.0F));
    Keypoint keypoint = middle();
    keypoint.angle = -3.1415927F;
    EXPECT_NEAR(length(rowOf(keypoint)), 1.0F, 1e-5F);
}

TEST_F(SiftDescriptorTest, KeypointsBesideAnImageAndImagesWithoutColumnsAreHarmless) {
    DescMat rows;
    Keypoint left = middle();
    left.x = -40.0F;
    left.y = 0.0F;
    const std::vector<Keypoint> two = {middle(), left};
    allocateDescriptors(rows, 2, true);
    insertDescriptorsCurrentScaleAndOctave(rows, two, 1.0F, two[0].layer, magnitude, orientation,
                                           1.0F, two[0].octave, true);
    EXPECT_TRUE(std::isnan(*reinterpret_cast<const float*>(rows.row(1).data)));
    const FloatImage noColumns(20, 0);
    insertDescriptorsCurrentScaleAndOctave(rows, two, 1.0F, two[0].layer, noColumns, noColumns,
                                           1.0F, two[0].octave, true);
    EXPECT_TRUE(std::isnan(*reinterpret_cast<const float*>(rows.row(0).data)));
}

TEST_F(SiftDescriptorTest, NoGradientsGiveNaN) {
    magnitude.setZero();
    EXPECT_THAT(rowOf(middle()), Each(IsNan()));
    magnitude = noiseImage(60, 70, 1);
    orientation.setConstant(kNaN);
    EXPECT_THAT(rowOf(middle()), Each(IsNan()));
}

TEST_F(SiftDescriptorTest, MagnitudesThatAreNoNumbersSpoilOnlyWhoSeesThem) {
    Keypoint farAway = middle();
    farAway.x = 10.0F;
    farAway.y = 10.0F;
    farAway.scale = 1.0F;
    const Row clean = rowOf(farAway);
    for (const float bad : {kNaN, kInfinity}) {
        magnitude(30, 34) = bad;
        EXPECT_FALSE(std::isfinite(length(rowOf(middle()))));
        EXPECT_EQ(rowOf(farAway), clean);
    }
}

TEST_F(SiftDescriptorTest, AnImageWithoutPixelsGivesNaN) {
    magnitude.resize(0, 0);
    orientation.resize(0, 0);
    EXPECT_THAT(rowOf(middle()), Each(IsNan()));
    magnitude.resize(0, 7);
    orientation.resize(0, 7);
    EXPECT_THAT(rowOf(middle()), Each(IsNan()));
}

TEST_F(SiftDescriptorTest, AnImageScaleOfZeroOrNaNGivesNaN) {
    for (const float imageScale : {0.0F, -0.0F, kNaN, kInfinity}) {
        EXPECT_THAT(row(rowsOf({middle()}, 1.0F, imageScale), 0), Each(IsNan())) << imageScale;
    }
}

TEST_F(SiftDescriptorTest, ScalesAsLargeAsTheImageAgreeWithTheReference) {
    for (const float scale : {20.0F, 60.0F, 100.0F}) {
        Keypoint keypoint = middle();
        keypoint.scale = scale;
        EXPECT_LT(largestDifference(rowOf(keypoint), expectedRow(keypoint)), 3e-6F) << scale;
    }
}

TEST_F(SiftDescriptorTest, WildScalesSeeTheWholeImage) {
    // All pixels lie in the middle then, one quarter in each of the four cells around it.
    for (const float scale : {1e7F, 1e9F, 1e10F, 1e20F, 1e30F, 3e37F, 3e38F}) {
        Keypoint keypoint = middle();
        keypoint.scale = scale;
        const Row values = rowOf(keypoint);
        EXPECT_NEAR(length(values), 1.0F, 1e-5F) << scale;
        EXPECT_EQ(values[0], 0.0F);
        EXPECT_GT(values[5 * 8], 0.0F);
        EXPECT_NEAR(values[5 * 8], values[10 * 8], 1e-5F);
    }
}

TEST_F(SiftDescriptorTest, WildAnglesAreReducedToOneTurn) {
    for (const double angle : {50.5, -73.25, 1e4, 123456.0}) {
        Keypoint wild = middle();
        wild.angle = static_cast<float>(angle);
        Keypoint reduced = middle();
        reduced.angle = static_cast<float>(
            std::remainder(static_cast<double>(wild.angle), 2.0 * std::numbers::pi));
        // A turn in single precision is longer by 1.7e-7.
        EXPECT_LT(largestDifference(rowOf(wild), rowOf(reduced)), 1e-7 * std::abs(angle) + 1e-5)
            << angle;
    }
    for (const float angle : {1e20F, -1e38F}) {
        Keypoint wild = middle();
        wild.angle = angle;
        EXPECT_NEAR(length(rowOf(wild)), 1.0F, 1e-5F) << angle;
    }
    for (const float angle : {kNaN, kInfinity, -kInfinity}) {
        Keypoint wild = middle();
        wild.angle = angle;
        EXPECT_THAT(rowOf(wild), Each(IsNan())) << angle;
    }
}

TEST_F(SiftDescriptorTest, AnglesOfAFewTurnsAgreeWithTheReference) {
    for (const float angle : {-49.0F, -10.0F, 7.0F, 20.0F, 49.9F}) {
        Keypoint keypoint = middle();
        keypoint.angle = angle;
        EXPECT_LT(largestDifference(rowOf(keypoint), expectedRow(keypoint)), 5e-6F) << angle;
    }
}

TEST_F(SiftDescriptorTest, AnyNumberOfThreadsGivesTheSameBits) {
    test::Random random(8);
    std::vector<Keypoint> keypoints;
    for (int i = 0; i < 200; ++i) {
        keypoints.emplace_back(random.uniform(0.0F, 70.0F), random.uniform(0.0F, 60.0F),
                               random.uniform(1.0F, 4.0F), random.uniform(-kPi, kPi), 1.0F, 0,
                               static_cast<unsigned char>(i % 2));
    }
    const test::NumberOfThreads one(1);
    const DescMat byOne = rowsOf(keypoints);
    for (const int threads : {2, 3, 7}) {
        const test::NumberOfThreads several(threads);
        const DescMat bySeveral = rowsOf(keypoints);
        EXPECT_EQ(std::memcmp(bySeveral.data, byOne.data, keypoints.size() * byOne.step), 0)
            << threads;
    }
}

TEST_F(SiftDescriptorTest, ARowDoesNotDependOnTheKeypointsBesideIt) {
    test::Random random(9);
    std::vector<Keypoint> keypoints;
    for (int i = 0; i < 50; ++i) {
        keypoints.emplace_back(random.uniform(0.0F, 70.0F), random.uniform(0.0F, 60.0F),
                               random.uniform(1.0F, 4.0F), random.uniform(-kPi, kPi), 1.0F, 0, 1);
    }
    const DescMat together = rowsOf(keypoints);
    for (std::size_t i = 0; i < keypoints.size(); ++i) {
        EXPECT_EQ(row(together, i), rowOf(keypoints[i]));
    }
}

TEST_F(SiftDescriptorTest, NoKeypointsNeedNoRows) {
    DescMat descriptors;
    EXPECT_NO_THROW(insertDescriptorsCurrentScaleAndOctave(descriptors, {}, 1.0F, 1, magnitude,
                                                           orientation, 1.0F, 0, true));
    EXPECT_TRUE(descriptors.empty());
}

// What the function says; the matrix must be as before.
template <typename Exception>
std::string refusal(DescMat& descriptors, const std::vector<Keypoint>& keypoints,
                    const FloatImage& magnitude, const FloatImage& orientation, bool sift) {
    DescMat before;
    descriptors.copyTo(before);
    std::string message = "nothing thrown";
    try {
        insertDescriptorsCurrentScaleAndOctave(descriptors, keypoints, 1.0F, 1, magnitude,
                                               orientation, 1.0F, 0, sift);
    } catch (const Exception& error) {
        message = error.what();
    }
    EXPECT_EQ(descriptors.rows, before.rows);
    EXPECT_EQ(descriptors.cols, before.cols);
    if (!before.empty()) {
        EXPECT_EQ(std::memcmp(descriptors.data, before.data,
                              static_cast<std::size_t>(before.rows) * before.step),
                  0);
    }
    return message;
}

TEST_F(SiftDescriptorTest, RefusesGradientImagesOfDifferentSize) {
    DescMat descriptors;
    allocateDescriptors(descriptors, 1, true);
    for (const auto& [rows, cols] : {std::pair(60, 69), std::pair(59, 70), std::pair(70, 60)}) {
        const FloatImage other = noiseImage(rows, cols, 1);
        constexpr auto kMessage = "Gradient magnitudes and orientations differ in size.";
        EXPECT_EQ(refusal<std::invalid_argument>(descriptors, {middle()}, magnitude, other, true),
                  kMessage);
        EXPECT_EQ(refusal<std::invalid_argument>(descriptors, {middle()}, other, orientation, true),
                  kMessage);
    }
}

TEST_F(SiftDescriptorTest, RefusesAMatrixOfAnotherForm) {
    constexpr auto kMessage = "The descriptor matrix does not have one row per keypoint.";
    DescMat descriptors;
    EXPECT_EQ(refusal<std::invalid_argument>(descriptors, {middle()}, magnitude, orientation, true),
              kMessage);
    for (const int rows : {0, 1, 3}) {
        allocateDescriptors(descriptors, rows, true);
        EXPECT_EQ(refusal<std::invalid_argument>(descriptors, {middle(), middle()}, magnitude,
                                                 orientation, true),
                  kMessage);
    }
    allocateDescriptors(descriptors, 1, false);
    EXPECT_EQ(refusal<std::invalid_argument>(descriptors, {middle()}, magnitude, orientation, true),
              kMessage);
    descriptors.create(1, 64, DescMat::Float);
    std::memset(descriptors.data, 0, descriptors.step);
    EXPECT_EQ(refusal<std::invalid_argument>(descriptors, {middle()}, magnitude, orientation, true),
              kMessage);
    descriptors.create(1, 128, DescMat::Byte);
    std::memset(descriptors.data, 0, descriptors.step);
    EXPECT_EQ(refusal<std::invalid_argument>(descriptors, {middle()}, magnitude, orientation, true),
              kMessage);
}

// LDAH rows.

class LdahDescriptorTest : public SiftDescriptorTest {
protected:
    using Code = reference::LdahCode;

    // More than threads take at a time, all over the image.
    static std::vector<Keypoint> manyKeypoints() {
        test::Random random(10);
        std::vector<Keypoint> keypoints;
        for (int i = 0; i < 101; ++i) {
            keypoints.emplace_back(random.uniform(0.0F, 70.0F), random.uniform(0.0F, 60.0F),
                                   random.uniform(1.0F, 4.0F), random.uniform(-kPi, kPi), 1.0F, 0,
                                   1);
        }
        return keypoints;
    }
    [[nodiscard]] DescMat ldahRowsOf(const std::vector<Keypoint>& keypoints) const {
        DescMat descriptors;
        allocateDescriptors(descriptors, static_cast<int>(keypoints.size()), false);
        insert(descriptors, keypoints);
        return descriptors;
    }
    void insert(DescMat& descriptors, const std::vector<Keypoint>& keypoints) const {
        insertDescriptorsCurrentScaleAndOctave(descriptors, keypoints, 1.0F, 1, magnitude,
                                               orientation, 1.0F, 0, false);
    }
    static Code code(const DescMat& descriptors, std::size_t i) {
        Code bytes;
        std::memcpy(bytes.data(), descriptors.data + i * descriptors.step, bytes.size());
        return bytes;
    }
    static Code codeOf(const Row& siftRow) {
        return reference::ldahCode(detail::kLdahTables.projection, detail::kLdahTables.offsets,
                                   siftRow.data());
    }
};

TEST_F(LdahDescriptorTest, RowsAreTheCodesOfTheSiftRows) {
    const std::vector<Keypoint> keypoints = manyKeypoints();
    for (const std::size_t count : {1U, 2U, 15U, 16U, 17U, 32U, 101U}) {
        const std::vector<Keypoint> some(keypoints.begin(),
                                         keypoints.begin() + static_cast<std::ptrdiff_t>(count));
        const DescMat sift = rowsOf(some);
        const DescMat ldah = ldahRowsOf(some);
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(code(ldah, i), codeOf(row(sift, i))) << i << " of " << count;
        }
    }
}

TEST_F(LdahDescriptorTest, DifferentSurroundingsHaveDifferentCodes) {
    const DescMat ldah = ldahRowsOf(manyKeypoints());
    EXPECT_NE(code(ldah, 0), code(ldah, 1));
}

TEST_F(LdahDescriptorTest, AKeypointWithoutGradientsGetsZeros) {
    std::vector<Keypoint> keypoints = manyKeypoints();
    keypoints[40].x = kNaN;
    keypoints[41].x = 1000.0F;
    DescMat descriptors;
    allocateDescriptors(descriptors, static_cast<int>(keypoints.size()), false);
    std::memset(descriptors.data, 0x3b, keypoints.size() * descriptors.step);
    insert(descriptors, keypoints);
    EXPECT_EQ(code(descriptors, 40), Code{});
    EXPECT_EQ(code(descriptors, 41), Code{});
    EXPECT_EQ(code(descriptors, 42), codeOf(rowOf(keypoints[42])));
}

TEST_F(LdahDescriptorTest, RowsOfOtherOctavesAndLayersStayAsTheyAre) {
    std::vector<Keypoint> keypoints;
    for (const int octave : {0, 1, 3, 255}) {
        for (const int layer : {0, 1, 2, 4, 255}) {
            Keypoint keypoint = middle();
            keypoint.octave = static_cast<unsigned char>(octave);
            keypoint.layer = static_cast<unsigned char>(layer);
            keypoints.push_back(keypoint);
        }
    }
    DescMat descriptors;
    allocateDescriptors(descriptors, static_cast<int>(keypoints.size()), false);
    std::memset(descriptors.data, 0x3b, keypoints.size() * descriptors.step);
    const Code before = code(descriptors, 0);
    insert(descriptors, keypoints);
    const Code expected = codeOf(rowOf(middle()));
    for (std::size_t i = 0; i < keypoints.size(); ++i) {
        const bool meant = keypoints[i].octave == 0 && keypoints[i].layer == 1;
        EXPECT_EQ(code(descriptors, i), meant ? expected : before) << keypoints[i];
    }
}

TEST_F(LdahDescriptorTest, NeitherThreadsNorTheOrderOfKeypointsChangeACode) {
    std::vector<Keypoint> keypoints = manyKeypoints();
    const DescMat expected = ldahRowsOf(keypoints);
    std::vector<std::size_t> order(keypoints.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    test::Random random(11);
    for (const int threads : {1, 2, 5}) {
        const test::NumberOfThreads number(threads);
        for (std::size_t i = order.size(); i-- > 1;) {
            const std::size_t other = random.below(static_cast<std::uint32_t>(i) + 1);
            std::swap(order[i], order[other]);
            std::swap(keypoints[i], keypoints[other]);
        }
        const DescMat shuffled = ldahRowsOf(keypoints);
        for (std::size_t i = 0; i < order.size(); ++i) {
            ASSERT_EQ(code(shuffled, i), code(expected, order[i])) << threads << " threads, " << i;
        }
    }
}

TEST_F(LdahDescriptorTest, NoKeypointsNeedNoRows) {
    DescMat descriptors;
    EXPECT_NO_THROW(insert(descriptors, {}));
    EXPECT_TRUE(descriptors.empty());
}

TEST_F(LdahDescriptorTest, RefusesAMatrixOfAnotherForm) {
    constexpr auto kMessage = "The descriptor matrix does not have one row per keypoint.";
    const auto refuse = [&](DescMat& descriptors) {
        return refusal<std::invalid_argument>(descriptors, {middle()}, magnitude, orientation,
                                              false);
    };
    DescMat descriptors;
    EXPECT_EQ(refuse(descriptors), kMessage);
    for (const int rows : {0, 2}) {
        allocateDescriptors(descriptors, rows, false);
        EXPECT_EQ(refuse(descriptors), kMessage);
    }
    allocateDescriptors(descriptors, 1, true);
    EXPECT_EQ(refuse(descriptors), kMessage);
    for (const auto& [cols, type] :
         {std::pair(15, DescMat::Byte), std::pair(17, DescMat::Byte), std::pair(64, DescMat::Byte),
          std::pair(16, DescMat::Float), std::pair(4, DescMat::Float)}) {
        descriptors.create(1, cols, type);
        std::memset(descriptors.data, 0, descriptors.step);
        EXPECT_EQ(refuse(descriptors), kMessage) << cols;
    }
}

}  // namespace
}  // namespace marlo
