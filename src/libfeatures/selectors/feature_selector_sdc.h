// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"
#include "libfeatures/selectors/feature_selector_sdc_base.h"
#include "libfeatures/selectors/i_keypoint_selector.h"

namespace marlo {

/// Spreads keypoints over the image: the strongest ones that keep a distance from each other, the
/// distance being chosen so that the requested number remains. See KeypointSelectorSdcBase.
///
/// Keypoints at one place, such as the orientations of one point, suppress each other. Prefer
/// KeypointSelectorSdcOrientations to keep them together.
class FEATURES_EXPORT KeypointSelectorSdc : public IKeypointSelector,
                                            public KeypointSelectorSdcBase {
public:
    [[nodiscard]] std::unique_ptr<IKeypointSelector> clone() const override;
    /// A call with fewer keypoints than this lowers the number to theirs, for later calls as well.
    void setNumberOfKeypoints(std::uint64_t count) override;

    /// Fills `out` with the requested number of keypoints, strongest first; with fewer if the
    /// search ends without having met the tolerance. With all of them if no more are given.
    /// If the search ends because the cell size reaches 0, which a small image or many requested
    /// keypoints close together bring about, `out` holds those keypoints of `in` that have the
    /// positions of the taken ones in the sorted list: fewer than requested, neither sorted nor
    /// spread.
    /// @throws std::runtime_error as checkNoInPlace(), then "Keypoints to select or the number of
    ///         input keypoints is 0", then "parameters have not been set"; std::bad_alloc if there
    ///         is no memory for a grid of width x height cells. `out` keeps its content.
    void select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) override;
    /// Fills `out` with positions in the list that `in` becomes when it is sorted, strongest first
    /// and stable, by Keypoint::operator>. If the search ends at cell size 0, `out` holds all that
    /// were taken, fewer than requested.
    /// @throws as select() but for checkNoInPlace(); then std::runtime_error "This case has not
    ///         been implemented yet" if no more keypoints are given than requested. `out` keeps its
    ///         content.
    void selectIndices(const std::vector<Keypoint>& in, std::vector<std::size_t>& out) override;

private:
    FEATURES_HIDDEN bool searchDiscs();
};

}  // namespace marlo
