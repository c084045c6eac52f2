// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/transforms/i_transform.h"

namespace marlo {

/// The identity, for ordinary images: nothing is copied or resampled.
class FEATURES_EXPORT DefaultTransform : public ITransform {
public:
    /// Returns its argument.
    const ByteImage& transformImage(const ByteImage& image) override;
    const FloatImage& transformImage(const FloatImage& image) override;
    /// Copies `transformed` to both lists; the size is ignored.
    void transformKeypointsBack(const std::vector<Keypoint>& transformed,
                                std::vector<Keypoint>& forDescriptors,
                                std::vector<Keypoint>& output, int width, int height) override;
};

}  // namespace marlo
