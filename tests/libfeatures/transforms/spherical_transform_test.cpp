// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/transforms/spherical_transform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include "libfeatures/base/features_controller.h"
#include "libfeatures/base/registration.h"
#include "libfeatures/transforms/detail/polar_discs.h"
#include "references/spherical_reference.h"
#include "utilities/captured_log.h"
#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using test::CapturedLog;
using test::Random;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kPi = 3.141592653589793;

struct Back {
    std::vector<Keypoint> forDescriptors;
    std::vector<Keypoint> output;
};

Back keypointsBack(SphericalTransform& transform, const std::vector<Keypoint>& keypoints, int width,
                   int height) {
    Back back;
    transform.transformKeypointsBack(keypoints, back.forDescriptors, back.output, width, height);
    return back;
}

// One that has been given a panorama of that size.
SphericalTransform transformFor(int width, int height) {
    SphericalTransform transform;
    transform.transformImage(ByteImage(ByteImage::Zero(height, width)));
    return transform;
}

// What becomes of one place in the working image of a panorama of 2000 x 1000 pixels: its margin
// is 25, its band 550 rows high, and its discs have a radius of 350.14.
std::vector<Keypoint> backIn2000x1000(float x, float y) {
    static SphericalTransform transform = transformFor(2000, 1000);
    return keypointsBack(transform, {Keypoint(x, y)}, 2000, 1000).output;
}

ByteImage randomBytes(Eigen::Index rows, Eigen::Index cols, std::uint32_t seed) {
    Random random(seed);
    ByteImage image(rows, cols);
    for (Eigen::Index i = 0; i < image.size(); ++i) {
        image.data()[i] = static_cast<unsigned char>(random.below(256));
    }
    return image;
}

// The sign of a NaN is the compiler's choice.
bool isSame(float a, float b) {
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

bool areSame(const std::vector<Keypoint>& a, const std::vector<Keypoint>& b) {
    const auto same = [](const Keypoint& left, const Keypoint& right) {
        return isSame(left.x, right.x) && isSame(left.y, right.y) &&
               isSame(left.scale, right.scale) && isSame(left.angle, right.angle) &&
               isSame(left.response, right.response) && left.octave == right.octave &&
               left.layer == right.layer;
    };
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), same);
}

TEST(SphericalTransformTest, HasABandAndTwoDiscsBelowIt) {
    SphericalTransform transform;
    const ByteImage& working =
        transform.transformImage(ByteImage(ByteImage::Constant(1000, 2000, 7)));
    ASSERT_EQ(working.rows(), 1250);
    ASSERT_EQ(working.cols(), 2050);
    EXPECT_EQ(working.topRows(550).minCoeff(), 7);
    EXPECT_EQ(working(550 + 350, 350), 7);         // the middle of the north disc
    EXPECT_EQ(working(550 + 350, 2050 - 350), 7);  // and of the south disc
    EXPECT_EQ(working(550 + 350, 700), 0);         // just right of the north disc
    EXPECT_EQ(working(550 + 350, 699), 7);
    EXPECT_EQ(working(550 + 350, 2050 - 701), 0);  // just left of the south disc
    EXPECT_EQ(working(550 + 350, 2050 - 700), 7);
    EXPECT_EQ(working(550, 1025), 0);
}

TEST(SphericalTransformTest, TheBandGoesOnBeyondTheSeam) {
    const ByteImage panorama = randomBytes(1000, 2000, 1);
    SphericalTransform transform;
    const ByteImage& working = transform.transformImage(panorama);
    EXPECT_EQ(working.block(0, 0, 550, 25), panorama.block(225, 1975, 550, 25));
    EXPECT_EQ(working.block(0, 25, 550, 2000), panorama.block(225, 0, 550, 2000));
    EXPECT_EQ(working.block(0, 2025, 550, 25), panorama.block(225, 0, 550, 25));
}

TEST(SphericalTransformTest, TheCentresOfTheDiscsAreThePoles) {
    ByteImage panorama = ByteImage::Zero(1000, 2000);
    panorama.row(0).setConstant(1);
    panorama.row(999).setConstant(2);
    SphericalTransform transform;
    const ByteImage& working = transform.transformImage(panorama);
    EXPECT_EQ(working(900, 350), 1);
    EXPECT_EQ(working(900, 1700), 2);
}

