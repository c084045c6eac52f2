// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/sift_ldah_descriptor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <numbers>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "libfeatures/base/cuda_exceptions.h"
#include "libfeatures/base/extensible_factory.h"
#include "libfeatures/base/registration.h"
#include "libfeatures/descriptors/ldah_codes.h"
#include "libfeatures/descriptors/sift_descriptor.h"
#include "stand_in/marlocuda_stand_in.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using Eigen::Index;
using test::GradientPyramidCall;
using testing::Each;
using testing::IsNan;

constexpr float kPi = std::numbers::pi_v<float>;

using Object = std::unique_ptr<SiftLdahDescriptor>;

Object asObject(std::unique_ptr<IDescriptorExtractor> plugIn) {
    return Object(dynamic_cast<SiftLdahDescriptor*>(plugIn.release()));
}

Object siftOfScale(float imageScale) {
    Object object = asObject(SiftLdahDescriptor::createDescriptorSIFT());
    object->setParams(imageScale);
    return object;
}
Object ldahOfScale(float imageScale) {
    Object object = asObject(SiftLdahDescriptor::createDescriptorLDAH());
    object->setParams(imageScale);
    return object;
}

bool isDescribed(const Keypoint& keypoint) {
    return keypoint.octave < 3 && keypoint.layer > 0 && keypoint.layer < 4;
}

// A pyramid of random gradients, as no image has them: every level is told apart from the others.
struct RandomPyramid {
    std::array<std::array<FloatImage, 4>, 3> magnitudes;
    std::array<std::array<FloatImage, 4>, 3> orientations;

    RandomPyramid(Index rows, Index cols, std::uint32_t seed) {
        for (std::size_t o = 0; o < 3; ++o) {
            for (std::size_t s = 1; s < 4; ++s) {
                const auto own = seed + static_cast<std::uint32_t>(8 * o + 2 * s);
                magnitudes[o][s] = test::noiseImage(rows >> o, cols >> o, own);
                orientations[o][s] = test::noiseImage(rows >> o, cols >> o, own + 1, -kPi, kPi);
            }
        }
    }

    void writeTo(const GradientPyramidCall& call) const {
        for (std::size_t o = 0; o < 3; ++o) {
            for (std::size_t s = 1; s < 4; ++s) {
                const auto bytes =
                    static_cast<std::size_t>(magnitudes[o][s].size()) * sizeof(float);
                if (bytes != 0) {
                    std::memcpy(call.magnitudes[4 * o + s], magnitudes[o][s].data(), bytes);
                    std::memcpy(call.orientations[4 * o + s], orientations[o][s].data(), bytes);
                }
            }
        }
    }

    [[nodiscard]] DescMat rowsOf(const std::vector<Keypoint>& keypoints, float imageScale) const {
        DescMat descriptors;
        allocateDescriptors(descriptors, static_cast<int>(keypoints.size()), true);
        for (std::size_t o = 0; o < 3; ++o) {
            for (std::size_t s = 1; s < 4; ++s) {
                insertDescriptorsCurrentScaleAndOctave(
                    descriptors, keypoints, static_cast<float>(1U << o), static_cast<int>(s),
                    magnitudes[o][s], orientations[o][s], imageScale, static_cast<unsigned char>(o),
                    true);
            }
        }
        return descriptors;
    }
};

class SiftLdahDescriptorTest : public testing::Test {
protected:
    SiftLdahDescriptorTest() {
        gpu.reset();
        gpu.gradientPyramid.onSuccess = [this](const GradientPyramidCall& call) {
            pyramid.writeTo(call);
        };
        for (unsigned char octave = 0; octave <= 3; ++octave) {
            for (unsigned char layer = 0; layer <= 4; ++layer) {
                const auto f = static_cast<float>(1 << octave);
                keypoints.emplace_back(30.3F, 26.8F, 2.0F * f, 0.3F, 1.0F, octave, layer);
            }
        }
    }

    test::StandIn& gpu = test::StandIn::instance();
    FloatImage image = test::noiseImage(53, 61, 1);
    RandomPyramid pyramid{53, 61, 2};
    std::vector<Keypoint> keypoints;
    DescMat descriptors;

    void useImageOf(Index rows, Index cols) {
        image = test::noiseImage(rows, cols, 1);
        pyramid = RandomPyramid(rows, cols, 2);
    }

