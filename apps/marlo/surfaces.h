// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <cstdint>

#include "marlo/solids.h"

/// What the surfaces of the town look like: red, green and blue, 0 to 1, of the light that a
/// surface returns. Patterns of many sizes, none of which repeats, and none finer than `footprint`,
/// the width in metres that a pixel covers.
namespace marlo::app {

Eigen::Array3f groundColour(const Eigen::Vector3d& point, float footprint);

/// `seed` tells the houses apart.
Eigen::Array3f houseColour(const House& house, int face, const Eigen::Vector3d& point,
                           std::uint32_t seed, float footprint);

Eigen::Array3f treeColour(const Ellipsoid& tree, const Eigen::Vector3d& point, std::uint32_t seed,
                          float footprint);

Eigen::Array3f hillColour(const Eigen::Vector3d& point, float footprint);

}  // namespace marlo::app