// The north pole's disc has longitude 0 below its centre, the south pole's above it; both have
// longitude 90 degrees to the right. So neither is mirrored.
TEST(SphericalTransformTest, TheDiscsTurnAsSeenFromInside) {
    FloatImage panorama(1000, 2000);
    for (Eigen::Index col = 0; col < 2000; ++col) {
        panorama.col(col).setConstant(static_cast<float>(col));
    }
    SphericalTransform transform;
    const FloatImage& working = transform.transformImage(panorama);
    EXPECT_EQ(working(900 + 200, 350), 1000.0F);
    EXPECT_EQ(working(900, 350 + 200), 1500.0F);
    EXPECT_EQ(working(900 - 200, 350), 0.0F);
    EXPECT_EQ(working(900, 350 - 200), 500.0F);
    EXPECT_EQ(working(900 - 200, 1700), 1000.0F);
    EXPECT_EQ(working(900, 1700 + 200), 1500.0F);
    EXPECT_EQ(working(900 + 200, 1700), 0.0F);
    EXPECT_EQ(working(900, 1700 - 200), 500.0F);
}

// A gnomonic view: 45 degrees from the pole lie one radius of the cylinder from the centre.
TEST(SphericalTransformTest, TheDiscsShowTheTangentPlane) {
    FloatImage panorama(1000, 2000);
    for (Eigen::Index row = 0; row < 1000; ++row) {
        panorama.row(row).setConstant(static_cast<float>(row));
    }
    SphericalTransform transform;
    const FloatImage& working = transform.transformImage(panorama);
    constexpr double kRadius = 1000.0 / kPi;
    for (const int pixels : {30, 100, 184, 318}) {
        const double row = std::atan(pixels / kRadius) * 1000.0 / kPi;
        EXPECT_EQ(working(900, 350 + pixels), std::round(row)) << pixels;
        EXPECT_EQ(working(900, 1700 + pixels), std::round(1000.0 - row)) << pixels;
    }
}

TEST(SphericalTransformTest, WorksForTwoPixels) {
    ByteImage panorama(1, 2);
    panorama << 5, 6;
    SphericalTransform transform;
    EXPECT_EQ(transform.transformImage(panorama), panorama);
}

// The discs have a radius of 0.7, one centre row, and two pixels in it: longitude -90 degrees and
// the pole.
TEST(SphericalTransformTest, WorksForFourTimesTwoPixels) {
    FloatImage panorama(2, 4);
    panorama << 1, 2, 3, 4,  //
        5, 6, 7, 8;
    FloatImage expected(2, 4);
    expected << 5, 6, 7, 8,  //
        6, 3, 6, 7;
    SphericalTransform transform;
    EXPECT_EQ(transform.transformImage(panorama), expected);
}

TEST(SphericalTransformTest, AnEmptyImageIsAnEmptyPanorama) {
    SphericalTransform transform;
    EXPECT_EQ(transform.transformImage(ByteImage()).size(), 0);
    const CapturedLog log;
    EXPECT_THAT(keypointsBack(transform, {}, 0, 0).output, IsEmpty());
    EXPECT_EQ(log.lines().size(), 1U);  // and no warning
}

TEST(SphericalTransformTest, EqualsThePlainLoopsForEverySmallSize) {
    SphericalTransform transform;
    for (Eigen::Index rows = 1; rows <= 45; ++rows) {
        const ByteImage bytes = randomBytes(rows, 2 * rows, static_cast<std::uint32_t>(rows));
        const FloatImage floats = bytes.cast<float>();
        ASSERT_EQ(transform.transformImage(bytes), test::sphericalWorkingImage(bytes)) << rows;
        ASSERT_EQ(transform.transformImage(floats), test::sphericalWorkingImage(floats)) << rows;
    }
}

