// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>

#include "libfeatures/features_export.h"

namespace marlo {

/// Where everything lies in the working image that SphericalTransform makes of a full panorama.
/// All in pixels.
struct FEATURES_EXPORT SphericalLayout {
    /// @throws std::invalid_argument unless `width` is twice `height` and they are not negative,
    ///         std::length_error for sizes that are too large for the working image's to be
    ///         counted.
    SphericalLayout(int width, int height);

    int width;  ///< of the panorama
    int height;
    int cols;  ///< of the working image
    int rows;

    int bandRows;          ///< the discs begin with this row
    int margin;            ///< what the band shows beyond its latitudes, and beyond the seam
    int firstPanoramaRow;  ///< the row of the panorama that the band begins with

    double discRadius;   ///< a tenth larger than the cylinder's
    int discCentreRow;   ///< of both discs
    int northCentreCol;  ///< of the disc around the north pole
    int southCentreCol;  ///< of the disc around the south pole
    double keptRadius;   ///< of the part of a disc that lies 45 degrees or more from the equator

    /// The place in the panorama that the working image shows at `x`, `y`, without the rounding to
    /// pixels: x in [0, width), y in [0, height]; NaN for a panorama without pixels. Rows above
    /// `bandRows` - 1/2 belong to the band, others to the nearer disc.
    ///
    /// SphericalTransform::transformKeypointsBack() takes the margin and the centres of the discs
    /// without their rounding to pixels, so its positions are off by up to 1.1 pixels
    /// in the band and 2.1 in a disc, by the same in all of it; these are not.
    [[nodiscard]] Eigen::Vector2d inPanorama(double x, double y) const;
};

}  // namespace marlo
