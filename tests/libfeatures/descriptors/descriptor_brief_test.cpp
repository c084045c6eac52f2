// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/descriptor_brief.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>

#include "references/brief_reference.h"
#include "utilities/captured_log.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using Eigen::Index;
using reference::BriefRow;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr BriefRow kNoBits{};

Keypoint at(float x, float y, float degrees = 0.0F) {
    return {x, y, 7.0F, degrees, 1.0F, 0, 0};
}

// Noise, smooth enough for boxes to differ by more than the noise of single pixels would make them.
ByteImage bytes(Index rows, Index cols, std::uint32_t seed) {
    test::Random random(seed);
    ByteImage image(rows, cols);
    for (Index r = 0; r < rows; ++r) {
        for (Index c = 0; c < cols; ++c) {
            image(r, c) = static_cast<unsigned char>((r * r * 5 + c * c * 3 + r * c * 2) / 64 +
                                                     random.below(100));
        }
    }
    return image;
}

std::vector<BriefRow> rowsOf(const ByteImage& image, std::vector<Keypoint> keypoints) {
    static Brief brief;  // costs milliseconds to make
    DescMat descriptors;
    brief.compute(image, keypoints, descriptors);
    std::vector<BriefRow> rows(static_cast<std::size_t>(descriptors.rows));
    for (int i = 0; i < descriptors.rows; ++i) {
        std::copy_n(descriptors.row(i).data, 64, rows[static_cast<std::size_t>(i)].begin());
    }
    return rows;
}

BriefRow rowOf(const ByteImage& image, const Keypoint& keypoint) {
    return rowsOf(image, {keypoint}).front();
}

// The lines that describing a keypoint with this angle writes.
std::vector<std::string> linesFor(float degrees) {
    const test::CapturedLog log;
    rowOf(ByteImage::Zero(60, 60), at(30, 30, degrees));
    return log.lines();
}

std::string refusal(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "accepted";
}

int rotationOf(float degrees) {
    return static_cast<int>(static_cast<double>(degrees * 72.0F) / 360.0);
}

class BriefAgainstTheRuleTest : public testing::Test {
protected:
    static const reference::BriefPattern& pattern(int rotation) {
        static const std::vector<reference::BriefPattern> kPatterns = [] {
            const reference::BriefPattern drawn = reference::drawnBriefPattern().entries;
            std::vector<reference::BriefPattern> patterns;
            for (int a = 0; a < 72; ++a) {
                patterns.push_back(reference::turnedBriefPattern(drawn, a));
            }
            return patterns;
        }();
        return kPatterns[static_cast<std::size_t>(rotation)];
    }

    static void expectRowsOfTheRule(const ByteImage& image,
                                    const std::vector<Keypoint>& keypoints) {
        const reference::BriefBoxes boxes(image);
        const std::vector<BriefRow> rows = rowsOf(image, keypoints);
        ASSERT_EQ(rows.size(), keypoints.size());
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const Keypoint& k = keypoints[i];
            ASSERT_EQ(rows[i], boxes.row(k, pattern(rotationOf(k.angle))))
                << "x " << k.x << ", y " << k.y << ", angle " << k.angle << " in " << image.cols()
                << " x " << image.rows() << " pixels";
        }
    }
};

TEST_F(BriefAgainstTheRuleTest, EveryRotationFarFromTheBorders) {
    const ByteImage image = bytes(90, 110, 1);
    test::Random random(2);
    std::vector<Keypoint> keypoints;
    for (int a = 0; a < 72; ++a) {
        for (int i = 0; i < 3; ++i) {
            keypoints.push_back(at(random.uniform(28, 82), random.uniform(28, 62),
                                   static_cast<float>(5 * a + 2 * i)));
        }
    }
    expectRowsOfTheRule(image, keypoints);
}

TEST_F(BriefAgainstTheRuleTest, FirstAndLastKeypointsWithBoxesInTheImage) {
    // 28 pixels from each border, the first pixel being brighter than all others together.
    ByteImage image = bytes(80, 70, 3) / static_cast<unsigned char>(64);
    image(0, 0) = 255;
    std::vector<Keypoint> keypoints;
    for (int a = 0; a < 72; ++a) {
        const auto degrees = static_cast<float>(5 * a);
        for (const float x : {28.0F, 41.0F, 41.999F}) {
            for (const float y : {28.0F, 51.0F, 51.999F}) keypoints.push_back(at(x, y, degrees));
        }
    }
    expectRowsOfTheRule(image, keypoints);
}