TEST(SphericalTransformTest, EqualsThePlainLoopsForRandomSizesAndThreads) {
    Random random(7);
    SphericalTransform transform;
    for (int i = 0; i < 8; ++i) {
        const auto rows = static_cast<Eigen::Index>(100 + random.below(250));
        const test::NumberOfThreads threads(1 + i % 5);
        const ByteImage panorama = randomBytes(rows, 2 * rows, random.below(1000));
        ASSERT_EQ(transform.transformImage(panorama), test::sphericalWorkingImage(panorama))
            << rows;
    }
}

TEST(SphericalTransformTest, RefusesPanoramasWhosePixelsCannotBeNumbered) {
    try {
        detail::PolarDiscs discs(SphericalLayout(92682, 46341));
        FAIL() << "not refused";
    } catch (const std::length_error& error) {
        EXPECT_STREQ(error.what(),
                     "A panorama of 92682 x 46341 pixels is too large: they must be fewer than "
                     "2^32");
    }
}

TEST(SphericalTransformTest, AnotherImageOfTheSameSizeReplacesTheOne) {
    SphericalTransform transform;
    const ByteImage* const first = &transform.transformImage(randomBytes(20, 40, 1));
    const ByteImage panorama = randomBytes(20, 40, 2);
    const ByteImage& second = transform.transformImage(panorama);
    EXPECT_EQ(&second, first);
    EXPECT_EQ(second, test::sphericalWorkingImage(panorama));
}

TEST(SphericalTransformTest, TheKindsOfPixelsHaveWorkingImagesOfTheirOwn) {
    SphericalTransform transform;
    const ByteImage bytes = randomBytes(20, 40, 1);
    const ByteImage& working = transform.transformImage(bytes);
    transform.transformImage(test::noiseImage(30, 60, 2));
    EXPECT_EQ(working, test::sphericalWorkingImage(bytes));
}

TEST(SphericalTransformTest, ACopyGoesItsOwnWay) {
    SphericalTransform transform = transformFor(40, 20);
    SphericalTransform copy = transform;
    const ByteImage small = randomBytes(10, 20, 1);
    const ByteImage large = randomBytes(20, 40, 2);
    const ByteImage& ofCopy = copy.transformImage(small);
    const ByteImage& ofFirst = transform.transformImage(large);
    EXPECT_EQ(ofCopy, test::sphericalWorkingImage(small));
    EXPECT_EQ(ofFirst, test::sphericalWorkingImage(large));
}

TEST(SphericalTransformTest, SaysWhatItHasMade) {
    const CapturedLog log;
    SphericalTransform transform = transformFor(2000, 1000);
    keypointsBack(transform, {}, 2000, 1000);
    EXPECT_THAT(log.lines(),
                ElementsAre("2 [spherical_transform:165] |Spherical feature transform: converted "
                            "to cylindrical, 2000 x 1000 to 2050 x 1250",
                            "2 [spherical_transform:231] |Spherical feature transform: converted "
                            "back to spherical"));
}

TEST(SphericalTransformTest, AnotherShapeIsReturnedItselfWithAWarning) {
    SphericalTransform transform;
    const ByteImage bytes = ByteImage::Zero(1000, 1000);
    const FloatImage floats = FloatImage::Zero(10, 21);
    const CapturedLog log;
    EXPECT_EQ(&transform.transformImage(bytes), &bytes);
    EXPECT_EQ(&transform.transformImage(floats), &floats);
    const std::string warning =
        "6 [spherical_transform:157] |Spherical feature transform: aborted due to image not being "
        "2:1 ratio";
    EXPECT_THAT(log.lines(), ElementsAre(warning, warning));
}

TEST(SphericalTransformTest, KeypointsOfAnotherShapePassUnchangedWithAWarning) {
    SphericalTransform transform = transformFor(1000, 1000);
    const std::vector<Keypoint> keypoints{Keypoint(1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 1, 2),
                                          Keypoint(-6.0F, 7.0F)};
    const CapturedLog log;
    const Back back = keypointsBack(transform, keypoints, 1000, 1000);
    EXPECT_TRUE(areSame(back.forDescriptors, keypoints));
    EXPECT_TRUE(areSame(back.output, keypoints));
    EXPECT_THAT(log.lines(),
                ElementsAre("6 [spherical_transform:172] |Spherical feature transform: conversion "
                            "back to spherical aborted due to image not being 2:1 ratio"));
}

