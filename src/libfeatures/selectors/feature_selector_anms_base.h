// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"

namespace marlo {

/// The parameter of the adaptive non-maximal suppression selectors, mixed into their classes. A
/// host sets it through setAnmsRobustness().
class FEATURES_EXPORT KeypointSelectorAnmsBase {
public:
    /// Stores c, without any check: a keypoint suppresses a weaker one only if it is stronger by
    /// the factor 1 / c.
    void setRobustness(float c) noexcept { robustness_ = c; }
    [[nodiscard]] float robustness() const noexcept { return robustness_; }

protected:
    KeypointSelectorAnmsBase() = default;
    KeypointSelectorAnmsBase(const KeypointSelectorAnmsBase&) = default;
    KeypointSelectorAnmsBase& operator=(const KeypointSelectorAnmsBase&) = default;
    ~KeypointSelectorAnmsBase() = default;

private:
    float robustness_ = 0.8F;
};

}  // namespace marlo
