// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/sift_ldah_descriptor.h"

#include <stdexcept>

#include "libfeatures/base/cuda_exceptions.h"
#include "libfeatures/descriptors/detail/describe_keypoints.h"
#include "libfeatures/descriptors/sift_descriptor.h"
#include "libmarlocuda/marlocuda.h"

namespace marlo {
namespace {

constexpr std::uint8_t kOctaves = 3;
constexpr int kLevels = 4;
constexpr double kInitialSigma = 1.6;

}  // namespace

SiftLdahDescriptor::~SiftLdahDescriptor() = default;

std::unique_ptr<IDescriptorExtractor> SiftLdahDescriptor::createDescriptorLDAH() {
    return std::unique_ptr<SiftLdahDescriptor>(new SiftLdahDescriptor(false));
}

std::unique_ptr<IDescriptorExtractor> SiftLdahDescriptor::createDescriptorSIFT() {
    return std::unique_ptr<SiftLdahDescriptor>(new SiftLdahDescriptor(true));
}

std::unique_ptr<IDescriptorExtractor> SiftLdahDescriptor::cloneExtractor() const {
    return std::unique_ptr<SiftLdahDescriptor>(new SiftLdahDescriptor(*this));
}

void SiftLdahDescriptor::compute(const ByteImage&, std::vector<Keypoint>&, DescMat&) {
    throw std::runtime_error("ui8 image compute has not been implemented yet");
}

void SiftLdahDescriptor::compute(const FloatImage& image, std::vector<Keypoint>& keypoints,
                                 DescMat& descriptors) {
    allocateDescriptors(descriptors, detail::rowCount(keypoints), useSift);
    computeDescriptors(image, keypoints, descriptors);
}

void SiftLdahDescriptor::allocateGradientPyramid(const FloatImage& image) {
    gradientPyramid_.resize(kOctaves);
    for (int o = 0; o < kOctaves; ++o) {
        std::vector<gradient_t>& octave = gradientPyramid_[static_cast<std::size_t>(o)];
        octave.resize(kLevels);
        for (std::size_t level = 1; level < kLevels; ++level) {
            octave[level].first.resize(image.rows() >> o, image.cols() >> o);
            octave[level].second.resize(image.rows() >> o, image.cols() >> o);
        }
    }
}

void SiftLdahDescriptor::createGradientPyramid(const FloatImage& image) {
    allocateGradientPyramid(image);
    std::vector<float*> magnitudes;
    std::vector<float*> orientations;
    for (std::vector<gradient_t>& octave : gradientPyramid_) {
        for (gradient_t& level : octave) {
            magnitudes.push_back(level.first.data());
            orientations.push_back(level.second.data());
        }
    }
    const int status =
        mlcGradientPyramid(image.data(), static_cast<std::uint64_t>(image.rows()),
                           static_cast<std::uint64_t>(image.cols()), magnitudes.data(),
                           orientations.data(), kOctaves - 1, kInitialSigma, kLevels);
    if (status == 2) throw cuda::CudaNoResourcesException();
    if (status != 0) throw cuda::CudaException();
}

void SiftLdahDescriptor::computeDescriptors(const FloatImage& image,
                                            const std::vector<Keypoint>& keypoints,
                                            DescMat& descriptors) {
    createGradientPyramid(image);
    currentOctave_ = 0;
    if (image.rows() < 13 || image.cols() < 13) return;
    for (; currentOctave_ < kOctaves; ++currentOctave_) {
        for (int layer = 1; layer < kLevels; ++layer) {
            const gradient_t& level =
                gradientPyramid_[currentOctave_][static_cast<std::size_t>(layer)];
            insertDescriptorsCurrentScaleAndOctave(
                descriptors, keypoints, static_cast<float>(1U << currentOctave_), layer,
                level.first, level.second, imageScale, currentOctave_, useSift);
        }
    }
}

}  // namespace marlo