    void expectRows(const DescMat& expected) const {
        ASSERT_EQ(descriptors.rows, expected.rows);
        ASSERT_EQ(descriptors.cols, expected.cols);
        EXPECT_EQ(std::memcmp(descriptors.data, expected.data,
                              static_cast<std::size_t>(expected.rows) * expected.step),
                  0);
    }
    void expectRowsOfZeros(int cols, std::size_t elementBytes) const {
        ASSERT_EQ(descriptors.rows, static_cast<int>(keypoints.size()));
        ASSERT_EQ(descriptors.cols, cols);
        const std::size_t bytes = keypoints.size() * static_cast<std::size_t>(cols) * elementBytes;
        EXPECT_THAT(std::vector<int>(descriptors.data, descriptors.data + bytes), Each(0));
    }
    [[nodiscard]] std::vector<float> row(std::size_t i) const {
        std::vector<float> values(128);
        std::memcpy(values.data(), descriptors.data + i * descriptors.step, 512);
        return values;
    }

    static std::vector<int> code(const DescMat& rows, std::size_t i) {
        const unsigned char* const bytes = rows.data + i * rows.step;
        return {bytes, bytes + 16};
    }

    template <typename Exception>
    std::string refusal(SiftLdahDescriptor& object) {
        try {
            object.compute(image, keypoints, descriptors);
        } catch (const Exception& error) {
            return error.what();
        }
        return "nothing thrown";
    }
};

TEST_F(SiftLdahDescriptorTest, CreatorsGiveBothTypesWithoutAnImageScale) {
    EXPECT_TRUE(asObject(SiftLdahDescriptor::createDescriptorSIFT())->useSift);
    EXPECT_FALSE(asObject(SiftLdahDescriptor::createDescriptorLDAH())->useSift);
    EXPECT_EQ(asObject(SiftLdahDescriptor::createDescriptorSIFT())->imageScale, 0.0F);
    EXPECT_EQ(asObject(SiftLdahDescriptor::createDescriptorLDAH())->imageScale, 0.0F);
}

TEST_F(SiftLdahDescriptorTest, KeysOfTheGpuExtractorsCreateIt) {
    registerMainDescriptorExtractors();
    auto& factory = extensibleFactoryInstance<IDescriptorExtractor>();
    const Object sift = asObject(factory.create("SIFTCuda"));
    ASSERT_NE(sift, nullptr);
    EXPECT_TRUE(sift->useSift);
    const Object ldah = asObject(factory.create("LDAHCuda"));
    ASSERT_NE(ldah, nullptr);
    EXPECT_FALSE(ldah->useSift);
}

TEST_F(SiftLdahDescriptorTest, AsksTheGpuForThreeLevelsOfThreeOctaves) {
    siftOfScale(1.0F)->compute(image, keypoints, descriptors);
    ASSERT_EQ(gpu.allCalls.size(), 1U);
    const auto calls = gpu.calls<GradientPyramidCall>();
    ASSERT_EQ(calls.size(), 1U);
    const GradientPyramidCall& call = calls[0];
    EXPECT_EQ(call.image, image.data());
    EXPECT_EQ(call.rows, 53U);
    EXPECT_EQ(call.cols, 61U);
    EXPECT_EQ(call.lastOctave, 2);
    EXPECT_EQ(call.initialSigma, 1.6);
    EXPECT_EQ(call.levelsPerOctave, 4);
    std::set<float*> images;
    for (std::size_t i = 0; i < 12; ++i) {
        if (i % 4 == 0) {
            EXPECT_EQ(call.magnitudes[i], nullptr) << i;
            EXPECT_EQ(call.orientations[i], nullptr) << i;
        } else {
            images.insert({call.magnitudes[i], call.orientations[i]});
        }
    }
    EXPECT_EQ(images.size(), 18U);
    EXPECT_EQ(images.count(nullptr), 0U);
}

TEST_F(SiftLdahDescriptorTest, RowsAreMadeFromTheGradientsOfTheGpu) {
    for (const float imageScale : {1.0F, 0.5F, 1.7F}) {
        siftOfScale(imageScale)->compute(image, keypoints, descriptors);
        expectRows(pyramid.rowsOf(keypoints, imageScale));
    }
}

