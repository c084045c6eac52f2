// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/transforms/spherical_layout.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "libfeatures/transforms/detail/panorama_sphere.h"

namespace marlo {
namespace {

constexpr double kMarginOfBand = 0.1;  // of half the height, half of it on each side
constexpr int kMostRows = 1 << 29;     // twice that and a margin can be counted
constexpr double kDiscScale = 1.1;     // of the cylinder's radius

}  // namespace

SphericalLayout::SphericalLayout(int panoramaWidth, int panoramaHeight)
    : width(panoramaWidth), height(panoramaHeight) {
    if (height < 0 || width - height != height) {
        throw std::invalid_argument("A full panorama is twice as wide as high, not " +
                                    std::to_string(width) + " x " + std::to_string(height));
    }
    if (height > kMostRows) {
        throw std::length_error("A panorama of " + std::to_string(width) + " x " +
                                std::to_string(height) + " pixels is too large");
    }
    const detail::PanoramaSphere sphere(width, height);
    using detail::rounded;
    margin = rounded(kMarginOfBand * sphere.halfHeight() * 0.5);
    cols = 2 * margin + width;
    bandRows = rounded(sphere.halfHeight()) + 2 * margin;
    firstPanoramaRow = rounded(0.25 * sphere.height() - margin);
    discRadius = kDiscScale * sphere.radius();
    keptRadius = sphere.radius();
    rows = rounded(sphere.halfHeight() + 2 * margin + 2.0 * discRadius);
    discCentreRow = rounded(bandRows + discRadius);
    northCentreCol = rounded(discRadius);
    southCentreCol = cols - northCentreCol;
}

Eigen::Vector2d SphericalLayout::inPanorama(double x, double y) const {
    const auto wrapped = [this](double column) {
        const double remainder = std::fmod(column, static_cast<double>(width));
        const double positive = remainder < 0.0 ? remainder + width : remainder;
        return positive < width ? positive : positive - width;  // the sum may have been rounded up
    };
    if (y < bandRows - 0.5) {
        return {wrapped(x - margin), std::clamp<double>(y + firstPanoramaRow, 0.0, height)};
    }
    const detail::PanoramaSphere sphere(width, height);
    const detail::PlaceOnSphere place =
        x < 0.5 * cols ? sphere.inNorthDisc(x - northCentreCol, y - discCentreRow)
                       : sphere.inSouthDisc(x - southCentreCol, y - discCentreRow);
    return {wrapped(sphere.column(place)), std::clamp<double>(sphere.row(place), 0.0, height)};
}

}  // namespace marlo
