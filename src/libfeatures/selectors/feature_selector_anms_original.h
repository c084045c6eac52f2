// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"
#include "libfeatures/selectors/feature_selector_anms_base.h"
#include "libfeatures/selectors/i_keypoint_selector.h"

namespace marlo {

/// Adaptive non-maximal suppression (KeypointSelectorAnmsBase): a keypoint is suppressed by those
/// whose response is at least c times its own, rounded up to a whole number; so nearly equal ones
/// suppress one another, too. That suits detectors whose responses are large: with responses
/// above 0 and below 1 nothing is suppressed.
class FEATURES_EXPORT KeypointSelectorAnmsOriginal : public IKeypointSelector,
                                                     public KeypointSelectorAnmsBase {
public:
    /// A full copy, the records of earlier calls included.
    [[nodiscard]] std::unique_ptr<IKeypointSelector> clone() const override;
    void setNumberOfKeypoints(std::uint64_t count) override;

    /// Fills `out` with the min(requested, in.size()) keypoints of the largest radii, the largest
    /// first.
    /// @throws std::runtime_error as checkNoInPlace(), and "Number of keypoints to select or the
    ///         number of input keypoints is 0". `out` keeps its content in both cases.
    void select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) override;
    /// As select(). Gives zeros, as many as select() gives keypoints: this selector keeps no
    /// positions.
    /// @throws std::runtime_error as select(), except for checkNoInPlace().
    void selectIndices(const std::vector<Keypoint>& in, std::vector<std::size_t>& out) override;
};

}  // namespace marlo
