// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/features_2d_sift_ldah.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <numbers>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "libfeatures/descriptors/ldah_codes.h"
#include "references/sift_reference.h"
#include "support/gauss_filter.h"
#include "support/gradient.h"
#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using Eigen::Index;
using test::photographLikeImage;
using testing::Each;
using testing::IsEmpty;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

using Object = std::unique_ptr<Features2dSiftLdah>;

template <typename Interface>
Object asObject(std::unique_ptr<Interface> plugIn) {
    return Object(dynamic_cast<Features2dSiftLdah*>(plugIn.release()));
}

Object siftOfScale(float imageScale) {
    Object object = asObject(Features2dSiftLdah::createDetectorSIFT());
    object->setParams(imageScale);
    return object;
}

std::vector<Keypoint> detected(Features2dSiftLdah& object, const FloatImage& image) {
    std::vector<Keypoint> keypoints;
    object.detect(image, keypoints);
    return keypoints;
}

std::vector<Keypoint> detected(const FloatImage& image, float imageScale = 1.0F) {
    return detected(*siftOfScale(imageScale), image);
}

DescMat described(Features2dSiftLdah& object, const FloatImage& image,
                  std::vector<Keypoint> keypoints) {
    DescMat descriptors;
    object.compute(image, keypoints, descriptors);
    return descriptors;
}

std::vector<float> row(const DescMat& descriptors, std::size_t i) {
    std::vector<float> values(128);
    std::memcpy(values.data(), descriptors.data + i * descriptors.step, 128 * sizeof(float));
    return values;
}

float length(const std::vector<float>& values) {
    float sum = 0.0F;
    for (const float value : values) {
        sum += value * value;
    }
    return std::sqrt(sum);
}

bool sameBytes(const DescMat& a, const DescMat& b) {
    return a.rows == b.rows && a.step == b.step &&
           (a.rows == 0 ||
            std::memcmp(a.data, b.data, static_cast<std::size_t>(a.rows) * a.step) == 0);
}

// Every field by its bits: NaN equals NaN.
bool sameBytes(const std::vector<Keypoint>& a, const std::vector<Keypoint>& b) {
    const auto bits = [](float value) {
        std::uint32_t result = 0;
        std::memcpy(&result, &value, sizeof result);
        return result;
    };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](const auto& k, const auto& l) {
        return bits(k.x) == bits(l.x) && bits(k.y) == bits(l.y) && bits(k.scale) == bits(l.scale) &&
               bits(k.angle) == bits(l.angle) && bits(k.response) == bits(l.response) &&
               k.octave == l.octave && k.layer == l.layer;
    });
}

// The reference, on top of the library's own blur and gradients.
void libraryBlur(FloatImage& image, double sigma) {
    conv_in_place(image.data(), static_cast<int>(image.rows()), static_cast<int>(image.cols()),
                  sigma);
}

std::vector<Keypoint> referenceKeypoints(const FloatImage& image, float imageScale = 1.0F) {
    return reference::detect(image, imageScale, libraryBlur, gradOriImages);
}

// Everything equal, bit for bit and in order; only the angle may differ by the rounding of the
// exponential function.
void expectReference(const std::vector<Keypoint>& keypoints,
                     const std::vector<Keypoint>& expected) {
    ASSERT_EQ(keypoints.size(), expected.size());
    std::vector<Keypoint> withReferenceAngles = keypoints;
    for (std::size_t i = 0; i < keypoints.size(); ++i) {
        EXPECT_NEAR(keypoints[i].angle, expected[i].angle, 1e-4F) << i;
        withReferenceAngles[i].angle = expected[i].angle;
    }
    EXPECT_TRUE(sameBytes(withReferenceAngles, expected));
}

// All accepted extrema of an image in the reference, octave by octave.
std::array<std::vector<reference::Extremum>, 3> referenceExtrema(const FloatImage& image) {
    std::array<std::vector<reference::Extremum>, 3> extrema;
    const reference::GaussianPyramid pyramid = reference::gaussianPyramid(image, libraryBlur);
    for (std::size_t o = 0; o < 3; ++o) {
        extrema[o] = reference::acceptedExtrema(reference::differences(pyramid[o]));
    }
    return extrema;
}

FloatImage blobAt(Index rows, Index cols, double row, double col, double sigma, double contrast) {
    FloatImage image = FloatImage::Zero(rows, cols);
    test::addBlob(image, row, col, sigma, contrast);
    return image;
}

template <typename Exception, typename Action>
std::string messageOf(Action action) {
    try {
        action();
    } catch (const Exception& exception) {
        return exception.what();
    }
    return "nothing thrown";
}

// Creation.

TEST(Features2dSiftLdahTest, FourCreatorsGiveBothRolesOfBothTypes) {
    EXPECT_FALSE(asObject(Features2dSiftLdah::createDetectorLDAH())->useSift);
    EXPECT_TRUE(asObject(Features2dSiftLdah::createDetectorSIFT())->useSift);
    EXPECT_FALSE(asObject(Features2dSiftLdah::createDescriptorLDAH())->useSift);
    EXPECT_TRUE(asObject(Features2dSiftLdah::createDescriptorSIFT())->useSift);
    EXPECT_EQ(asObject(Features2dSiftLdah::createDetectorSIFT())->imageScale, 0.0F);
    EXPECT_EQ(asObject(Features2dSiftLdah::createDescriptorLDAH())->imageScale, 0.0F);
}

