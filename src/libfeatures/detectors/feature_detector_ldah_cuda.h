// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <memory>
#include <vector>

#include "libfeatures/base/sift_ldah_base_params.h"
#include "libfeatures/detectors/i_keypoint_detector.h"
#include "libfeatures/features_export.h"

namespace marlo {

/// Scale-space keypoints with orientations, found by the GPU library.
///
/// The counterpart of Features2dSiftLdah for machines with a GPU, under both detector keys,
/// "LDAHCuda" and "SIFTCuda": the two kinds of descriptors start from the same keypoints, so
/// `useSift` changes nothing here. SiftLdahDescriptor describes what it finds. It has no way to the
/// CPU of its own; FeaturesController takes it when the GPU fails.
class FEATURES_EXPORT FeatureDetectorLDAHCuda : public IKeypointDetector,
                                                public SiftLdahBaseParams {
public:
    /// A detector with image scale 0 (not set).
    FeatureDetectorLDAHCuda();
    ~FeatureDetectorLDAHCuda() override;

    [[nodiscard]] std::unique_ptr<IKeypointDetector> clone() const override;
    [[nodiscard]] bool hasOrientations() const override { return true; }
    [[nodiscard]] bool supportsIntImages() const override { return false; }
    [[nodiscard]] bool supportsFloatImages() const override { return true; }

    /// Not offered for 8-bit images. @throws std::runtime_error always.
    void detect(const ByteImage& image, std::vector<Keypoint>& keypoints) override;

    /// Replaces the content of `keypoints` by the keypoints of `image`, in the order in which the
    /// GPU found them. Positions and scales are divided by `imageScale`; a NaN is not refused.
    /// While the GPU works, `keypoints` holds as many records as an image of that size can give,
    /// and it keeps that capacity.
    /// @throws std::runtime_error "Invalid image scale, should be > 0.0" if `imageScale` is 0 or
    ///         negative; the GPU is not asked then, and `keypoints` stays as it is.
    ///         cuda::CudaNoResourcesException if the GPU is short of resources,
    ///         cuda::CudaException if it fails otherwise; `keypoints` is empty then and holds no
    ///         memory. std::bad_alloc if there is not enough memory for the records.
    void detect(const FloatImage& image, std::vector<Keypoint>& keypoints) override;
};

namespace cuda {

/// gradOriImages() on the GPU: length and direction of the gradient of every pixel. All three
/// images are rows x cols, row-major without padding. Whether it worked; where not, as on a machine
/// without a GPU, nothing has been written.
[[nodiscard]] FEATURES_EXPORT bool mldGradOriImages(const float* src, float* magnitude,
                                                    float* orientation, unsigned long rows,
                                                    unsigned long cols);

/// conv_in_place() on the GPU: blurs a rows x cols image in place with a Gaussian of standard
/// deviation `sigma` pixels. Whether it worked; where not, the image is as it was.
[[nodiscard]] FEATURES_EXPORT bool conv_gauss(float* data, unsigned long rows, unsigned long cols,
                                              double sigma);

}  // namespace cuda
}  // namespace marlo
