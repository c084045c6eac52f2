// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/features_export.h"

namespace marlo {

/// How keypoints spread over an image, in two figures that do not depend on its resolution; see
/// coverage().
struct Coverage {
    /// How many places there are: positions inside of the image, each counted once.
    std::size_t places = 0;
    /// The share, from 0 to 1, of the cells of a grid over the image that places lie in. Large
    /// empty parts of the image lower it.
    double occupiedCells = 0.0;
    /// The mean distance from a place to its nearest other place, over what it would be for as many
    /// independent places, evenly likely everywhere: near 0 if they crowd, about 1 if they are
    /// random, 2 on a square lattice, 2.149 on a hexagonal one, which is the most that many places
    /// can have. 0 if there are fewer than two places. A few places, or those of a narrow image,
    /// have higher values, as those at the border have neighbours on one side only: random ones
    /// have about 1 + 0.4 / sqrt(places).
    double nearestNeighbourRatio = 0.0;
};

/// Measures how `keypoints` cover an image of `width` x `height` pixels, with a grid of `gridSize`
/// x `gridSize` cells. It tells selections of about as many keypoints apart: both figures depend on
/// the number.
///
/// The image reaches from -1/2 to `width` - 1/2, and to `height` - 1/2, the upper borders not
/// included. Keypoints outside of it, or with a coordinate that is not a number, are left out.
/// Keypoints with the same coordinates, such as those that differ in direction only, are one place:
/// otherwise they would make a selection look crowded that is not. Distances are exact, in about
/// n log n steps, also where places crowd, and in more only where they lie on few lines; the order
/// of `keypoints` changes no bit of the result.
///
/// P. J. Clark, F. C. Evans, Distance to Nearest Neighbor as a Measure of Spatial Relationships in
/// Populations, Ecology 35(4), 1954: the ratio R, with 1 / (2 sqrt(density)) as what is expected,
/// without a correction for the border.
/// @throws std::invalid_argument "coverage: the image has no pixels" if a side is below 1,
///         "coverage: the grid has no cells" if `gridSize` is.
[[nodiscard]] FEATURES_EXPORT Coverage coverage(const std::vector<Keypoint>& keypoints, int width,
                                                int height, int gridSize = 20);

}  // namespace marlo