TEST(Features2dSiftLdahTest, TakesFloatImagesAndGivesOrientations) {
    const Object object = siftOfScale(1.0F);
    EXPECT_TRUE(object->hasOrientations());
    EXPECT_TRUE(object->supportsFloatImages());
    EXPECT_FALSE(object->supportsIntImages());
}

TEST(Features2dSiftLdahTest, RefusesByteImages) {
    const Object object = siftOfScale(1.0F);
    const ByteImage image = ByteImage::Zero(20, 20);
    std::vector<Keypoint> keypoints(3);
    DescMat descriptors;
    EXPECT_EQ(messageOf<std::runtime_error>([&] { object->detect(image, keypoints); }),
              "ui8 image detect has not been implemented yet");
    EXPECT_EQ(
        messageOf<std::runtime_error>([&] { object->compute(image, keypoints, descriptors); }),
        "ui8 image compute has not been implemented yet");
    EXPECT_EQ(keypoints.size(), 3U);
    EXPECT_TRUE(descriptors.empty());
}

TEST(Features2dSiftLdahTest, RefusesImagesOfTooManyRows) {
    const auto object = asObject(Features2dSiftLdah::createDetectorSIFT());
    object->setParams(1.0F);
    const FloatImage tall(Eigen::Index{1} << 30, 0);
    std::vector<Keypoint> keypoints;
    try {
        object->detect(tall, keypoints);
        FAIL() << "nothing was thrown";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(),
                     "Images of more than 1073741823 rows or columns are not supported.");
    }
}

TEST(Features2dSiftLdahTest, ComputeAfterAFailedDetectBuildsTheScaleSpaceOfItsOwnImage) {
    const FloatImage first = test::photographLikeImage(60, 70, 1);
    const FloatImage second = test::photographLikeImage(60, 70, 2);
    const auto fresh = asObject(Features2dSiftLdah::createDetectorSIFT());
    const auto used = asObject(Features2dSiftLdah::createDetectorSIFT());
    std::vector<Keypoint> keypoints;
    DescMat expected;
    DescMat rows;
    fresh->setParams(1.0F);
    used->setParams(1.0F);
    used->detect(first, keypoints);
    ASSERT_FALSE(keypoints.empty());
    std::vector<Keypoint> none;
    EXPECT_THROW(used->detect(FloatImage(Eigen::Index{1} << 30, 0), none), std::invalid_argument);
    fresh->compute(second, keypoints, expected);
    used->compute(second, keypoints, rows);
    EXPECT_EQ(
        std::memcmp(rows.data, expected.data, static_cast<std::size_t>(rows.rows) * rows.step), 0);
}

TEST(Features2dSiftLdahTest, RefusesToBeClonedAsAnExtractor) {
    EXPECT_EQ(messageOf<std::runtime_error>([] { (void)siftOfScale(1.0F)->cloneExtractor(); }),
              "don't call this - re-use the same instance for descriptor extraction that was used "
              "for feature extraction");
}

// Detection.

TEST(Features2dSiftLdahTest, KeypointsAreThoseOfTheReference) {
    for (const auto& [rows, cols] :
         {std::pair(1, 1), std::pair(11, 11), std::pair(12, 12), std::pair(13, 13),
          std::pair(1000, 3), std::pair(3, 1000), std::pair(11, 200), std::pair(200, 11),
          std::pair(21, 23), std::pair(64, 64)}) {
        SCOPED_TRACE(std::to_string(rows) + " x " + std::to_string(cols));
        const FloatImage image = photographLikeImage(rows, cols, 1);
        expectReference(detected(image), referenceKeypoints(image));
    }
    for (std::uint32_t seed = 1; seed <= 8; ++seed) {
        SCOPED_TRACE("97 x 131, seed " + std::to_string(seed));
        const FloatImage image = photographLikeImage(97, 131, seed);
        const std::vector<Keypoint> keypoints = detected(image);
        EXPECT_GT(keypoints.size(), 30U);
        expectReference(keypoints, referenceKeypoints(image));
    }
}

TEST(Features2dSiftLdahTest, KeypointsOfAllOctavesAndLayersAreThoseOfTheReference) {
    const FloatImage image = photographLikeImage(200, 143, 2);
    const std::vector<Keypoint> keypoints = detected(image);
    expectReference(keypoints, referenceKeypoints(image));
    for (unsigned char octave = 0; octave < 3; ++octave) {
        EXPECT_TRUE(std::any_of(keypoints.begin(), keypoints.end(),
                                [&](const Keypoint& k) { return k.octave == octave; }));
    }
    for (unsigned char layer = 1; layer <= 3; ++layer) {
        EXPECT_TRUE(std::any_of(keypoints.begin(), keypoints.end(),
                                [&](const Keypoint& k) { return k.layer == layer; }));
    }
}

TEST(Features2dSiftLdahTest, PixelsFrom0To255GiveTheKeypointsOfTheReferenceToo) {
    const FloatImage image = 255.0F * photographLikeImage(97, 131, 3);
    const std::vector<Keypoint> keypoints = detected(image);
    EXPECT_GE(keypoints.size(), detected(image / 255.0F).size());
    expectReference(keypoints, referenceKeypoints(image));
}

