// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cmath>
#include <numbers>

namespace marlo::detail {

/// To whole pixels, half away from zero.
inline int rounded(double value) {
    return static_cast<int>(std::round(value));
}

/// A place on the unit sphere, in radians. Longitude 0 is the panorama's middle column; latitude
/// runs downwards, from -pi/2 at the north pole to pi/2.
struct PlaceOnSphere {
    double longitude;
    double latitude;
};

/// The cosine of the angle between equator and pole as double precision has it. It stays in the
/// formulas: without it, longitudes next to a pole would round otherwise.
constexpr double kCosineOfPole = 6.123233995736766e-17;

/// The size of a panorama in the terms of both directions of the transform.
class PanoramaSphere {
public:
    PanoramaSphere(int width, int height)
        : width_(width),
          height_(height),
          radius_(width_ / (2.0 * std::numbers::pi)),
          rowsPerRadian_(height_ / std::numbers::pi) {}

    [[nodiscard]] double width() const { return width_; }
    [[nodiscard]] double height() const { return height_; }
    [[nodiscard]] double halfHeight() const { return 0.5 * height_; }
    /// Of the cylinder whose circumference is the width, in pixels.
    [[nodiscard]] double radius() const { return radius_; }

    [[nodiscard]] double column(const PlaceOnSphere& place) const {
        return place.longitude * radius_ + 0.5 * width_;
    }
    [[nodiscard]] double row(const PlaceOnSphere& place) const {
        return rowsPerRadian_ * place.latitude + halfHeight();
    }

    /// What the disc around the north pole shows at `x`, `y` pixels from its centre.
    [[nodiscard]] PlaceOnSphere inNorthDisc(double x, double y) const {
        const double t = y / rowsPerRadian_;
        return onSphere(x / radius_, t + kCosineOfPole, kCosineOfPole * t - 1.0);
    }
    [[nodiscard]] PlaceOnSphere inSouthDisc(double x, double y) const {
        const double t = y / rowsPerRadian_;
        return onSphere(x / radius_, kCosineOfPole - t, 1.0 + kCosineOfPole * t);
    }

private:
    // Of the direction (across, z, ahead): z runs from the north pole to the south pole.
    static PlaceOnSphere onSphere(double across, double ahead, double z) {
        return {std::atan2(across, ahead),
                std::asin(z / std::sqrt(ahead * ahead + z * z + across * across))};
    }

    double width_;
    double height_;
    double radius_;
    double rowsPerRadian_;
};

}  // namespace marlo::detail
