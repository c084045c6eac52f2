// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"
#include "libfeatures/selectors/i_keypoint_selector.h"

namespace marlo {

/// Keeps the strongest keypoint of every cell of a grid of roughly square cells (all of them on an
/// exact tie).
///
/// The number of cells is fixed, not requested: 120,000 first, among keypoints whose response is
/// about 1/150 or more. If that keeps fewer than 20,000 or more than 80,000 keypoints, the
/// selection is made again with as many cells as the limit that was missed and a threshold of 0.
class FEATURES_EXPORT KeypointSelectorDefault : public IKeypointSelector {
public:
    /// The image size in pixels; setSelectorDefaultParams() for a host that holds the interface.
    /// @throws std::out_of_range "Parameters out of range" if one is below 1; nothing is stored
    ///         then.
    void setParams(int height, int width);

    [[nodiscard]] std::unique_ptr<IKeypointSelector> clone() const override;
    /// Does nothing: this selector ignores the requested number.
    void setNumberOfKeypoints(std::uint64_t count) override;

    /// Fills `out` cell by cell in row order, and in input order within a cell. A coordinate that
    /// is not a number, or lies too far outside the image to have a cell number, shares one cell
    /// column or row with all others of that kind.
    /// @throws std::runtime_error "Parameters have not been set", then "Input keypoints are empty",
    ///         then as checkNoInPlace(). `out` keeps its content in each case.
    void select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) override;
    /// Not offered by this selector.
    /// @throws std::runtime_error "This case has not been implemented yet", always.
    void selectIndices(const std::vector<Keypoint>& in, std::vector<std::size_t>& out) override;

private:
    int height_ = 0;
    int width_ = 0;
    // Carried along and copied; no step of the selection reads it.
    [[maybe_unused]] float reserved_ = 3.0F;
    float responseThreshold_ = 0.0066666664F;  // one step below the float nearest to 1/150
};

}  // namespace marlo