TEST(Features2dSiftLdahTest, KeypointsLieInTheImageAndExceedTheThreshold) {
    for (const Keypoint& keypoint : detected(photographLikeImage(143, 200, 4))) {
        EXPECT_GT(keypoint.response, 0.0001F);
        EXPECT_GE(keypoint.x, 1.5F);
        EXPECT_LE(keypoint.x, 198.5F);
        EXPECT_GE(keypoint.y, 1.5F);
        EXPECT_LE(keypoint.y, 141.5F);
        EXPECT_GE(keypoint.angle, -std::numbers::pi_v<float>);
        EXPECT_LE(keypoint.angle, std::numbers::pi_v<float> + 1e-5F);
        EXPECT_GE(keypoint.scale, 1.4F);
    }
}

TEST(Features2dSiftLdahTest, ReplacesTheKeypointsOfTheCaller) {
    std::vector<Keypoint> keypoints(5);
    siftOfScale(1.0F)->detect(FloatImage(FloatImage::Zero(20, 20)), keypoints);
    EXPECT_THAT(keypoints, IsEmpty());
}

TEST(Features2dSiftLdahTest, AnOctaveOfTenRowsOrColumnsHasNoKeypoints) {
    const FloatImage image = blobAt(60, 60, 30.0, 5.0, 2.5, 1.0);
    EXPECT_THAT(detected(image.leftCols(10)), IsEmpty());
    EXPECT_THAT(detected(FloatImage(image.leftCols(10).transpose())), IsEmpty());
    EXPECT_FALSE(detected(image.leftCols(11)).empty());
    EXPECT_FALSE(detected(FloatImage(image.leftCols(11).transpose())).empty());
}

TEST(Features2dSiftLdahTest, OfElevenColumnsOnlyTheMiddleOneIsExamined) {
    const auto keypointsOfBlobAt = [](double col) {
        return detected(blobAt(60, 11, 30.0, col, 2.5, 1.0));
    };
    EXPECT_FALSE(keypointsOfBlobAt(5.0).empty());
    EXPECT_THAT(keypointsOfBlobAt(3.0), IsEmpty());
    EXPECT_THAT(keypointsOfBlobAt(7.0), IsEmpty());
}

TEST(Features2dSiftLdahTest, OctavesThatShrinkBelowElevenPixelsContributeNothing) {
    // 43 / 4 = 10, 44 / 4 = 11; a blob for octave 2.
    const auto inOctave2 = [](Index size) {
        const auto keypoints = detected(blobAt(size, size, 20.0, 20.0, 12.0, 1.0));
        return std::count_if(keypoints.begin(), keypoints.end(),
                             [](const Keypoint& k) { return k.octave == 2; });
    };
    EXPECT_EQ(inOctave2(43), 0);
    EXPECT_GT(inOctave2(44), 0);
}

TEST(Features2dSiftLdahTest, EmptyImagesHaveNoKeypoints) {
    for (const auto& [rows, cols] : {std::pair(0, 0), std::pair(0, 5), std::pair(5, 0)}) {
        const FloatImage image(rows, cols);
        const Object object = siftOfScale(1.0F);
        EXPECT_THAT(detected(*object, image), IsEmpty());
        const DescMat descriptors = described(*object, image, std::vector<Keypoint>(2));
        EXPECT_EQ(descriptors.rows, 2);
        EXPECT_THAT(row(descriptors, 1), Each(0.0F));
    }
}

TEST(Features2dSiftLdahTest, ConstantImagesHaveNoKeypoints) {
    for (const float value : {0.0F, 0.3F, 1.0F, -1e30F}) {
        EXPECT_THAT(detected(FloatImage::Constant(100, 100, value)), IsEmpty());
    }
}

TEST(Features2dSiftLdahTest, BrightAndDarkDotsGiveTheSameKeypointsButForTheirDirections) {
    const FloatImage bright = blobAt(121, 121, 60.2, 59.7, 2.5, 0.8);
    const std::vector<Keypoint> ofBright = detected(bright);
    std::vector<Keypoint> ofDark = detected(-bright);
    expectReference(ofBright, referenceKeypoints(bright));
    expectReference(ofDark, referenceKeypoints(-bright));

    // The strongest is the dot, found as a maximum and as a minimum.
    const auto strongest = std::max_element(
        ofBright.begin(), ofBright.end(),
        [](const Keypoint& a, const Keypoint& b) { return a.response < b.response; });
    ASSERT_NE(strongest, ofBright.end());
    EXPECT_NEAR(strongest->x, 59.7F, 0.05F);
    EXPECT_NEAR(strongest->y, 60.2F, 0.05F);
    const auto sameAsStrongest = [&](const Keypoint& k) {
        return k.x == strongest->x && k.y == strongest->y && k.scale == strongest->scale &&
               k.response == strongest->response;
    };
    EXPECT_TRUE(std::any_of(ofDark.begin(), ofDark.end(), sameAsStrongest));

    // So it is for the weak ring around it.
    const auto positions = [](const std::vector<Keypoint>& keypoints) {
        std::vector<std::pair<float, float>> result;
        for (const Keypoint& k : keypoints) {
            if (result.empty() || result.back() != std::pair(k.x, k.y)) {
                result.emplace_back(k.x, k.y);
            }
        }
        return result;
    };
    EXPECT_EQ(positions(ofBright), positions(ofDark));
}