TEST_F(SiftLdahDescriptorTest, OtherOctavesAndLayersGetZeros) {
    siftOfScale(1.0F)->compute(image, keypoints, descriptors);
    for (std::size_t i = 0; i < keypoints.size(); ++i) {
        float sum = 0.0F;
        for (const float value : row(i)) {
            sum += value * value;
        }
        EXPECT_NEAR(sum, isDescribed(keypoints[i]) ? 1.0F : 0.0F, 1e-5F) << keypoints[i];
    }
}

TEST_F(SiftLdahDescriptorTest, LeavesTheKeypointsAlone) {
    const std::vector<Keypoint> before = keypoints;
    siftOfScale(1.0F)->compute(image, keypoints, descriptors);
    ASSERT_EQ(keypoints.size(), before.size());
    EXPECT_EQ(std::memcmp(&keypoints[7].x, &before[7].x, 5 * sizeof(float)), 0);
}

TEST_F(SiftLdahDescriptorTest, ImagesOfTwelveRowsOrColumnsGetZerosAfterAskingTheGpu) {
    for (const auto& [rows, cols] :
         {std::pair(12, 12), std::pair(12, 40), std::pair(40, 12), std::pair(1, 1)}) {
        gpu.allCalls.clear();
        useImageOf(rows, cols);
        siftOfScale(1.0F)->compute(image, keypoints, descriptors);
        EXPECT_EQ(gpu.calls<GradientPyramidCall>().size(), 1U);
        expectRowsOfZeros(128, sizeof(float));
    }
}

TEST_F(SiftLdahDescriptorTest, ImagesOfThirteenRowsAndColumnsAreDescribed) {
    useImageOf(13, 13);
    keypoints = {Keypoint(6.0F, 6.0F, 2.0F, 0.3F, 1.0F, 0, 2)};
    siftOfScale(1.0F)->compute(image, keypoints, descriptors);
    EXPECT_NE(row(0), std::vector<float>(128, 0.0F));
    expectRows(pyramid.rowsOf(keypoints, 1.0F));
}

TEST_F(SiftLdahDescriptorTest, AnEmptyImageGivesZeros) {
    useImageOf(0, 0);
    siftOfScale(1.0F)->compute(image, keypoints, descriptors);
    expectRowsOfZeros(128, sizeof(float));
}

TEST_F(SiftLdahDescriptorTest, OneObjectDescribesImagesOfDifferentSizes) {
    const Object object = siftOfScale(1.0F);
    for (const auto& [rows, cols] : {std::pair(53, 61), std::pair(20, 90), std::pair(70, 64)}) {
        useImageOf(rows, cols);
        object->compute(image, keypoints, descriptors);
        expectRows(pyramid.rowsOf(keypoints, 1.0F));
    }
}

TEST_F(SiftLdahDescriptorTest, NoKeypointsGiveNoRows) {
    keypoints.clear();
    siftOfScale(1.0F)->compute(image, keypoints, descriptors);
    EXPECT_EQ(descriptors.rows, 0);
    EXPECT_EQ(descriptors.cols, 128);
}

TEST_F(SiftLdahDescriptorTest, StatusTwoMeansTooFewResources) {
    gpu.gradientPyramid.status = 2;
    EXPECT_EQ(refusal<cuda::CudaNoResourcesException>(*siftOfScale(1.0F)),
              "Not enough resources for the detector.");
    expectRowsOfZeros(128, sizeof(float));
}

TEST_F(SiftLdahDescriptorTest, OtherStatusesMeanAFailure) {
    for (const int status : {1, 3, -1, 77, std::numeric_limits<int>::min()}) {
        gpu.gradientPyramid.status = status;
        EXPECT_EQ(refusal<cuda::CudaException>(*siftOfScale(1.0F)), "Cuda processing error.")
            << status;
        expectRowsOfZeros(128, sizeof(float));
    }
}

TEST_F(SiftLdahDescriptorTest, FailuresShowOnSmallImagesToo) {
    useImageOf(5, 5);
    gpu.gradientPyramid.status = 1;
    EXPECT_EQ(refusal<cuda::CudaException>(*siftOfScale(1.0F)), "Cuda processing error.");
}

TEST_F(SiftLdahDescriptorTest, WorksAgainAfterAFailure) {
    gpu.gradientPyramid.statuses = {2};
    const Object object = siftOfScale(1.0F);
    EXPECT_THROW(object->compute(image, keypoints, descriptors), cuda::CudaNoResourcesException);
    object->compute(image, keypoints, descriptors);
    expectRows(pyramid.rowsOf(keypoints, 1.0F));
}

