// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"
#include "libfeatures/selectors/i_keypoint_selector.h"

namespace marlo {

/// Keeps the strongest keypoints, wherever they lie in the image.
///
/// The baseline of the family: O(n log n) and blind to position. Prefer a selector that spreads
/// when the keypoints must cover the image.
class FEATURES_EXPORT KeypointSelectorTop : public IKeypointSelector {
public:
    [[nodiscard]] std::unique_ptr<IKeypointSelector> clone() const override;
    void setNumberOfKeypoints(std::uint64_t count) override;

    /// Fills `out` with the min(requested, in.size()) strongest keypoints, strongest first by
    /// Keypoint::operator>. Keypoints that it cannot tell apart keep their order.
    /// @throws std::runtime_error as checkNoInPlace(), and "Number of keypoints to select or the
    ///         number of input keypoints is 0". `out` keeps its content in both cases.
    void select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) override;
    /// Not offered by this selector. @throws std::runtime_error "Not implemented yet", always.
    void selectIndices(const std::vector<Keypoint>& in, std::vector<std::size_t>& out) override;

private:
    std::uint64_t numberOfKeypoints_ = 0;
};

}  // namespace marlo