TEST(Features2dSiftLdahTest, ADifferenceOfZeroIsAMinimumAndNoMaximum) {
    // Beyond the reach of the kernels differences are exactly 0, beside values that are tiny but
    // for the dot's enormous contrast.
    FloatImage image = FloatImage::Zero(121, 121);
    image(60, 60) = -1e20F;
    const reference::GaussianPyramid pyramid = reference::gaussianPyramid(image, libraryBlur);
    const reference::Differences differences = reference::differences(pyramid[0]);
    const auto extrema = reference::acceptedExtrema(differences);
    ASSERT_GT(extrema.size(), 100U);
    for (const reference::Extremum& e : extrema) {
        const auto level = static_cast<std::size_t>(e.level);
        ASSERT_EQ(differences[level](e.candidateRow, e.candidateCol), 0.0F);
    }
    const std::vector<Keypoint> keypoints = detected(image);
    EXPECT_GT(keypoints.size(), 50U);
    expectReference(keypoints, referenceKeypoints(image));
    EXPECT_THAT(detected(-image), IsEmpty());
}

TEST(Features2dSiftLdahTest, EqualNeighboursAreAllCandidates) {
    // A blob between four pixels: four equal maxima, whose fits meet in the middle.
    const FloatImage image = blobAt(80, 80, 39.5, 39.5, 3.0, 0.8);
    const auto extrema = referenceExtrema(image)[0];
    const auto isMiddle = [](const reference::Extremum& e) { return e.value > 0.01F; };
    ASSERT_EQ(std::count_if(extrema.begin(), extrema.end(), isMiddle), 4);
    const std::vector<Keypoint> keypoints = detected(image);
    expectReference(keypoints, referenceKeypoints(image));
    for (const reference::Extremum& e : extrema) {
        if (!isMiddle(e)) {
            continue;
        }
        EXPECT_TRUE(std::any_of(keypoints.begin(), keypoints.end(), [&](const Keypoint& k) {
            return k.x == static_cast<float>(e.col) + e.colOffset &&
                   k.y == static_cast<float>(e.row) + e.rowOffset;
        }));
    }
}

TEST(Features2dSiftLdahTest, OfExtremaThatMeetInAPixelTheFirstSurvives) {
    FloatImage image = FloatImage::Zero(121, 121);
    image(60, 60) = -1e20F;
    const auto extrema = referenceExtrema(image)[0];
    const auto first = reference::firstOfEachPixel(extrema, 121, 121);
    ASSERT_LT(first.size(), extrema.size());
    expectReference(detected(image), referenceKeypoints(image));
}

TEST(Features2dSiftLdahTest, AFitThatHasNotSettledAfterFiveMovesStands) {
    const FloatImage image = blobAt(80, 80, 39.5, 39.5, 3.0, 0.8);
    const auto extrema = referenceExtrema(image)[0];
    ASSERT_TRUE(std::any_of(extrema.begin(), extrema.end(), [](const reference::Extremum& e) {
        return e.moves == 5 && (std::abs(e.rowOffset) > 0.6F || std::abs(e.colOffset) > 0.6F);
    }));
    expectReference(detected(image), referenceKeypoints(image));
}

TEST(Features2dSiftLdahTest, NumberOfThreadsChangesNothing) {
    const FloatImage image = photographLikeImage(530, 70, 5);
    const auto run = [&](int threads) {
        const test::NumberOfThreads number(threads);
        const Object object = siftOfScale(1.0F);
        std::vector<Keypoint> keypoints = detected(*object, image);
        DescMat descriptors = described(*object, image, keypoints);
        return std::pair(std::move(keypoints), std::move(descriptors));
    };
    const auto [keypoints, descriptors] = run(1);
    EXPECT_GT(keypoints.size(), 100U);
    expectReference(keypoints, referenceKeypoints(image));
    for (const int threads : {2, 3, 8}) {
        const auto [keypointsOfSeveral, descriptorsOfSeveral] = run(threads);
        EXPECT_TRUE(sameBytes(keypointsOfSeveral, keypoints)) << threads;
        EXPECT_TRUE(sameBytes(descriptorsOfSeveral, descriptors)) << threads;
    }
}

TEST(Features2dSiftLdahTest, NumberOfThreadsChangesNothingForExtremaThatMoveFar) {
    // Wherever the image is cut into bands, some of these many move across the cut.
    FloatImage image = FloatImage::Zero(530, 90);
    for (Index row = 25; row < 530; row += 37) {
        image(row, 20 + row % 53) = -1e20F;
    }
    const auto run = [&](int threads) {
        const test::NumberOfThreads number(threads);
        return detected(image);
    };
    const std::vector<Keypoint> keypoints = run(1);
    EXPECT_GT(keypoints.size(), 500U);
    for (const int threads : {2, 3, 5, 8}) {
        EXPECT_TRUE(sameBytes(run(threads), keypoints)) << threads;
    }
}

TEST(Features2dSiftLdahTest, ASecondDetectionIsThatOfAFreshObject) {
    const FloatImage first = photographLikeImage(97, 131, 6);
    const Object used = siftOfScale(1.0F);
    for (const FloatImage& second :
         {photographLikeImage(97, 131, 7), photographLikeImage(64, 50, 8),
          photographLikeImage(110, 140, 9), FloatImage(FloatImage::Zero(3, 3))}) {
        (void)detected(*used, first);
        const Object fresh = siftOfScale(1.0F);
        const std::vector<Keypoint> keypoints = detected(*used, second);
        EXPECT_TRUE(sameBytes(keypoints, detected(*fresh, second)));
        EXPECT_TRUE(
            sameBytes(described(*used, second, keypoints), described(*fresh, second, keypoints)));
    }
}