TEST(SphericalTransformTest, TheLastImageDecidesAboutKeypoints) {
    SphericalTransform transform = transformFor(1000, 1000);
    transform.transformImage(FloatImage(FloatImage::Zero(1000, 2000)));
    EXPECT_THAT(keypointsBack(transform, {Keypoint(0.0F, 0.0F)}, 2000, 1000).output, IsEmpty());
    transform.transformImage(FloatImage(FloatImage::Zero(10, 10)));
    EXPECT_EQ(keypointsBack(transform, {Keypoint(0.0F, 0.0F)}, 2000, 1000).output.size(), 1U);
}

TEST(SphericalTransformTest, MapsTheCornerOfTheBand) {
    const std::vector<Keypoint> back = backIn2000x1000(25.0F, 25.0F);
    ASSERT_EQ(back.size(), 1U);
    EXPECT_EQ(back[0].x, 0.0F);
    EXPECT_EQ(back[0].y, 250.0F);
}

TEST(SphericalTransformTest, TheRightEndOfTheBandIsTheLeftOfThePanorama) {
    const std::vector<Keypoint> back = backIn2000x1000(2025.0F, 300.0F);
    ASSERT_EQ(back.size(), 1U);
    EXPECT_EQ(back[0].x, 0.0F);
    EXPECT_EQ(back[0].y, 525.0F);
}

TEST(SphericalTransformTest, DropsWhatLiesInTheMarginsOfTheBand) {
    EXPECT_THAT(backIn2000x1000(std::nextafter(25.0F, 0.0F), 300.0F), IsEmpty());
    EXPECT_THAT(backIn2000x1000(std::nextafter(2025.0F, 3000.0F), 300.0F), IsEmpty());
    EXPECT_THAT(backIn2000x1000(2026.0F, 300.0F), IsEmpty());
    EXPECT_THAT(backIn2000x1000(300.0F, std::nextafter(25.0F, 0.0F)), IsEmpty());
    EXPECT_THAT(backIn2000x1000(300.0F, std::nextafter(525.0F, 600.0F)), IsEmpty());
    EXPECT_EQ(backIn2000x1000(300.0F, 525.0F).size(), 1U);
}

TEST(SphericalTransformTest, MapsTheCentresOfTheDiscsToThePoles) {
    const auto radius = static_cast<float>(1.1 * 1000.0 / kPi);
    const std::vector<Keypoint> north = backIn2000x1000(radius, 550.0F + radius);
    ASSERT_EQ(north.size(), 1U);
    EXPECT_NEAR(north[0].y, 0.0F, 1e-3F);
    const std::vector<Keypoint> south = backIn2000x1000(2050.0F - radius, 550.0F + radius);
    ASSERT_EQ(south.size(), 1U);
    EXPECT_NEAR(south[0].y, 1000.0F, 1e-3F);
    EXPECT_LE(south[0].y, 1000.0F);
}

TEST(SphericalTransformTest, DropsTheOuterRingOfTheDiscs) {
    constexpr double kRadius = 1000.0 / kPi;
    for (const double centre : {1.1 * kRadius, 2050.0 - 1.1 * kRadius}) {
        const auto at = [&](double distance) {
            return backIn2000x1000(static_cast<float>(centre + distance),
                                   static_cast<float>(550.0 + 1.1 * kRadius));
        };
        EXPECT_EQ(at(0.999 * kRadius).size(), 1U);
        EXPECT_THAT(at(1.001 * kRadius), IsEmpty());
        EXPECT_THAT(at(1.09 * kRadius), IsEmpty());
    }
}

TEST(SphericalTransformTest, DropsWhatLiesBetweenTheDiscs) {
    EXPECT_THAT(backIn2000x1000(1025.0F, 900.0F), IsEmpty());
}

TEST(SphericalTransformTest, KeepsEverythingButThePosition) {
    SphericalTransform transform = transformFor(2000, 1000);
    const Keypoint keypoint(100.0F, 50.0F, 3.0F, 4.0F, 5.0F, 1, 2);
    const Back back = keypointsBack(transform, {keypoint}, 2000, 1000);
    EXPECT_TRUE(areSame(back.forDescriptors, {keypoint}));
    EXPECT_TRUE(areSame(back.output, {Keypoint(75.0F, 275.0F, 3.0F, 4.0F, 5.0F, 1, 2)}));
}