TEST_F(BriefAgainstTheRuleTest, AnywhereInImagesOfAnySize) {
    const std::vector<std::pair<Index, Index>> sizes{
        {1, 1}, {1, 200}, {200, 1}, {2, 3}, {8, 9}, {9, 8}, {30, 57}, {57, 57}, {60, 1}, {75, 300}};
    test::Random random(4);
    for (const auto& [rows, cols] : sizes) {
        std::vector<Keypoint> keypoints;
        for (int i = 0; i < 10; ++i) {
            keypoints.push_back(at(random.uniform(-60.0F, static_cast<float>(cols + 60)),
                                   random.uniform(-60.0F, static_cast<float>(rows + 60)),
                                   random.uniform(0.0F, 360.0F)));
        }
        expectRowsOfTheRule(bytes(rows, cols, 5), keypoints);
    }
}

// Where a coordinate is just below a whole number, d + coordinate may be rounded up to one: for
// some d only, depending on the powers of two around.
TEST_F(BriefAgainstTheRuleTest, SumsThatAreRoundedToTheNextWholeNumber) {
    const ByteImage image = bytes(70, 300, 6);
    std::vector<Keypoint> keypoints;
    for (int whole = 0; whole < 290; whole += whole < 70 || whole > 220 ? 1 : 10) {
        float x = static_cast<float>(whole);
        for (const int steps : {1, 1, 6}) {  // 1, 2 and 8 floats below
            for (int i = 0; i < steps; ++i) x = std::nextafter(x, -1.0F);
            keypoints.push_back(at(x, 33.25F, static_cast<float>(whole)));
        }
    }
    expectRowsOfTheRule(image, keypoints);
    for (Keypoint& keypoint : keypoints) std::swap(keypoint.x, keypoint.y);
    expectRowsOfTheRule(image.transpose(), keypoints);
}

TEST_F(BriefAgainstTheRuleTest, ImagesWiderThanSixteenBits) {
    const ByteImage image = bytes(12, 70000, 7);
    std::vector<Keypoint> keypoints;
    for (const float x : {32766.5F, 32767.0F, 32768.5F, 40000.0F, 65535.99F, 65536.0F, 69990.0F}) {
        keypoints.push_back(at(x, 6.5F, 77.0F));
    }
    expectRowsOfTheRule(image, keypoints);
    for (Keypoint& keypoint : keypoints) std::swap(keypoint.x, keypoint.y);
    expectRowsOfTheRule(image.transpose(), keypoints);
}

// The image may be divided into squares of 256 pixels: there are none beyond its last pixels.
TEST_F(BriefAgainstTheRuleTest, KeypointsOnTheFarSidesOfImagesOfWholeSquares) {
    const ByteImage image = bytes(256, 512, 22);
    std::vector<Keypoint> keypoints{at(512.0F, 100.0F, 1.0F), at(300.0F, 256.0F, 2.0F),
                                    at(512.0F, 256.0F, 3.0F), at(511.0F, 255.0F, 4.0F)};
    expectRowsOfTheRule(image, keypoints);
    for (Keypoint& keypoint : keypoints) std::swap(keypoint.x, keypoint.y);
    expectRowsOfTheRule(image.transpose(), keypoints);
}

// 2^23 - 9.5 is a float. Beyond 2^23 floats are whole numbers, and sums are rounded to even ones.
TEST_F(BriefAgainstTheRuleTest, ImagesWiderThanFloatsHaveFractions) {
    constexpr Index kCols = (1 << 23) + 100;
    ByteImage image = ByteImage::Zero(1, kCols);
    image.rightCols(300) = bytes(1, 300, 21);
    expectRowsOfTheRule(image, {at(0x1p23F - 9.5F, 0, 77), at(0x1p23F + 20.0F, 0, 5)});
}