TEST(Features2dSiftLdahTest, PositionsAndScalesAreDividedByTheImageScale) {
    const FloatImage image = photographLikeImage(97, 131, 10);
    const std::vector<Keypoint> keypoints = detected(image);
    for (const float imageScale : {0.5F, -2.0F}) {
        std::vector<Keypoint> scaled = detected(image, imageScale);
        for (Keypoint& k : scaled) {
            k.x *= imageScale;
            k.y *= imageScale;
            k.scale *= imageScale;
        }
        EXPECT_TRUE(sameBytes(scaled, keypoints)) << imageScale;
    }
    expectReference(detected(image, 0.3F), referenceKeypoints(image, 0.3F));
}

TEST(Features2dSiftLdahTest, AnImageScaleOfZeroOrNaNIsNotChecked) {
    const FloatImage image = photographLikeImage(97, 131, 10);
    const std::vector<Keypoint> keypoints = detected(image);
    const std::vector<Keypoint> ofZero = detected(image, 0.0F);
    const std::vector<Keypoint> ofNaN = detected(image, kNaN);
    ASSERT_EQ(ofZero.size(), keypoints.size());
    ASSERT_EQ(ofNaN.size(), keypoints.size());
    for (std::size_t i = 0; i < keypoints.size(); ++i) {
        EXPECT_EQ(ofZero[i].x, kInfinity);
        EXPECT_EQ(ofZero[i].y, kInfinity);
        EXPECT_EQ(ofZero[i].scale, kInfinity);
        EXPECT_EQ(ofZero[i].angle, keypoints[i].angle);
        EXPECT_EQ(ofZero[i].response, keypoints[i].response);
        EXPECT_TRUE(std::isnan(ofNaN[i].x) && std::isnan(ofNaN[i].y) && std::isnan(ofNaN[i].scale));
        EXPECT_EQ(ofNaN[i].angle, keypoints[i].angle);
    }
}

TEST(Features2dSiftLdahTest, BadPixelsDoNotHarmKeypointsFarFromThem) {
    const FloatImage image = photographLikeImage(60, 200, 11);
    // The kernels of an octave up to its last level reach 50 pixels in octave 0, 113 in octave 1;
    // six more for moves and neighbours.
    const auto farAway = [](const std::vector<Keypoint>& keypoints) {
        std::vector<Keypoint> result;
        std::copy_if(keypoints.begin(), keypoints.end(), std::back_inserter(result),
                     [](const Keypoint& k) {
                         return (k.octave == 0 && k.x > 60.0F) || (k.octave == 1 && k.x > 130.0F);
                     });
        return result;
    };
    const std::vector<Keypoint> clean = farAway(detected(image));
    ASSERT_GT(clean.size(), 20U);
    for (const float bad : {kNaN, kInfinity, -kInfinity}) {
        FloatImage withBadPixels = image;
        withBadPixels(30, 0) = bad;
        withBadPixels(0, 1) = bad;
        const Object object = siftOfScale(1.0F);
        const std::vector<Keypoint> keypoints = detected(*object, withBadPixels);
        EXPECT_TRUE(sameBytes(farAway(keypoints), clean)) << bad;
        for (const Keypoint& k : keypoints) {
            EXPECT_GT(k.x, 20.0F);
            EXPECT_TRUE(std::isfinite(k.angle));
        }
        EXPECT_EQ(described(*object, withBadPixels, keypoints).rows,
                  static_cast<int>(keypoints.size()));
    }
}

TEST(Features2dSiftLdahTest, ImagesOfBadPixelsOnlyHaveNoKeypoints) {
    for (const float bad : {kNaN, kInfinity, -kInfinity}) {
        EXPECT_THAT(detected(FloatImage::Constant(50, 50, bad)), IsEmpty());
    }
}

TEST(Features2dSiftLdahTest, HugePixelsDoNoHarm) {
    // Sums of them overflow.
    const float largest = std::numeric_limits<float>::max();
    const FloatImage image = largest * photographLikeImage(60, 60, 12);
    const Object object = siftOfScale(1.0F);
    const std::vector<Keypoint> keypoints = detected(*object, image);
    EXPECT_EQ(described(*object, image, keypoints).rows, static_cast<int>(keypoints.size()));
}

// Description.

TEST(Features2dSiftLdahTest, RowsAreThoseOfTheReference) {
    const FloatImage image = photographLikeImage(120, 150, 13);
    for (const float imageScale : {1.0F, 0.5F, 2.0F}) {
        const Object object = siftOfScale(imageScale);
        const std::vector<Keypoint> keypoints = detected(*object, image);
        const DescMat descriptors = described(*object, image, keypoints);
        ASSERT_EQ(descriptors.rows, static_cast<int>(keypoints.size()));
        ASSERT_EQ(descriptors.cols, 128);
        ASSERT_EQ(descriptors.type(), DescMat::Float);

        const auto pyramid = reference::gaussianPyramid(image, libraryBlur);
        for (std::size_t i = 0; i < keypoints.size(); ++i) {
            const FloatImage& level = pyramid[keypoints[i].octave][keypoints[i].layer];
            FloatImage magnitude(level.rows(), level.cols());
            FloatImage orientation(level.rows(), level.cols());
            gradOriImages(level, magnitude, orientation);
            const auto expected =
                reference::siftDescriptor(magnitude, orientation, keypoints[i],
                                          static_cast<float>(1 << keypoints[i].octave), imageScale);
            const std::vector<float> values = row(descriptors, i);
            for (std::size_t k = 0; k < 128; ++k) {
                ASSERT_NEAR(values[k], expected[k], 2e-6F) << "row " << i << ", value " << k;
            }
        }
    }
}

