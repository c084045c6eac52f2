// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <memory>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/features_export.h"
#include "support/image.h"

namespace marlo {

/// Finds keypoints in an image. The order of the virtual functions is part of the interface.
/// Use an object from one thread at a time; clone() gives an independent one for another thread.
///
/// FeaturesController runs detectors that have SiftLdahBaseParams as a second base and, if it
/// creates them by name, a key that begins with "LDAH" or "SIFT". It sets the image scale before
/// each detection; the detector divides positions and scales by it.
class FEATURES_EXPORT IKeypointDetector {
public:
    virtual ~IKeypointDetector();

    /// A new detector of the same class with the same parameters.
    [[nodiscard]] virtual std::unique_ptr<IKeypointDetector> clone() const = 0;
    /// Whether keypoints come with a direction in `angle`.
    [[nodiscard]] virtual bool hasOrientations() const = 0;
    /// Whether detect() accepts 8-bit images.
    [[nodiscard]] virtual bool supportsIntImages() const = 0;
    /// Whether detect() accepts float images.
    [[nodiscard]] virtual bool supportsFloatImages() const = 0;
    /// Replaces the content of `keypoints` by the keypoints of `image` (height x width).
    /// @throws std::runtime_error where 8-bit images are not supported.
    virtual void detect(const ByteImage& image, std::vector<Keypoint>& keypoints) = 0;
    /// The same for float images. @throws std::runtime_error where they are not supported.
    virtual void detect(const FloatImage& image, std::vector<Keypoint>& keypoints) = 0;

protected:
    IKeypointDetector() = default;
    IKeypointDetector(const IKeypointDetector&) = default;
    IKeypointDetector& operator=(const IKeypointDetector&) = default;
};

}  // namespace marlo
