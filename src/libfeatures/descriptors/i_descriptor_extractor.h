// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <memory>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/features_export.h"
#include "support/desc_mat.h"
#include "support/image.h"

namespace marlo {

/// Describes keypoints. The order of the virtual functions is part of the interface.
/// Use an object from one thread at a time.
///
/// FeaturesController runs extractors that have SiftLdahBaseParams as a second base and, if it
/// creates them by name, a key that begins with "LDAH" or "SIFT". It sets the image scale before
/// each description: keypoint positions times it are pixels of the image.
class FEATURES_EXPORT IDescriptorExtractor {
public:
    virtual ~IDescriptorExtractor();

    /// A new extractor of the same class with the same parameters.
    [[nodiscard]] virtual std::unique_ptr<IDescriptorExtractor> cloneExtractor() const = 0;
    /// Replaces `descriptors` by one row per keypoint of `image` (height x width). An extractor may
    /// drop or reorder keypoints; row i always belongs to keypoint i of the vector as it stands
    /// after the call, which callers rely on without a check.
    /// @throws std::runtime_error where 8-bit images are not supported.
    virtual void compute(const ByteImage& image, std::vector<Keypoint>& keypoints,
                         DescMat& descriptors) = 0;
    /// The same for float images. @throws std::runtime_error where they are not supported.
    virtual void compute(const FloatImage& image, std::vector<Keypoint>& keypoints,
                         DescMat& descriptors) = 0;

protected:
    IDescriptorExtractor() = default;
    IDescriptorExtractor(const IDescriptorExtractor&) = default;
    IDescriptorExtractor& operator=(const IDescriptorExtractor&) = default;
};

}  // namespace marlo