TEST(Features2dSiftLdahTest, ComputeLeavesTheKeypointsAlone) {
    const FloatImage image = photographLikeImage(97, 131, 14);
    const Object object = siftOfScale(1.0F);
    std::vector<Keypoint> keypoints = detected(*object, image);
    const std::vector<Keypoint> before = keypoints;
    DescMat descriptors;
    object->compute(image, keypoints, descriptors);
    EXPECT_TRUE(sameBytes(keypoints, before));
}

TEST(Features2dSiftLdahTest, NoKeypointsGiveNoRows) {
    const Object object = siftOfScale(1.0F);
    const DescMat descriptors = described(*object, photographLikeImage(40, 40, 15), {});
    EXPECT_EQ(descriptors.rows, 0);
    EXPECT_EQ(descriptors.cols, 128);
}

TEST(Features2dSiftLdahTest, ComputeBuildsTheScaleSpaceThatDetectionWouldBuildAndKeepsIt) {
    const FloatImage image = photographLikeImage(97, 131, 16);
    const FloatImage other = photographLikeImage(97, 131, 17);
    const Object detector = siftOfScale(1.0F);
    const std::vector<Keypoint> keypoints = detected(*detector, image);
    const DescMat expected = described(*detector, image, keypoints);

    const Object extractor = asObject(Features2dSiftLdah::createDescriptorSIFT());
    extractor->setParams(1.0F);
    EXPECT_TRUE(sameBytes(described(*extractor, image, keypoints), expected));
    EXPECT_TRUE(sameBytes(described(*extractor, other, keypoints), expected));
}

TEST(Features2dSiftLdahTest, ComputeReadsTheScaleSpaceOfTheLastDetection) {
    const FloatImage image = photographLikeImage(97, 131, 16);
    const FloatImage other = photographLikeImage(60, 60, 17);
    const Object object = siftOfScale(1.0F);
    const std::vector<Keypoint> keypoints = detected(*object, image);
    const DescMat expected = described(*object, image, keypoints);
    EXPECT_TRUE(sameBytes(described(*object, other, keypoints), expected));
    (void)detected(*object, other);
    EXPECT_FALSE(sameBytes(described(*object, image, keypoints), expected));
}

TEST(Features2dSiftLdahTest, ACloneIsADeepCopy) {
    const FloatImage image = photographLikeImage(97, 131, 18);
    const Object original = siftOfScale(0.5F);
    const std::vector<Keypoint> keypoints = detected(*original, image);
    const DescMat expected = described(*original, image, keypoints);

    const Object copy = asObject(original->clone());
    EXPECT_EQ(copy->imageScale, 0.5F);
    EXPECT_TRUE(copy->useSift);
    original->setParams(3.0F);
    (void)detected(*original, photographLikeImage(97, 131, 19));
    EXPECT_TRUE(sameBytes(described(*copy, image, keypoints), expected));

    EXPECT_FALSE(asObject(asObject(Features2dSiftLdah::createDetectorLDAH())->clone())->useSift);
}

TEST(Features2dSiftLdahTest, ComputeNeedsAnImageScale) {
    const FloatImage image = photographLikeImage(97, 131, 20);
    for (const float zero : {0.0F, -0.0F}) {
        const Object object = siftOfScale(zero);
        std::vector<Keypoint> keypoints = detected(image);
        const std::vector<Keypoint> before = keypoints;
        DescMat descriptors;
        EXPECT_EQ(
            messageOf<std::runtime_error>([&] { object->compute(image, keypoints, descriptors); }),
            "Invalid image scale, should be > 0.0");
        EXPECT_TRUE(sameBytes(keypoints, before));
        ASSERT_EQ(descriptors.rows, static_cast<int>(keypoints.size()));
        ASSERT_EQ(descriptors.cols, 128);
        EXPECT_THAT(row(descriptors, 0), Each(0.0F));
    }
}

TEST(Features2dSiftLdahTest, ComputeTakesANegativeImageScale) {
    // Positions and scales turned twice are what they were.
    const FloatImage image = photographLikeImage(97, 131, 20);
    const Object plain = siftOfScale(1.0F);
    const Object negative = siftOfScale(-1.0F);
    const DescMat expected = described(*plain, image, detected(*plain, image));
    EXPECT_TRUE(sameBytes(described(*negative, image, detected(*negative, image)), expected));
}

TEST(Features2dSiftLdahTest, ComputeWithAnImageScaleOfNaNGivesNaN) {
    const FloatImage image = photographLikeImage(97, 131, 20);
    const Object object = siftOfScale(kNaN);
    const DescMat descriptors = described(*object, image, detected(image));
    ASSERT_GT(descriptors.rows, 0);
    EXPECT_THAT(row(descriptors, 0), Each(testing::IsNan()));
}

TEST(Features2dSiftLdahTest, TwelveRowsOrColumnsGetNoDescriptors) {
    const std::vector<Keypoint> keypoints = {Keypoint(6.0F, 6.0F, 2.0F, 0.3F, 1.0F, 0, 2)};
    for (const auto& [rows, cols] : {std::pair(12, 12), std::pair(12, 40), std::pair(40, 12),
                                     std::pair(13, 13), std::pair(13, 40)}) {
        const Object object = siftOfScale(1.0F);
        const DescMat descriptors =
            described(*object, photographLikeImage(rows, cols, 21), keypoints);
        ASSERT_EQ(descriptors.rows, 1);
        EXPECT_NEAR(length(row(descriptors, 0)), rows > 12 && cols > 12 ? 1.0F : 0.0F, 1e-5F)
            << rows << " x " << cols;
    }
}

