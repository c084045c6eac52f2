// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"

namespace marlo {

/// The parameters of the SIFT and LDAH detectors and extractors, mixed into their classes. A host
/// sets them through setFeaDetSiftLdahParams() and setDescSiftLdahParams().
class FEATURES_EXPORT SiftLdahBaseParams {
public:
    virtual ~SiftLdahBaseParams();

    /// Stores the image scale, without any check.
    virtual void setParams(float scale);

    /// The factor by which the host has resized the image. Keypoint positions and scales are
    /// divided by it, so that they refer to the host's unscaled image. 0 means not set.
    float imageScale = 0.0F;
    /// Which descriptor rows are made: SIFT (128 floats) if true, LDAH (16 bytes) if false. Fixed
    /// by the function that creates the object.
    bool useSift = false;

protected:
    SiftLdahBaseParams() = default;
    SiftLdahBaseParams(const SiftLdahBaseParams&) = default;
    SiftLdahBaseParams& operator=(const SiftLdahBaseParams&) = default;
};

}  // namespace marlo