TEST_F(SiftLdahDescriptorTest, AnImageScaleOfZeroGivesNaN) {
    Object object = asObject(SiftLdahDescriptor::createDescriptorSIFT());
    object->compute(image, keypoints, descriptors);
    for (std::size_t i = 0; i < keypoints.size(); ++i) {
        if (isDescribed(keypoints[i])) {
            EXPECT_THAT(row(i), Each(IsNan()));
        } else {
            EXPECT_THAT(row(i), Each(0.0F));
        }
    }
}

TEST_F(SiftLdahDescriptorTest, RefusesByteImages) {
    const ByteImage bytes = ByteImage::Zero(20, 20);
    std::string message = "nothing thrown";
    try {
        siftOfScale(1.0F)->compute(bytes, keypoints, descriptors);
    } catch (const std::runtime_error& error) {
        message = error.what();
    }
    EXPECT_EQ(message, "ui8 image compute has not been implemented yet");
    EXPECT_TRUE(descriptors.empty());
    EXPECT_TRUE(gpu.allCalls.empty());
}

TEST_F(SiftLdahDescriptorTest, ACloneIsADeepCopy) {
    Object original = siftOfScale(0.5F);
    original->compute(image, keypoints, descriptors);
    const Object copy = asObject(original->cloneExtractor());
    EXPECT_EQ(copy->imageScale, 0.5F);
    EXPECT_TRUE(copy->useSift);
    original->setParams(3.0F);

    // Each writes gradients into images of its own.
    gpu.allCalls.clear();
    original->compute(image, keypoints, descriptors);
    copy->compute(image, keypoints, descriptors);
    expectRows(pyramid.rowsOf(keypoints, 0.5F));
    const auto calls = gpu.calls<GradientPyramidCall>();
    ASSERT_EQ(calls.size(), 2U);
    for (std::size_t i = 0; i < 12; ++i) {
        if (i % 4 != 0) {
            EXPECT_NE(calls[0].magnitudes[i], calls[1].magnitudes[i]);
            EXPECT_NE(calls[0].orientations[i], calls[1].orientations[i]);
        }
    }

    original.reset();
    copy->compute(image, keypoints, descriptors);
    expectRows(pyramid.rowsOf(keypoints, 0.5F));
    EXPECT_FALSE(
        asObject(asObject(SiftLdahDescriptor::createDescriptorLDAH())->cloneExtractor())->useSift);
}

TEST_F(SiftLdahDescriptorTest, LdahRowsAreTheCodesOfTheSiftRows) {
    for (const float imageScale : {1.0F, 0.5F}) {
        ldahOfScale(imageScale)->compute(image, keypoints, descriptors);
        DescMat expected;
        ldahRowsFromSift(pyramid.rowsOf(keypoints, imageScale), expected);
        ASSERT_EQ(descriptors.rows, expected.rows);
        ASSERT_EQ(descriptors.cols, 16);
        ASSERT_EQ(descriptors.type(), DescMat::Byte);
        const std::vector<int> zeros(16, 0);
        for (std::size_t i = 0; i < keypoints.size(); ++i) {
            // Of zeros a code could be made, too; but there is nothing to make one of.
            EXPECT_EQ(code(descriptors, i), isDescribed(keypoints[i]) ? code(expected, i) : zeros)
                << keypoints[i];
        }
    }
}

TEST_F(SiftLdahDescriptorTest, SmallImagesGetLdahRowsOfZeros) {
    useImageOf(12, 40);
    ldahOfScale(1.0F)->compute(image, keypoints, descriptors);
    EXPECT_EQ(gpu.calls<GradientPyramidCall>().size(), 1U);
    expectRowsOfZeros(16, 1);
}

TEST_F(SiftLdahDescriptorTest, AFailureLeavesLdahRowsOfZeros) {
    gpu.gradientPyramid.status = 1;
    EXPECT_EQ(refusal<cuda::CudaException>(*ldahOfScale(1.0F)), "Cuda processing error.");
    expectRowsOfZeros(16, 1);
}

TEST_F(SiftLdahDescriptorTest, AnImageScaleOfZeroGivesLdahRowsOfZeros) {
    ldahOfScale(0.0F)->compute(image, keypoints, descriptors);
    expectRowsOfZeros(16, 1);
}

}  // namespace
}  // namespace marlo