class Features2dSiftLdahBadKeypointTest : public testing::Test {
protected:
    const FloatImage image = photographLikeImage(60, 70, 22);
    const Object object = siftOfScale(1.0F);

    std::vector<float> rowOf(const Keypoint& keypoint) {
        return row(described(*object, image, {keypoint}), 0);
    }
    static Keypoint good() { return {35.0F, 30.0F, 2.5F, 0.5F, 1.0F, 0, 2}; }

    void expectZeros(const Keypoint& keypoint) { EXPECT_THAT(rowOf(keypoint), Each(0.0F)); }
    void expectNaN(const Keypoint& keypoint) {
        EXPECT_THAT(rowOf(keypoint), Each(testing::IsNan()));
    }
    void expectUnitLength(const Keypoint& keypoint) {
        EXPECT_NEAR(length(rowOf(keypoint)), 1.0F, 1e-5F);
    }
};

TEST_F(Features2dSiftLdahBadKeypointTest, AGoodOneGetsARowOfLengthOne) {
    expectUnitLength(good());
}

TEST_F(Features2dSiftLdahBadKeypointTest, OtherOctavesAndLayersGetZeros) {
    for (const int octave : {3, 4, 200, 255}) {
        Keypoint keypoint = good();
        keypoint.octave = static_cast<unsigned char>(octave);
        expectZeros(keypoint);
    }
    for (const int layer : {0, 4, 5, 255}) {
        Keypoint keypoint = good();
        keypoint.layer = static_cast<unsigned char>(layer);
        expectZeros(keypoint);
    }
}

TEST_F(Features2dSiftLdahBadKeypointTest, PositionsFarOffTheImageGetNaN) {
    for (const float position :
         {-1000.0F, 1000.0F, 3e9F, -3e9F, 1e30F, -1e30F, 3e38F, kInfinity, -kInfinity, kNaN}) {
        Keypoint keypoint = good();
        keypoint.x = position;
        expectNaN(keypoint);
        keypoint = good();
        keypoint.y = position;
        expectNaN(keypoint);
    }
}

TEST_F(Features2dSiftLdahBadKeypointTest, PositionsJustOffTheImageUseWhatTheySee) {
    for (const auto& [x, y] : {std::pair(-4.0F, 30.0F), std::pair(74.0F, 30.0F),
                               std::pair(35.0F, -4.0F), std::pair(35.0F, 64.0F)}) {
        Keypoint keypoint = good();
        keypoint.x = x;
        keypoint.y = y;
        expectUnitLength(keypoint);
    }
}

TEST_F(Features2dSiftLdahBadKeypointTest, HugeScalesSeeTheWholeImage) {
    for (const float scale : {1e3F, 1e8F, 1e9F, 1e30F}) {
        Keypoint keypoint = good();
        keypoint.scale = scale;
        expectUnitLength(keypoint);
    }
    // Many of them do not take minutes, nor in the smallest octave.
    std::vector<Keypoint> many(2000, good());
    for (Keypoint& keypoint : many) {
        keypoint.scale = 1e30F;
        keypoint.octave = 2;
    }
    EXPECT_EQ(described(*object, image, many).rows, 2000);
}

TEST_F(Features2dSiftLdahBadKeypointTest, ScalesThatAreNoSizeGetNaN) {
    for (const float scale : {0.0F, -0.0F, -1.0F, -1e30F, kNaN, kInfinity, -kInfinity}) {
        Keypoint keypoint = good();
        keypoint.scale = scale;
        expectNaN(keypoint);
    }
}

TEST_F(Features2dSiftLdahBadKeypointTest, AnglesThatAreNoDirectionGetNaN) {
    for (const float angle : {kNaN, kInfinity, -kInfinity}) {
        Keypoint keypoint = good();
        keypoint.angle = angle;
        expectNaN(keypoint);
    }
}

TEST_F(Features2dSiftLdahBadKeypointTest, AnglesOfAnySizeAreDirections) {
    for (const float angle : {49.0F, 51.0F, 1e5F, 1e30F, -1e30F, 3e38F}) {
        Keypoint keypoint = good();
        keypoint.angle = angle;
        expectUnitLength(keypoint);
    }
    const std::vector<float> expected = rowOf(good());
    for (const int turns : {-20, -3, 1, 7, 8, 20}) {
        Keypoint keypoint = good();
        keypoint.angle += static_cast<float>(turns) * 2.0F * std::numbers::pi_v<float>;
        const std::vector<float> values = rowOf(keypoint);
        for (std::size_t k = 0; k < 128; ++k) {
            ASSERT_NEAR(values[k], expected[k], 1e-4F) << turns << " turns, value " << k;
        }
    }
}

TEST_F(Features2dSiftLdahBadKeypointTest, FlatSurroundingsGetNaN) {
    const Object other = siftOfScale(1.0F);
    const DescMat descriptors =
        described(*other, FloatImage::Constant(60, 70, 0.5F), {good(), good()});
    EXPECT_THAT(row(descriptors, 0), Each(testing::IsNan()));
    EXPECT_THAT(row(descriptors, 1), Each(testing::IsNan()));
}