TEST(SphericalTransformTest, TheListsMayBeTheSame) {
    SphericalTransform transform = transformFor(2000, 1000);
    std::vector<Keypoint> keypoints{Keypoint(0.0F, 0.0F), Keypoint(100.0F, 50.0F)};
    std::vector<Keypoint> output;
    transform.transformKeypointsBack(keypoints, keypoints, output, 2000, 1000);
    EXPECT_TRUE(areSame(keypoints, {Keypoint(100.0F, 50.0F)}));
    EXPECT_TRUE(areSame(output, {Keypoint(75.0F, 275.0F)}));
}

TEST(SphericalTransformTest, KeypointsEqualThoseOfThePlainRule) {
    Random random(11);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    for (const int height : {1, 2, 7, 100, 1001}) {
        const int width = 2 * height;
        SphericalTransform transform = transformFor(width, height);
        std::vector<Keypoint> keypoints;
        const float size = static_cast<float>(width);
        for (int i = 0; i < 4000; ++i) {
            const float x = random.uniform(-0.05F * size, 1.1F * size);
            const float y = random.uniform(-0.05F * size, 0.7F * size);
            keypoints.emplace_back(x, y, random.uniform(1.0F, 9.0F), 0.5F, 0.25F, 1, 2);
        }
        for (const float x : {nan, infinity, -infinity, 0.2F * size}) {
            for (const float y : {nan, infinity, -infinity, 0.1F * size, 0.4F * size}) {
                keypoints.emplace_back(x, y);
            }
        }
        const Back back = keypointsBack(transform, keypoints, width, height);
        const test::KeypointsBack expected = test::sphericalKeypointsBack(keypoints, width, height);
        EXPECT_TRUE(areSame(back.forDescriptors, expected.forDescriptors)) << height;
        EXPECT_TRUE(areSame(back.output, expected.output)) << height;
        EXPECT_GT(back.output.size(), 1000U);
    }
}

// The sizes need not be those of the image: it may have been made smaller.
TEST(SphericalTransformTest, KeypointsAreMappedToTheSizesPassedIn) {
    Random random(12);
    SphericalTransform transform = transformFor(40, 20);
    std::vector<Keypoint> keypoints;
    for (int i = 0; i < 4000; ++i) {
        const float x = random.uniform(0.0F, 2200.0F);
        keypoints.emplace_back(x, random.uniform(0.0F, 1500.0F));
    }
    // With another shape the discs reach beyond the top and the bottom quarter.
    for (const auto& [width, height] : {std::pair(2000, 1000), {2000, 900}, {2000, 1150}}) {
        const Back back = keypointsBack(transform, keypoints, width, height);
        const test::KeypointsBack expected = test::sphericalKeypointsBack(keypoints, width, height);
        EXPECT_TRUE(areSame(back.forDescriptors, expected.forDescriptors)) << height;
        EXPECT_TRUE(areSame(back.output, expected.output)) << height;
        EXPECT_GT(back.output.size(), 1000U);
    }
}

// All places of a working image of 2000 x 1000 pixels' panorama that show a place of it.
std::vector<Keypoint> copiesOf(double x, double y) {
    constexpr double kRadius = 1000.0 / kPi;
    std::vector<Keypoint> copies;
    const auto add = [&](double workingX, double workingY) {
        copies.emplace_back(static_cast<float>(workingX), static_cast<float>(workingY));
    };
    if (y > 225.0 && y < 775.0) {
        add(x + 25.0, y - 225.0);
        if (x > 1975.0) add(x - 1975.0, y - 225.0);
        if (x < 25.0) add(x + 2025.0, y - 225.0);
    }
    const double longitude = (x - 1000.0) / kRadius;
    const double fromPole = std::min(y, 1000.0 - y) / kRadius;
    if (std::tan(fromPole) < 1.1 && y < 500.0) {
        add(1.1 * kRadius + kRadius * std::tan(fromPole) * std::sin(longitude),
            550.0 + 1.1 * kRadius + kRadius * std::tan(fromPole) * std::cos(longitude));
    } else if (std::tan(fromPole) < 1.1) {
        add(2050.0 - 1.1 * kRadius + kRadius * std::tan(fromPole) * std::sin(longitude),
            550.0 + 1.1 * kRadius - kRadius * std::tan(fromPole) * std::cos(longitude));
    }
    return copies;
}