TEST_F(BriefAgainstTheRuleTest, KeypointsOfAllPartsOfALargeImage) {
    const ByteImage image = bytes(600, 800, 8);
    test::Random random(9);
    std::vector<Keypoint> keypoints;
    for (int i = 0; i < 300; ++i) {
        keypoints.push_back(at(random.uniform(0.0F, 800.0F), random.uniform(0.0F, 600.0F),
                               random.uniform(0.0F, 360.0F)));
    }
    // Around the lines on which the image may be divided.
    for (const float x : {255.0F, 255.99998F, 256.0F, 511.5F, 512.0F, 799.0F}) {
        for (const float y : {0.0F, 255.99998F, 256.0F, 300.0F}) {
            keypoints.push_back(at(x, y, 10.0F));
        }
    }
    expectRowsOfTheRule(image, keypoints);
}

TEST(BriefTest, BitIsSetWhereTheFirstBoxIsBrighter) {
    // Bright from column 50 on. The box at column c has 8 - (50 - (c - 3)) bright columns of 8.
    ByteImage image = ByteImage::Zero(100, 100);
    image.rightCols(50).setConstant(200);
    const auto mean = [](int col) { return 200 * std::clamp(col - 45, 0, 8) / 8; };
    const Brief brief;
    const BriefRow row = rowOf(image, at(49.75F, 50.0F));
    for (std::size_t b = 0; b < 64; ++b) {
        for (std::size_t k = 0; k < 8; ++k) {
            const Brief::PatternEntry& e = brief.rotatedPatterns()[0][8 * b + k];
            EXPECT_EQ(row[b] >> k & 1, mean(49 + e.dx1) > mean(49 + e.dx2) ? 1 : 0)
                << "byte " << b << ", bit " << k;
        }
    }
}

TEST(BriefTest, MeansAreComparedAfterTheyHaveBeenRoundedDown) {
    // One pixel of 63 among zeros is no mean of 1, one of 64 is.
    ByteImage image = ByteImage::Zero(100, 100);
    image(50, 50) = 63;
    EXPECT_EQ(rowOf(image, at(50, 50)), kNoBits);
    image(50, 50) = 64;
    EXPECT_NE(rowOf(image, at(50, 50)), kNoBits);
}

TEST(BriefTest, UniformImageGivesZeros) {
    for (const int grey : {0, 1, 255}) {
        const ByteImage image = ByteImage::Constant(64, 64, static_cast<unsigned char>(grey));
        EXPECT_THAT(rowsOf(image, {at(32, 32), at(28, 30, 200), at(0, 0), at(63, 63), at(-9, 90)}),
                    Each(kNoBits));
    }
}

TEST(BriefTest, RowsNeverChange) {
    ByteImage image(200, 240);
    for (int r = 0; r < 200; ++r) {
        for (int c = 0; c < 240; ++c) {
            image(r, c) = static_cast<unsigned char>((r * r * 5 + c * c * 3 + r * c * 2) / 64 +
                                                     (r * 37 ^ c * 91) % 23);
        }
    }
    std::vector<Keypoint> keypoints;
    for (int i = 0; i < 72; ++i) {
        const auto x = static_cast<float>(28 + i * 37 % 184);
        const auto y = static_cast<float>(28 + i * 53 % 144);
        keypoints.push_back(at(std::min(x + 0.25F * static_cast<float>(i % 4), 211.0F),
                               std::min(y + 0.125F * static_cast<float>(i % 8), 171.0F),
                               5.0F * static_cast<float>(i) + 2.5F));
    }
    std::uint64_t digest = 0xcbf29ce484222325U;  // FNV-1a
    for (const BriefRow& row : rowsOf(image, keypoints)) {
        for (const unsigned char byte : row) digest = (digest ^ byte) * 0x100000001b3U;
    }
    EXPECT_EQ(digest, 0x9c58a666e35f222aU);
}

TEST(BriefTest, RowDoesNotDependOnTheOtherKeypoints) {
    const ByteImage image = bytes(400, 500, 10);
    test::Random random(11);
    std::vector<Keypoint> keypoints;
    for (int i = 0; i < 60; ++i) {
        keypoints.push_back(at(random.uniform(-10.0F, 510.0F), random.uniform(-10.0F, 410.0F),
                               random.uniform(0.0F, 360.0F)));
    }
    const std::vector<BriefRow> together = rowsOf(image, keypoints);
    std::vector<BriefRow> oneByOne;
    for (const Keypoint& keypoint : keypoints) oneByOne.push_back(rowOf(image, keypoint));
    EXPECT_EQ(together, oneByOne);
}

