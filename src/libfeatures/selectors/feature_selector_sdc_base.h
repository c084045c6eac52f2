// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"

namespace marlo {

/// The parameters of the selectors that suppress by disc covering, mixed into their classes. A host
/// sets them through setSdcParams().
class FEATURES_EXPORT KeypointSelectorSdcBase {
public:
    /// @param width,height  image size in pixels, at least 1
    /// @param ek  scale from search radius to cell size, above 0
    /// @param er  relative tolerance above the requested number of keypoints, above 0
    /// @throws std::out_of_range "Some of the parameters is out of range"; nothing is stored then.
    void setParams(int width, int height, float ek, float er);

    [[nodiscard]] int width() const noexcept { return width_; }
    [[nodiscard]] int height() const noexcept { return height_; }
    [[nodiscard]] float ek() const noexcept { return ek_; }
    [[nodiscard]] float er() const noexcept { return er_; }

protected:
    KeypointSelectorSdcBase() = default;
    KeypointSelectorSdcBase(const KeypointSelectorSdcBase&) = default;
    KeypointSelectorSdcBase& operator=(const KeypointSelectorSdcBase&) = default;
    ~KeypointSelectorSdcBase() = default;

private:
    int width_ = 0;
    int height_ = 0;
    float ek_ = 0.0F;
    float er_ = 0.0F;
};

}  // namespace marlo
