// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <cstdint>

#include "support/image.h"

namespace marlo::tools {

/// A photograph as another camera might have seen it, were the scene flat.
struct SyntheticView {
    FloatImage image;            ///< as large as the photograph
    Eigen::Matrix3d homography;  ///< from pixels of the photograph to pixels of the view
};

/// Turned by up to 40 degrees, zoomed by 0.6 to 1.4, tilted, blurred, unevenly lit, noisy and
/// compressed, each by an amount that `seed` decides.
SyntheticView syntheticView(const FloatImage& photograph, std::uint64_t seed);

}  // namespace marlo::tools