TEST(BriefTest, OnlyPositionAndAngleCount) {
    const ByteImage image = bytes(80, 80, 12);
    EXPECT_EQ(rowOf(image, {40.5F, 39.5F, 1.0F, 33.0F, 5.0F, 2, 3}),
              rowOf(image, {40.5F, 39.5F, 9.0F, 33.0F, -1.0F, 0, 0}));
}

TEST(BriefTest, PixelsAtTheBorderGoOnBeyondIt) {
    const ByteImage image = bytes(40, 50, 13);
    ByteImage larger(140, 150);
    for (Index r = 0; r < 140; ++r) {
        for (Index c = 0; c < 150; ++c) {
            larger(r, c) =
                image(std::clamp<Index>(r - 50, 0, 39), std::clamp<Index>(c - 50, 0, 49));
        }
    }
    for (const float x : {0.0F, 3.5F, 25.0F, 49.0F}) {
        for (const float y : {0.0F, 20.25F, 39.0F}) {
            EXPECT_EQ(rowOf(image, at(x, y, 123.0F)), rowOf(larger, at(x + 50, y + 50, 123.0F)));
        }
    }
}

TEST(BriefTest, CoordinatesThatAreNowhereCountAsFarAway) {
    const ByteImage image = bytes(64, 80, 14);
    const auto rowAt = [&](float x, float y) { return rowOf(image, at(x, y)); };
    for (const float far : {-kInfinity, -std::numeric_limits<float>::max(), -1e19F, -1e10F, kNaN}) {
        EXPECT_EQ(rowAt(far, 30), rowAt(-1000, 30));
        EXPECT_EQ(rowAt(30, far), rowAt(30, -1000));
        EXPECT_EQ(rowAt(far, far), kNoBits);
    }
    for (const float far : {kInfinity, std::numeric_limits<float>::max(), 1e19F, 1e10F, 3e9F}) {
        EXPECT_EQ(rowAt(far, 30), rowAt(1000, 30));
        EXPECT_EQ(rowAt(30, far), rowAt(30, 1000));
        EXPECT_EQ(rowAt(far, far), kNoBits);
    }
    // On the two sides of a coordinate the image is another one.
    EXPECT_NE(rowAt(-1000, 30), rowAt(1000, 30));
    EXPECT_NE(rowAt(30, -1000), rowAt(30, 1000));
}

TEST(BriefTest, FarAwayFloatsAreMoreThanAPixelApart) {
    const ByteImage image = bytes(64, 80, 15);
    for (const float x : {0x1p23F, 0x1p24F, 0x1.8p27F, 0x1p28F, 0x1p40F}) {
        EXPECT_EQ(rowOf(image, at(x, 30)), rowOf(image, at(1000, 30))) << x;
        EXPECT_EQ(rowOf(image, at(-x, 30)), rowOf(image, at(-1000, 30))) << x;
    }
}

TEST(BriefTest, AngleIsTruncatedToStepsOfFiveDegrees) {
    const ByteImage image = bytes(70, 70, 16);
    const auto rowAtAngle = [&](float degrees) { return rowOf(image, at(35, 35, degrees)); };
    EXPECT_EQ(rowAtAngle(4.99F), rowAtAngle(0.0F));
    EXPECT_NE(rowAtAngle(5.0F), rowAtAngle(0.0F));
    EXPECT_EQ(rowAtAngle(9.99F), rowAtAngle(5.0F));
    EXPECT_EQ(rowAtAngle(359.9F), rowAtAngle(355.0F));
    EXPECT_EQ(rowAtAngle(360.0F), rowAtAngle(0.0F));
    EXPECT_EQ(rowAtAngle(-4.9F), rowAtAngle(0.0F));
    EXPECT_EQ(rowAtAngle(-5.0F), rowAtAngle(0.0F));
}

