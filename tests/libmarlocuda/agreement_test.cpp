// SPDX-License-Identifier: BSD-3-Clause
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "libfeatures/base/parameter_setters.h"
#include "libfeatures/descriptors/sift_ldah_descriptor.h"
#include "libfeatures/detectors/features_2d_sift_ldah.h"
#include "libmarlocuda/keypoint_agreement.h"
#include "libmarlocuda/marlocuda.h"
#include "support/gauss_filter.h"
#include "support/gradient.h"
#include "utilities/synthetic_images.h"

/// The GPU library against the CPU's code. Linked with the CUDA variant these tests need a GPU;
/// linked with the variant that runs its kernels on the CPU they need none.
namespace marlo::test {
namespace {

class AgreementTest : public testing::Test {
protected:
    void SetUp() override {
        if (!cuda::gpusAvailableForProcessing()) {
            std::string reason;
            cuda::getActiveDeviceString(reason);
            GTEST_SKIP() << reason;
        }
    }
};

std::uint64_t count(Eigen::Index side) {
    return static_cast<std::uint64_t>(side);
}

std::string sizeText(Eigen::Index rows, Eigen::Index cols) {
    return std::to_string(rows) + " x " + std::to_string(cols);
}

// More than 99.5 % are asked for; all of them agree, and nearly all to the bit: a scale may be one
// rounding step away, since powers of two are computed in another way.
void expectCpuKeypoints(const FloatImage& image) {
    const std::vector<Keypoint> cpu = cpuKeypoints(image);
    const Agreement result = agreement(cpu, gpuKeypoints(image));
    EXPECT_EQ(result.gpu, result.cpu);
    EXPECT_EQ(result.close, result.cpu);
    EXPECT_GE(static_cast<double>(result.exact), 0.99 * static_cast<double>(result.cpu));
    EXPECT_LT(result.largestScale, 2e-7);
}

TEST_F(AgreementTest, FindsTheKeypointsOfTheCpuInItsOrder) {
    const FloatImage image = photographLikeImage(360, 480, 1);
    ASSERT_GT(cpuKeypoints(image).size(), 300U);
    expectCpuKeypoints(image);
}

TEST_F(AgreementTest, FindsTheKeypointsOfImagesOfAnyRange) {
    expectCpuKeypoints(photographLikeImage(201, 211, 2) * 255.0F);
    expectCpuKeypoints(noiseImage(200, 233, 3, 0.0F, 255.0F));
    expectCpuKeypoints(photographLikeImage(150, 170, 4) * -3.0e4F);
}

TEST_F(AgreementTest, FindsTheKeypointsOfSmallAndNarrowImages) {
    Random random(5);
    for (int round = 0; round < 60; ++round) {
        const auto rows = static_cast<Eigen::Index>(1 + random.below(90));
        const auto cols = static_cast<Eigen::Index>(1 + random.below(90));
        SCOPED_TRACE(sizeText(rows, cols));
        expectCpuKeypoints(noiseImage(rows, cols, random.below(1000), 0.0F, 255.0F));
    }
    expectCpuKeypoints(noiseImage(11, 2000, 6, 0.0F, 255.0F));
    expectCpuKeypoints(noiseImage(2000, 12, 7, 0.0F, 255.0F));
}

TEST_F(AgreementTest, FindsNothingInAnImageWithoutPixels) {
    EXPECT_TRUE(gpuKeypoints(FloatImage(0, 0)).empty());
    EXPECT_TRUE(gpuKeypoints(FloatImage(0, 50)).empty());
    EXPECT_TRUE(gpuKeypoints(FloatImage(50, 0)).empty());
}

TEST_F(AgreementTest, FindsNothingInAConstantImage) {
    EXPECT_TRUE(gpuKeypoints(FloatImage::Constant(100, 100, 77.0F)).empty());
}

TEST_F(AgreementTest, FindsTheKeypointsThatRoundingMakesOfEvenAreas) {
    // They are many and lie anywhere: differences of exactly zero, several candidates that end at
    // one pixel, moves along the borders.
    for (const auto& [dark, bright] : {std::array{0.0F, 65535.0F}, {-3.0e4F, 2.0e4F}}) {
        for (const auto& [rows, cols] :
             {std::array{28, 84}, {84, 28}, {36, 176}, {176, 36}, {30, 69}, {69, 30}, {121, 146}}) {
            SCOPED_TRACE(sizeText(rows, cols));
            const FloatImage disc = discImage(rows, cols, dark, bright);
            ASSERT_FALSE(cpuKeypoints(disc).empty());
            expectCpuKeypoints(disc);
        }
    }
}

TEST_F(AgreementTest, FindsTheKeypointsAroundPixelsThatAreNoNumbers) {
    FloatImage image = photographLikeImage(160, 190, 8) * 255.0F;
    image(40, 50) = std::numeric_limits<float>::quiet_NaN();
    image(120, 150) = std::numeric_limits<float>::infinity();
    ASSERT_FALSE(cpuKeypoints(image).empty());
    expectCpuKeypoints(image);
}

TEST_F(AgreementTest, FindsOnePixelOfEachRefinedExtremumOnce) {
    // Nearly periodic images tie all over, so that several candidates end at one pixel.
    FloatImage image = noiseImage(120, 140, 9, 0.0F, 0.01F);
    for (Eigen::Index r = 0; r < image.rows(); ++r) {
        for (Eigen::Index c = 0; c < image.cols(); ++c) {
            image(r, c) += static_cast<float>((r / 3 % 2) ^ (c / 5 % 2)) * 200.0F;
        }
    }
    ASSERT_FALSE(cpuKeypoints(image).empty());
    expectCpuKeypoints(image);
}

TEST_F(AgreementTest, GivesTheSameBitsEachTime) {
    const FloatImage image = photographLikeImage(200, 300, 10) * 255.0F;
    const std::vector<Keypoint> first = gpuKeypoints(image);
    (void)gpuKeypoints(photographLikeImage(222, 301, 11));
    const std::vector<Keypoint> again = gpuKeypoints(image);
    ASSERT_EQ(again.size(), first.size());
    EXPECT_EQ(std::memcmp(again.data(), first.data(), first.size() * sizeof(Keypoint)), 0);
}

TEST_F(AgreementTest, LeavesTheUnusedBytesOfARecordZero) {
    const std::vector<Keypoint> keypoints = gpuKeypoints(photographLikeImage(200, 200, 12));
    ASSERT_FALSE(keypoints.empty());
    for (const Keypoint& keypoint : keypoints) {
        std::array<unsigned char, sizeof keypoint> bytes{};
        std::memcpy(bytes.data(), &keypoint, sizeof keypoint);
        ASSERT_EQ(bytes[22], 0);
        ASSERT_EQ(bytes[23], 0);
    }
}

TEST_F(AgreementTest, GradientsAreTheCpus) {
    for (const auto& [rows, cols] :
         {std::array{1, 1}, {1, 9}, {7, 1}, {2, 2}, {3, 70}, {65, 64}, {131, 77}}) {
        SCOPED_TRACE(sizeText(rows, cols));
        const FloatImage image = noiseImage(rows, cols, 13, -1.0F, 1.0F);
        FloatImage magnitude(rows, cols);
        FloatImage orientation(rows, cols);
        FloatImage expectedMagnitude(rows, cols);
        FloatImage expectedOrientation(rows, cols);
        gradOriImages(image, expectedMagnitude, expectedOrientation);
        ASSERT_EQ(mlcGradient(image.data(), count(rows), count(cols), magnitude.data(),
                              orientation.data()),
                  0);
        EXPECT_TRUE(sameBits(magnitude, expectedMagnitude));
        EXPECT_TRUE(sameBits(orientation, expectedOrientation));
    }
}

TEST_F(AgreementTest, BlursLikeTheCpu) {
    // The filters of the scale space have kernels of their own: radii of 5, 7, 8, 10 and 13.
    for (const double sigma : {0.0, 0.1, 0.5, 1.2262736, 1.5, 1.9, 2.4, 3.1, 3.3, 7.0, 500.0}) {
        for (const auto& [rows, cols] :
             {std::array{1, 1}, {1, 40}, {33, 1}, {5, 6}, {7, 7}, {13, 300}, {90, 13}, {97, 131}}) {
            SCOPED_TRACE(std::to_string(sigma) + ": " + sizeText(rows, cols));
            FloatImage image = noiseImage(rows, cols, 14, 0.0F, 255.0F);
            FloatImage expected = image;
            conv_in_place(expected.data(), rows, cols, sigma);
            ASSERT_EQ(mlcGaussianFilter(image.data(), count(rows), count(cols), sigma), 0);
            EXPECT_TRUE(sameBits(image, expected));
        }
    }
}

TEST_F(AgreementTest, RefusesSigmasThatAreNone) {
    FloatImage image = noiseImage(20, 20, 15);
    const FloatImage before = image;
    for (const double sigma : {-1.0, std::numeric_limits<double>::infinity(),
                               std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(mlcGaussianFilter(image.data(), 20, 20, sigma), 4);
    }
    EXPECT_TRUE(sameBits(image, before));
}

struct LevelGradients {
    FloatImage magnitude, orientation;
};
// By octave and level 1 to 3.
using GradientLevels = std::array<std::array<LevelGradients, 4>, 3>;

// The plain way.
GradientLevels cpuGradientPyramid(const FloatImage& image) {
    GradientLevels pyramid;
    const auto blurred = [](FloatImage from, float sigma) {
        conv_in_place(from.data(), static_cast<int>(from.rows()), static_cast<int>(from.cols()),
                      static_cast<double>(sigma));
        return from;
    };
    FloatImage level = blurred(image, 1.5198685F);
    for (std::array<LevelGradients, 4>& octave : pyramid) {
        float sigma = 1.6F;
        for (std::size_t s = 1; s <= 3; ++s) {
            level = blurred(level, 0.766421F * sigma);
            sigma = sigma * 1.2599211F;
            octave[s].magnitude.resize(level.rows(), level.cols());
            octave[s].orientation.resize(level.rows(), level.cols());
            gradOriImages(level, octave[s].magnitude, octave[s].orientation);
        }
        FloatImage half(level.rows() / 2, level.cols() / 2);
        for (Eigen::Index r = 0; r < half.rows(); ++r) {
            for (Eigen::Index c = 0; c < half.cols(); ++c) half(r, c) = level(2 * r, 2 * c);
        }
        level = half;
    }
    return pyramid;
}

TEST_F(AgreementTest, TheGradientPyramidIsTheCpus) {
    for (const auto& [rows, cols] : {std::array{2, 2}, {3, 5}, {12, 60}, {53, 61}, {140, 203}}) {
        SCOPED_TRACE(sizeText(rows, cols));
        const FloatImage image = photographLikeImage(rows, cols, 16) * 255.0F;
        GradientLevels images;
        std::array<float*, 12> magnitudes{};
        std::array<float*, 12> orientations{};
        for (std::size_t o = 0; o < 3; ++o) {
            for (std::size_t s = 1; s <= 3; ++s) {
                images[o][s].magnitude.resize(rows >> o, cols >> o);
                images[o][s].orientation.resize(rows >> o, cols >> o);
                magnitudes[4 * o + s] = images[o][s].magnitude.data();
                orientations[4 * o + s] = images[o][s].orientation.data();
            }
        }
        ASSERT_EQ(mlcGradientPyramid(image.data(), count(rows), count(cols), magnitudes.data(),
                                     orientations.data(), 2, 1.6, 4),
                  0);
        const GradientLevels expected = cpuGradientPyramid(image);
        for (std::size_t o = 0; o < 3; ++o) {
            for (std::size_t s = 1; s <= 3; ++s) {
                EXPECT_TRUE(sameBits(images[o][s].magnitude, expected[o][s].magnitude))
                    << o << " " << s;
                EXPECT_TRUE(sameBits(images[o][s].orientation, expected[o][s].orientation))
                    << o << " " << s;
            }
        }
    }
}

TEST_F(AgreementTest, RefusesAnotherGradientPyramid) {
    const FloatImage image = noiseImage(40, 40, 17);
    std::array<float*, 12> none{};
    const auto status = [&](int lastOctave, double sigma, int levels) {
        return mlcGradientPyramid(image.data(), 40, 40, none.data(), none.data(), lastOctave, sigma,
                                  levels);
    };
    EXPECT_EQ(status(3, 1.6, 4), 4);
    EXPECT_EQ(status(2, 1.5, 4), 4);
    EXPECT_EQ(status(2, 1.6, 3), 4);
    EXPECT_EQ(status(2, 1.6, 4), 4) << "images are missing";
}

TEST_F(AgreementTest, DescriptorsFromItsGradientsAreTheCpus) {
    const FloatImage image = photographLikeImage(220, 310, 18) * 255.0F;
    const auto detector = Features2dSiftLdah::createDetectorLDAH();
    setFeaDetSiftLdahParams(detector.get(), 1.0F);
    std::vector<Keypoint> keypoints;
    detector->detect(image, keypoints);
    ASSERT_FALSE(keypoints.empty());
    DescMat expected;
    dynamic_cast<IDescriptorExtractor&>(*detector).compute(image, keypoints, expected);

    const auto extractor = SiftLdahDescriptor::createDescriptorLDAH();
    setDescSiftLdahParams(extractor.get(), 1.0F);
    DescMat rows;
    extractor->compute(image, keypoints, rows);
    ASSERT_EQ(rows.rows, expected.rows);
    for (int i = 0; i < rows.rows; ++i) {
        ASSERT_EQ(std::memcmp(rows.row(i).data, expected.row(i).data, 16), 0) << i;
    }
}

// Rows of random bytes; some are copies of others, so that distances tie and are 0.
std::vector<unsigned char> randomRows(std::size_t rows, std::size_t rowBytes, Random& random) {
    std::vector<unsigned char> bytes(rows * rowBytes);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random.below(256));
    for (std::size_t i = 1; i < rows; ++i) {
        if (random.below(4) != 0) continue;
        const std::size_t other = random.below(static_cast<std::uint32_t>(i));
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(other * rowBytes), rowBytes,
                    bytes.begin() + static_cast<std::ptrdiff_t>(i * rowBytes));
    }
    return bytes;
}

struct Nearest {
    unsigned index = 0;
    unsigned best = std::numeric_limits<unsigned>::max();
    unsigned second = std::numeric_limits<unsigned>::max();
    bool operator==(const Nearest&) const = default;
};

Nearest nearestTo(const unsigned char* query, const std::vector<unsigned char>& train,
                  std::size_t rowBytes) {
    Nearest nearest;
    for (std::size_t j = 0; j < train.size() / rowBytes; ++j) {
        unsigned distance = 0;
        for (std::size_t k = 0; k < rowBytes; ++k) {
            const unsigned differing = query[k] ^ train[j * rowBytes + k];
            for (unsigned bit = 1; bit < 256; bit *= 2) distance += (differing & bit) != 0 ? 1 : 0;
        }
        if (distance < nearest.best) {
            nearest.second = nearest.best;
            nearest.best = distance;
            nearest.index = static_cast<unsigned>(j);
        } else if (distance < nearest.second) {
            nearest.second = distance;
        }
    }
    return nearest;
}

void expectNearest(std::size_t queryRows, std::size_t trainRows, std::size_t rowBytes,
                   Random& random) {
    SCOPED_TRACE(std::to_string(queryRows) + " and " + std::to_string(trainRows) + " rows of " +
                 std::to_string(rowBytes));
    const std::vector<unsigned char> query = randomRows(queryRows, rowBytes, random);
    std::vector<unsigned char> train = randomRows(trainRows, rowBytes, random);
    // Some query rows are train rows, or the opposite of one: distances of 0 and of all bits.
    for (std::size_t i = 0; i < queryRows; i += 3) {
        const std::size_t j = random.below(static_cast<std::uint32_t>(trainRows));
        for (std::size_t k = 0; k < rowBytes; ++k) {
            const unsigned char byte = query[i * rowBytes + k];
            train[j * rowBytes + k] = static_cast<unsigned char>(i % 2 == 0 ? byte : ~byte);
        }
    }
    std::vector<unsigned> index(queryRows);
    std::vector<unsigned> best(queryRows);
    std::vector<unsigned> second(queryRows);
    ASSERT_EQ(mlcHammingDistance(query.data(), static_cast<int>(queryRows), train.data(),
                                 static_cast<int>(trainRows), index.data(), best.data(),
                                 second.data(), rowBytes),
              0);
    for (std::size_t i = 0; i < queryRows; ++i) {
        const Nearest nearest{index[i], best[i], second[i]};
        ASSERT_EQ(nearest, nearestTo(query.data() + i * rowBytes, train, rowBytes)) << i;
    }
}

TEST_F(AgreementTest, FindsTheTwoNearestRows) {
    Random random(19);
    for (const std::size_t rowBytes : {8U, 16U, 32U, 64U, 128U}) {
        for (const std::size_t trainRows : {1U, 2U, 63U, 65U, 1023U, 1024U, 1025U, 2500U}) {
            expectNearest(1 + random.below(20), trainRows, rowBytes, random);
        }
        expectNearest(1300, 70, rowBytes, random);
    }
}

TEST_F(AgreementTest, GivesTiesToTheFirstRow) {
    // All train rows are the same: the first is the nearest, the next as near.
    const std::vector<unsigned char> train(3000 * 16, 0x0f);
    const std::vector<unsigned char> query(16, 0x1f);
    Nearest nearest;
    ASSERT_EQ(mlcHammingDistance(query.data(), 1, train.data(), 3000, &nearest.index, &nearest.best,
                                 &nearest.second, 16),
              0);
    EXPECT_EQ(nearest, (Nearest{0, 16, 16}));
}

TEST_F(AgreementTest, FindsASecondRowInAnotherPartOfTheTrainRows) {
    std::vector<unsigned char> train(3000 * 16, 0xff);
    std::fill_n(train.begin() + 2047 * 16, 16, 0x00);
    train[2047 * 16] = 0x01;
    std::fill_n(train.begin() + 2999 * 16, 16, 0x00);
    const std::vector<unsigned char> query(16, 0x00);
    Nearest nearest;
    ASSERT_EQ(mlcHammingDistance(query.data(), 1, train.data(), 3000, &nearest.index, &nearest.best,
                                 &nearest.second, 16),
              0);
    EXPECT_EQ(nearest, (Nearest{2999, 0, 1}));
}

TEST_F(AgreementTest, RefusesRowsThatItCannotCompare) {
    const std::vector<unsigned char> rows(1000);
    unsigned value = 42;
    const auto status = [&](int queryRows, int trainRows, std::size_t rowBytes) {
        return mlcHammingDistance(rows.data(), queryRows, rows.data(), trainRows, &value, &value,
                                  &value, rowBytes);
    };
    EXPECT_EQ(status(1, 1, 24), 4);
    EXPECT_EQ(status(1, 1, 0), 4);
    EXPECT_EQ(status(1, 1, 4), 4);
    EXPECT_EQ(status(1, 1, 256), 4);
    EXPECT_EQ(status(1, 0, 16), 4);
    EXPECT_EQ(status(-1, 1, 16), 4);
    EXPECT_EQ(value, 42U);
    EXPECT_EQ(status(0, 1, 16), 0);
}

TEST_F(AgreementTest, RefusesImagesThatItCannotCount) {
    const float pixel = 0.0F;
    Keypoint keypoint;
    std::uint64_t found = 0;
    const std::uint64_t huge = std::uint64_t{1} << 32;
    EXPECT_EQ(mlcMaximumKeypointsLDAH(huge, huge), 0U);
    EXPECT_EQ(mlcDetectLdah(&pixel, huge, huge, &keypoint, &found), 2);
    EXPECT_EQ(mlcDetectLdah(&pixel, 1U << 15, (1U << 15) + 1, &keypoint, &found), 2);
}

TEST_F(AgreementTest, BoundsKeypointsByOneForThirtyTwoPixels) {
    EXPECT_EQ(mlcMaximumKeypointsLDAH(0, 100), 1024U);
    EXPECT_EQ(mlcMaximumKeypointsLDAH(2160, 3840), 2160U * 3840U / 32U + 1024U);
    EXPECT_EQ(mlcMaximumKeypointsLDAH(1U << 15, 1U << 15), (1U << 25) + 1024U);
}

}  // namespace
}  // namespace marlo::test
