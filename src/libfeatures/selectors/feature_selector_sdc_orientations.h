// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"
#include "libfeatures/selectors/feature_selector_sdc_base.h"
#include "libfeatures/selectors/i_keypoint_selector.h"

namespace marlo {

/// Spreads keypoints over the image as KeypointSelectorSdc does, but takes those at the position of
/// a taken one (Keypoint::samePosition()) along with it: all orientations found at one point stay
/// together. They count as taken, so the points are farther apart than those of
/// KeypointSelectorSdc.
///
/// A pass also takes along what an earlier pass of the same call had found at the position, as soon
/// as it finds one companion itself.
class FEATURES_EXPORT KeypointSelectorSdcOrientations : public IKeypointSelector,
                                                        public KeypointSelectorSdcBase {
public:
    [[nodiscard]] std::unique_ptr<IKeypointSelector> clone() const override;
    /// A call with fewer keypoints than this lowers the number to theirs, for later calls as well.
    void setNumberOfKeypoints(std::uint64_t count) override;

    /// Fills `out` with the requested number of keypoints, strongest first; with fewer if the
    /// search ends without having met the tolerance. With all of them if no more are given. Where
    /// more were taken than requested the weakest are left out, even if they are companions of a
    /// keypoint that is kept.
    /// @throws std::runtime_error as checkNoInPlace(), then "Keypoints to select or the number of
    ///         input keypoints is 0", then "parameters have not been set"; std::bad_alloc if there
    ///         is no memory for a grid of width x height cells. `out` keeps its content.
    void select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) override;
    /// As select(), giving positions in the list that `in` becomes when it is sorted, strongest
    /// first and stable, by Keypoint::operator>.
    /// @throws as select() but for checkNoInPlace(); then std::runtime_error "This case has not
    ///         been implemented yet" if no more keypoints are given than requested. `out` keeps its
    ///         content.
    void selectIndices(const std::vector<Keypoint>& in, std::vector<std::size_t>& out) override;

private:
    FEATURES_HIDDEN void searchDiscs();
};

}  // namespace marlo