TEST(BriefTest, StepOfTheFirstKeypointIsLogged) {
    EXPECT_THAT(linesFor(0.0F), ElementsAre("3 [descriptor_brief:116] |angle bin for keypoint 0 "
                                            "i_angle 0 angle [deg]: 0"));
    EXPECT_THAT(linesFor(4.99F), ElementsAre("3 [descriptor_brief:116] |angle bin for keypoint 0 "
                                             "i_angle 0 angle [deg]: 4.99"));
    EXPECT_THAT(linesFor(5.0F), ElementsAre("3 [descriptor_brief:116] |angle bin for keypoint 0 "
                                            "i_angle 1 angle [deg]: 5"));
    EXPECT_THAT(linesFor(359.9F), ElementsAre("3 [descriptor_brief:116] |angle bin for keypoint 0 "
                                              "i_angle 71 angle [deg]: 359.9"));
}

TEST(BriefTest, AngleOfNoStepIsLoggedBeforeTheStepThatIsTaken) {
    EXPECT_THAT(linesFor(360.0F),
                ElementsAre("6 [descriptor_brief:110] |i_angle out of range 72 angle [deg]: 360",
                            "3 [descriptor_brief:116] |angle bin for keypoint 0 i_angle 0 angle "
                            "[deg]: 360"));
    EXPECT_THAT(linesFor(-5.0F),
                ElementsAre("6 [descriptor_brief:110] |i_angle out of range -1 angle [deg]: -5",
                            "3 [descriptor_brief:116] |angle bin for keypoint 0 i_angle 0 angle "
                            "[deg]: -5"));
}

// Truncation is toward zero, so a negative radian angle is not noticed.
TEST(BriefTest, SmallNegativeAnglesCountAsZeroWithoutAWarning) {
    EXPECT_THAT(linesFor(-4.9F), ElementsAre("3 [descriptor_brief:116] |angle bin for keypoint 0 "
                                             "i_angle 0 angle [deg]: -4.9"));
    EXPECT_THAT(linesFor(-0.0F), ElementsAre("3 [descriptor_brief:116] |angle bin for keypoint 0 "
                                             "i_angle 0 angle [deg]: -0"));
}

TEST(BriefTest, AnglesWithoutAnIntegerStepHaveTheSmallest) {
    const auto warning = [](float degrees) { return linesFor(degrees).front(); };
    const std::string text =
        "6 [descriptor_brief:110] |i_angle out of range -2147483648 angle [deg]: ";
    EXPECT_EQ(warning(1e30F), text + "1e+30");
    EXPECT_EQ(warning(-1e30F), text + "-1e+30");
    EXPECT_EQ(warning(kInfinity), text + "inf");
    EXPECT_EQ(warning(-kInfinity), text + "-inf");
    EXPECT_EQ(warning(kNaN), text + "nan");
    EXPECT_EQ(warning(1.2e10F), text + "1.2e+10");
    // 72e10 is rounded to single precision, 719999991808.
    EXPECT_EQ(warning(1e10F),
              "6 [descriptor_brief:110] |i_angle out of range 1999999977 angle [deg]: 1e+10");
}

TEST(BriefTest, EveryAngleOfNoStepIsLoggedInTheOrderOfTheKeypoints) {
    const test::CapturedLog log;
    rowsOf(ByteImage::Zero(600, 60),
           {at(30, 500, 10), at(30, 400, 400), at(30, 30, 20), at(30, 300, -10), at(kNaN, 1, 500)});
    EXPECT_THAT(log.lines(),
                ElementsAre("3 [descriptor_brief:116] |angle bin for keypoint 0 i_angle 2 angle "
                            "[deg]: 10",
                            "6 [descriptor_brief:110] |i_angle out of range 80 angle [deg]: 400",
                            "6 [descriptor_brief:110] |i_angle out of range -2 angle [deg]: -10",
                            "6 [descriptor_brief:110] |i_angle out of range 100 angle [deg]: 500"));
}