TEST_F(Features2dSiftLdahBadKeypointTest, GoodOnesBesideThemAreNotHarmed) {
    Keypoint offImage = good();
    offImage.x = kNaN;
    Keypoint wildOctave = good();
    wildOctave.octave = 200;
    const DescMat descriptors =
        described(*object, image, {offImage, good(), wildOctave, good(), offImage});
    const std::vector<float> expected = rowOf(good());
    EXPECT_EQ(row(descriptors, 1), expected);
    EXPECT_EQ(row(descriptors, 3), expected);
}

// LDAH rows.

class Features2dLdahTest : public testing::Test {
protected:
    using Code = std::array<unsigned char, 16>;

    static Object ldahOfScale(float imageScale) {
        Object object = asObject(Features2dSiftLdah::createDetectorLDAH());
        object->setParams(imageScale);
        return object;
    }
    static Code code(const DescMat& descriptors, std::size_t i) {
        Code bytes;
        std::memcpy(bytes.data(), descriptors.data + i * descriptors.step, bytes.size());
        return bytes;
    }

    const FloatImage image = photographLikeImage(97, 131, 23);
};

TEST_F(Features2dLdahTest, BothTypesDetectTheSameKeypoints) {
    EXPECT_TRUE(sameBytes(detected(*ldahOfScale(1.0F), image), detected(image)));
}

TEST_F(Features2dLdahTest, RowsAreTheCodesOfTheSiftRows) {
    for (const float imageScale : {1.0F, 0.5F}) {
        const Object sift = siftOfScale(imageScale);
        const Object ldah = ldahOfScale(imageScale);
        const std::vector<Keypoint> keypoints = detected(*ldah, image);
        ASSERT_GT(keypoints.size(), 50U);
        const DescMat descriptors = described(*ldah, image, keypoints);
        DescMat expected;
        ldahRowsFromSift(described(*sift, image, keypoints), expected);
        ASSERT_EQ(descriptors.cols, 16);
        ASSERT_EQ(descriptors.type(), DescMat::Byte);
        EXPECT_TRUE(sameBytes(descriptors, expected));
    }
}

TEST_F(Features2dLdahTest, AnExtractorOfItsOwnMakesTheSameRows) {
    const Object detector = ldahOfScale(1.0F);
    const std::vector<Keypoint> keypoints = detected(*detector, image);
    const Object extractor = asObject(Features2dSiftLdah::createDescriptorLDAH());
    extractor->setParams(1.0F);
    EXPECT_TRUE(
        sameBytes(described(*extractor, image, keypoints), described(*detector, image, keypoints)));
}

TEST_F(Features2dLdahTest, NeitherThreadsNorTheOrderOfKeypointsChangeACode) {
    const Object ldah = ldahOfScale(1.0F);
    const std::vector<Keypoint> keypoints = detected(*ldah, image);
    const DescMat expected = described(*ldah, image, keypoints);
    const std::size_t count = keypoints.size();
    for (const int threads : {1, 2, 5}) {
        const test::NumberOfThreads number(threads);
        EXPECT_TRUE(sameBytes(described(*ldah, image, keypoints), expected)) << threads;
        std::vector<Keypoint> others;  // every seventh of them, then the ones after these ...
        std::vector<std::size_t> numbers;
        for (std::size_t first = 0; first < 7; ++first) {
            for (std::size_t i = first; i < count; i += 7) {
                others.push_back(keypoints[i]);
                numbers.push_back(i);
            }
        }
        const DescMat descriptors = described(*ldah, image, others);
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(code(descriptors, i), code(expected, numbers[i])) << threads << ", " << i;
        }
    }
}

TEST_F(Features2dLdahTest, KeypointsWithoutALevelOrWithoutGradientsGetZeros) {
    const Keypoint good(35.0F, 30.0F, 2.5F, 0.5F, 1.0F, 0, 2);
    std::vector<Keypoint> keypoints(6, good);
    keypoints[0].octave = 3;
    keypoints[1].layer = 0;
    keypoints[2].layer = 4;
    keypoints[3].x = kNaN;
    keypoints[4].y = 1000.0F;
    const DescMat descriptors = described(*ldahOfScale(1.0F), image, keypoints);
    for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(code(descriptors, i), Code{}) << i;
    EXPECT_NE(code(descriptors, 5), Code{});
}

TEST_F(Features2dLdahTest, TwelveRowsGiveZeros) {
    const std::vector<Keypoint> keypoints(3, Keypoint(6.0F, 6.0F, 2.0F, 0.3F, 1.0F, 0, 2));
    const DescMat descriptors =
        described(*ldahOfScale(1.0F), photographLikeImage(12, 40, 21), keypoints);
    ASSERT_EQ(descriptors.rows, 3);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(code(descriptors, i), Code{});
}

TEST_F(Features2dLdahTest, ComputeNeedsAnImageScale) {
    const Object ldah = ldahOfScale(0.0F);
    std::vector<Keypoint> keypoints = detected(image);
    DescMat descriptors;
    EXPECT_EQ(messageOf<std::runtime_error>([&] { ldah->compute(image, keypoints, descriptors); }),
              "Invalid image scale, should be > 0.0");
    ASSERT_EQ(descriptors.rows, static_cast<int>(keypoints.size()));
    ASSERT_EQ(descriptors.cols, 16);
    EXPECT_EQ(code(descriptors, 0), Code{});
}

}  // namespace
}  // namespace marlo