TEST(SphericalTransformTest, EveryPlaceIsKeptOnceAndComesBackToItself) {
    SphericalTransform transform = transformFor(2000, 1000);
    Random random(3);
    std::size_t severalCopies = 0;
    for (int i = 0; i < 3000; ++i) {
        const auto x = static_cast<double>(random.uniform(0.01F, 1999.99F));
        const auto y = static_cast<double>(random.uniform(1.0F, 999.0F));
        if (std::abs(y - 250.0) < 0.01 || std::abs(y - 750.0) < 0.01) continue;
        const std::vector<Keypoint> copies = copiesOf(x, y);
        severalCopies += copies.size() > 1 ? 1 : 0;
        const std::vector<Keypoint> back = keypointsBack(transform, copies, 2000, 1000).output;
        ASSERT_EQ(back.size(), 1U) << x << ' ' << y;
        // Next to a pole, a small step is a large one along the row.
        const double across = std::sin(y / 1000.0 * kPi);
        EXPECT_NEAR(static_cast<double>(back[0].x) * across, x * across, 1e-3);
        EXPECT_NEAR(static_cast<double>(back[0].y), y, 1e-3);
    }
    EXPECT_GT(severalCopies, 200U);
}

// Where blobs lie on a panorama: on the seam and on both poles.
const Eigen::Vector3d kBlobs[] = {{0.0, 0.0, -1.0}, {0.0, -1.0, 0.0}, {0.0, 1.0, 0.0}};
constexpr int kBlobHeight = 400;

// The direction that a pixel shows: x to the right of the middle, y down, z ahead.
Eigen::Vector3d directionAt(double x, double y) {
    const double longitude = (x - kBlobHeight) * kPi / kBlobHeight;
    const double latitude = (y - 0.5 * kBlobHeight) * kPi / kBlobHeight;
    return {std::sin(longitude) * std::cos(latitude), std::sin(latitude),
            std::cos(longitude) * std::cos(latitude)};
}

FloatImage panoramaWithBlobs() {
    constexpr double kSigma = 0.02;  // radians
    FloatImage panorama = FloatImage::Constant(kBlobHeight, 2 * kBlobHeight, 0.2F);
    for (int row = 0; row < kBlobHeight; ++row) {
        for (int col = 0; col < 2 * kBlobHeight; ++col) {
            for (const Eigen::Vector3d& blob : kBlobs) {
                const double square = (directionAt(col, row) - blob).squaredNorm();
                panorama(row, col) +=
                    static_cast<float>(0.6 * std::exp(-square / (2.0 * kSigma * kSigma)));
            }
        }
    }
    return panorama;
}

TEST(SphericalTransformTest, TheControllerFindsWhatLiesOnSeamAndPoles) {
    registerMainFeatureDetectors();
    registerMainDescriptorExtractors();
    registerMainKeypointSelectors();
    registerMainTransforms();
    FeaturesController controller("SIFT", "SIFT", "TOP", "Spherical");
    controller.setFeatureSetParams(1.0, kBlobHeight, 2 * kBlobHeight, 100);
    std::vector<Keypoint> keypoints;
    DescMat rows;
    controller.process(panoramaWithBlobs(), keypoints, rows);
    ASSERT_EQ(static_cast<std::size_t>(rows.rows), keypoints.size());
    for (const Eigen::Vector3d& blob : kBlobs) {
        const bool isFound =
            std::any_of(keypoints.begin(), keypoints.end(), [&](const Keypoint& keypoint) {
                const Eigen::Vector3d there =
                    directionAt(static_cast<double>(keypoint.x), static_cast<double>(keypoint.y));
                return (there - blob).norm() < 0.01;  // 1.3 pixels
            });
        EXPECT_TRUE(isFound) << blob.transpose();
    }
}

}  // namespace
}  // namespace marlo
