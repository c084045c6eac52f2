// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/features_export.h"

namespace marlo {

/// What the selectors that suppress by disc covering have in common: their parameters and the
/// search for the disc radius. A host sets the parameters through setSdcParams().
///
/// The image is divided into square cells. Keypoints are visited from the strongest to the weakest;
/// one whose cell is free is taken, and covers a disc of cells around it. The radius of the discs
/// is bisected, starting from half the image width, until at least K and at most (1 + er) K
/// keypoints are taken; the cells shrink along with the discs, so a pass costs about the same
/// whatever the radius. S. Gauglitz, L. Foschini, M. Turk and T. Hoellerer, Efficiently Selecting
/// Spatially Distributed Keypoints for Visual Tracking, ICIP 2011.
///
/// The search may end without having met the tolerance:
/// - The cell size reaches 0 pixels. The last pass that could be made counts, with fewer than K
///   keypoints taken.
/// - A cell size repeats that gave more than K before. The repetition counts, although its discs
///   may be larger and take fewer than K.
/// - The radius stops to change, although too few keypoints are taken. The last pass counts.
///
/// A keypoint outside the image counts as one in the nearest cell at the border, and a coordinate
/// that is NaN as 0.
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
    friend class KeypointSelectorSdc;
    friend class KeypointSelectorSdcOrientations;

    /// Replaces taken_ by what one pass over sorted_ takes, in ascending order.
    using Pass = std::function<void(std::uint32_t cellSize, std::uint32_t discRadius)>;

    FEATURES_HIDDEN void prepare(const std::vector<Keypoint>& in);
    [[nodiscard]] FEATURES_HIDDEN bool allAreRequested() const noexcept {
        return numberOfKeypoints_ == sorted_.size();
    }
    /// Leaves in taken_ what the last pass took. False if the search ended at cell size 0.
    FEATURES_HIDDEN bool search(const Pass& pass);
    /// Empties taken_ of all but the strongest `count`, and itself once it is read.
    [[nodiscard]] FEATURES_HIDDEN std::vector<Keypoint> readTaken(
        const std::vector<Keypoint>& source, std::uint64_t count);
    [[nodiscard]] FEATURES_HIDDEN std::vector<std::size_t> readTakenPositions(std::uint64_t count);

    std::map<std::uint64_t, std::uint64_t> takenByCellSize_;  // of the passes of this call
    std::uint64_t numberOfKeypoints_ = 0;                     // K
    int width_ = 0;
    int height_ = 0;
    float ek_ = 0.0F;
    float er_ = 0.0F;
    float radius_ = 0.0F;               // of the last pass, in pixels
    float step_ = 0.0F;                 // between the radius of the last pass and that of the next
    std::vector<Keypoint> sorted_;      // the input, strongest first
    std::vector<std::uint64_t> taken_;  // positions in sorted_
};

}  // namespace marlo
