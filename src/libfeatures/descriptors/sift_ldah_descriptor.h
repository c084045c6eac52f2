// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "libfeatures/base/sift_ldah_base_params.h"
#include "libfeatures/descriptors/i_descriptor_extractor.h"
#include "libfeatures/features_export.h"

namespace marlo {

/// SIFT or LDAH descriptors from gradients that the GPU library computes.
///
/// Builds the gradient images of the scale space from the image it is given, so it describes the
/// keypoints of any detector that fills `octave` and `layer` as Features2dSiftLdah does. The
/// descriptors themselves are computed on the CPU.
class FEATURES_EXPORT SiftLdahDescriptor : public IDescriptorExtractor, public SiftLdahBaseParams {
public:
    /// Gradient magnitude, then direction in radians, of one level.
    using gradient_t = std::pair<FloatImage, FloatImage>;

    ~SiftLdahDescriptor() override;

    /// A new object with image scale 0 (not set); LDAH or SIFT says which descriptors it makes.
    static std::unique_ptr<IDescriptorExtractor> createDescriptorLDAH();
    static std::unique_ptr<IDescriptorExtractor> createDescriptorSIFT();

    /// A deep copy: parameters and gradient images.
    [[nodiscard]] std::unique_ptr<IDescriptorExtractor> cloneExtractor() const override;

    /// Not offered for 8-bit images. @throws std::runtime_error always.
    void compute(const ByteImage& image, std::vector<Keypoint>& keypoints,
                 DescMat& descriptors) override;

    /// Replaces `descriptors` by one row for each of `keypoints`, which stay as they are; see
    /// insertDescriptorsCurrentScaleAndOctave() for the rows. A keypoint whose octave is not 0 to 2
    /// or whose layer is not 1 to 3 gets a row of zeros, as does every keypoint of an image of 12
    /// rows or columns or fewer. `imageScale` is not checked: with 0 every SIFT row is NaN and
    /// every LDAH row zero.
    /// @throws cuda::CudaNoResourcesException if the GPU is short of resources,
    ///         cuda::CudaException if it fails otherwise; `descriptors` has its rows then, all
    ///         zero. std::length_error if there are more keypoints than a matrix can have rows.
    void compute(const FloatImage& image, std::vector<Keypoint>& keypoints,
                 DescMat& descriptors) override;

private:
    explicit SiftLdahDescriptor(bool sift) { useSift = sift; }
    SiftLdahDescriptor(const SiftLdahDescriptor&) = default;

    FEATURES_HIDDEN void allocateGradientPyramid(const FloatImage& image);
    FEATURES_HIDDEN void createGradientPyramid(const FloatImage& image);
    FEATURES_HIDDEN void computeDescriptors(const FloatImage& image,
                                            const std::vector<Keypoint>& keypoints,
                                            DescMat& descriptors);

    /// gradientPyramid_[o][s] for octaves 0 to 2 and levels 0 to 3; level 0 stays empty.
    std::vector<std::vector<gradient_t>> gradientPyramid_;
    std::uint8_t currentOctave_ = 0;
};

}  // namespace marlo