TEST(BriefTest, InstancesAndClonesHaveTheSamePatternsAndRows) {
    const Brief first;
    const Brief second;
    const auto clone = first.cloneExtractor();
    const auto* const copy = dynamic_cast<const Brief*>(clone.get());
    ASSERT_NE(copy, nullptr);
    const auto same = [](const Brief::PatternEntry& a, const Brief::PatternEntry& b) {
        return a.dx1 == b.dx1 && a.dy1 == b.dy1 && a.dx2 == b.dx2 && a.dy2 == b.dy2;
    };
    for (std::size_t a = 0; a < 72; ++a) {
        for (std::size_t i = 0; i < 512; ++i) {
            const Brief::PatternEntry& entry = first.rotatedPatterns()[a][i];
            ASSERT_TRUE(same(entry, second.rotatedPatterns()[a][i]));
            ASSERT_TRUE(same(entry, copy->rotatedPatterns()[a][i]));
        }
    }
    ByteImage image = bytes(70, 70, 17);
    std::vector<Keypoint> keypoints{at(35, 35, 45)};
    DescMat descriptors;
    clone->compute(image, keypoints, descriptors);
    EXPECT_TRUE(std::equal(descriptors.data, descriptors.data + 64,
                           rowOf(image, keypoints.front()).begin()));
}

TEST(BriefTest, CloneDoesNotShareThePatterns) {
    auto original = std::make_unique<Brief>();
    const auto clone = original->cloneExtractor();
    original.reset();
    const ByteImage image = bytes(70, 70, 18);
    std::vector<Keypoint> keypoints{at(35, 35, 45)};
    DescMat descriptors;
    clone->compute(image, keypoints, descriptors);
    EXPECT_TRUE(std::equal(descriptors.data, descriptors.data + 64,
                           rowOf(image, keypoints.front()).begin()));
}

TEST(BriefTest, MatrixHas64BytesForEachKeypoint) {
    DescMat descriptors(2, 128, DescMat::Float);
    std::vector<Keypoint> keypoints(3, at(30, 30));
    Brief().compute(bytes(60, 60, 19), keypoints, descriptors);
    EXPECT_EQ(descriptors.rows, 3);
    EXPECT_EQ(descriptors.cols, 64);
    EXPECT_EQ(descriptors.type(), DescMat::Byte);
}

TEST(BriefTest, KeypointsStayAsTheyAre) {
    const Keypoint keypoint(31.5F, 32.5F, 3.0F, 400.0F, 0.25F, 1, 2);
    std::vector<Keypoint> keypoints{keypoint};
    DescMat descriptors;
    Brief().compute(bytes(60, 60, 20), keypoints, descriptors);
    ASSERT_EQ(keypoints.size(), 1U);
    EXPECT_EQ(keypoints[0].x, keypoint.x);
    EXPECT_EQ(keypoints[0].y, keypoint.y);
    EXPECT_EQ(keypoints[0].scale, keypoint.scale);
    EXPECT_EQ(keypoints[0].angle, keypoint.angle);
    EXPECT_EQ(keypoints[0].response, keypoint.response);
    EXPECT_EQ(keypoints[0].octave, keypoint.octave);
    EXPECT_EQ(keypoints[0].layer, keypoint.layer);
}

class BriefRefusalTest : public testing::Test {
protected:
    BriefRefusalTest() { descriptors.data[5] = 7; }

    void expectUntouched() const {
        EXPECT_EQ(descriptors.rows, 2);
        EXPECT_EQ(descriptors.cols, 16);
        EXPECT_EQ(descriptors.data[5], 7);
    }

    Brief brief;
    std::vector<Keypoint> keypoints{at(30, 30)};
    DescMat descriptors{2, 16, DescMat::Byte};
};

TEST_F(BriefRefusalTest, NoKeypoints) {
    const test::CapturedLog log;
    keypoints.clear();
    EXPECT_EQ(refusal([&] { brief.compute(bytes(60, 60, 1), keypoints, descriptors); }),
              "the image or keypoints (or both) are empty");
    expectUntouched();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(BriefRefusalTest, ImageWithoutPixels) {
    const test::CapturedLog log;
    for (const ByteImage& image : {ByteImage(), ByteImage(0, 5), ByteImage(5, 0)}) {
        EXPECT_EQ(refusal([&] { brief.compute(image, keypoints, descriptors); }),
                  "the image or keypoints (or both) are empty");
        expectUntouched();
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(BriefRefusalTest, FloatImage) {
    const FloatImage image = FloatImage::Zero(60, 60);
    EXPECT_EQ(refusal([&] { brief.compute(image, keypoints, descriptors); }),
              "compute functon with float matrices not implemented yet");
    expectUntouched();
}

}  // namespace
}  // namespace marlo
