// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/features_export.h"
#include "support/image.h"

namespace marlo {

/// Resamples an image into a geometry that suits detection, and maps keypoints found there back.
/// The order of the virtual functions is part of the interface. Use an object from one thread at a
/// time.
class FEATURES_EXPORT ITransform {
public:
    virtual ~ITransform();

    /// The image on which detection and description run: `image` itself or an image of this
    /// object. The reference stays valid until the next call on this object or its destruction,
    /// and no longer than `image`.
    virtual const ByteImage& transformImage(const ByteImage& image) = 0;
    /// The same for float images.
    virtual const FloatImage& transformImage(const FloatImage& image) = 0;
    /// Maps keypoints of the transformed image back. `forDescriptors` receives those to be
    /// described, in the geometry of the transformed image; `output` the same keypoints, one for
    /// one and in the same order, in the geometry of the input image. Both are replaced.
    /// `width` and `height` are the size of the input image in pixels.
    virtual void transformKeypointsBack(const std::vector<Keypoint>& transformed,
                                        std::vector<Keypoint>& forDescriptors,
                                        std::vector<Keypoint>& output, int width, int height) = 0;

protected:
    ITransform() = default;
    ITransform(const ITransform&) = default;
    ITransform& operator=(const ITransform&) = default;
};

}  // namespace marlo
