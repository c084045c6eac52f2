// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/transforms/spherical_transform.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <optional>
#include <utility>

#include "libfeatures/transforms/detail/panorama_sphere.h"
#include "libfeatures/transforms/detail/polar_discs.h"
#include "libfeatures/transforms/spherical_layout.h"
#include "support/log.h"

namespace marlo {
namespace {

log::LogStreamer logLine(log::Level level, int line) {
    return log::LogStreamer(log::defaultLogSource(), level, {},
                            log::FileAndLine("spherical_transform", line));
}

template <typename Image>
bool isPanorama(const Image& image) {
    return 2 * static_cast<std::uint32_t>(image.rows()) == static_cast<std::uint32_t>(image.cols());
}

// Maps positions of the working image to a panorama of that size. Distances are not rounded here,
// unlike those of the working image.
class WayBack {
public:
    WayBack(int width, int height)
        : sphere_(width, height),
          margin_(0.5 * (0.1 * sphere_.halfHeight())),
          bandHeight_(1.1 * sphere_.halfHeight()),
          discRadius_(1.1 * sphere_.width() / (2.0 * std::numbers::pi)),
          squaredRadius_(sphere_.width() * sphere_.width() / kSquareOfTwoPi) {}

    struct Position {
        double x;
        double y;
    };

    // Nothing for positions that another part of the working image is responsible for.
    [[nodiscard]] std::optional<Position> map(double x, double y) const {
        if (y < bandHeight_) return fromBand(x, y);
        if (x < 2.0 * discRadius_) return fromNorthDisc(x, y);
        return fromSouthDisc(x, y);
    }

private:
    static constexpr double kSquareOfTwoPi = 39.47841760435743;

    [[nodiscard]] std::optional<Position> fromBand(double x, double y) const {
        if (x < margin_ || x > sphere_.width() + margin_ || y < margin_ ||
            y > bandHeight_ - margin_) {
            return std::nullopt;
        }
        return Position{x - margin_, y - margin_ + 0.5 * sphere_.halfHeight()};
    }

    [[nodiscard]] std::optional<Position> fromNorthDisc(double x, double y) const {
        const double dx = x - discRadius_;
        const double dy = y - (bandHeight_ + discRadius_);
        if (dx * dx + dy * dy > squaredRadius_) return std::nullopt;
        const Position position = onPanorama(sphere_.inNorthDisc(dx, dy));
        if (position.y > 0.5 * sphere_.halfHeight()) return std::nullopt;
        return position;
    }

    [[nodiscard]] std::optional<Position> fromSouthDisc(double x, double y) const {
        const double right = 2.0 * margin_ + sphere_.width();
        if (!(x > right - 2.0 * discRadius_)) return std::nullopt;
        const double dx = x - (right - discRadius_);
        const double dy = y - (bandHeight_ + discRadius_);
        if (dx * dx + dy * dy > squaredRadius_) return std::nullopt;
        const Position position = onPanorama(sphere_.inSouthDisc(dx, dy));
        if (position.y < 1.5 * sphere_.halfHeight()) return std::nullopt;
        return position;
    }

    [[nodiscard]] Position onPanorama(const detail::PlaceOnSphere& place) const {
        return {sphere_.column(place), sphere_.row(place)};
    }

    detail::PanoramaSphere sphere_;
    double margin_;
    double bandHeight_;
    double discRadius_;
    double squaredRadius_;  // of what the discs are responsible for
};

}  // namespace

template <typename Image>
const Image& SphericalTransform::transform(const Image& image, Image& working) {
    if (!isPanorama(image)) {
        isSpherical_ = false;
        logLine(log::Level::Warning, 157)
            << "Spherical feature transform: aborted due to image not being 2:1 ratio";
        return image;
    }
    const auto cols = static_cast<int>(image.cols());
    const auto rows = static_cast<int>(image.rows());
    if (!discs_ || discs_->layout().width != cols || discs_->layout().height != rows) {
        discs_.reset();  // its memory can serve the next
        discs_ = std::make_shared<detail::PolarDiscs>(SphericalLayout(cols, rows));
    }
    working.resize(discs_->layout().rows, discs_->layout().cols);
    discs_->resample(image, working);
    isSpherical_ = true;
    logLine(log::Level::Information, 165)
        << "Spherical feature transform: converted to cylindrical, " << cols << " x " << rows
        << " to " << working.cols() << " x " << working.rows();
    return working;
}

const ByteImage& SphericalTransform::transformImage(const ByteImage& image) {
    return transform(image, byteImage_);
}

const FloatImage& SphericalTransform::transformImage(const FloatImage& image) {
    return transform(image, floatImage_);
}

void SphericalTransform::transformKeypointsBack(const std::vector<Keypoint>& transformed,
                                                std::vector<Keypoint>& forDescriptors,
                                                std::vector<Keypoint>& output, int width,
                                                int height) {
    if (!isSpherical_) {
        logLine(log::Level::Warning, 172)
            << "Spherical feature transform: conversion back to spherical aborted due to image "
               "not being 2:1 ratio";
        forDescriptors = transformed;
        output = transformed;
        return;
    }
    const WayBack wayBack(width, height);
    std::vector<Keypoint> kept;
    std::vector<Keypoint> moved;
    kept.reserve(transformed.size());
    moved.reserve(transformed.size());
    for (const Keypoint& keypoint : transformed) {
        const auto position =
            wayBack.map(static_cast<double>(keypoint.x), static_cast<double>(keypoint.y));
        if (!position) continue;
        kept.push_back(keypoint);
        Keypoint& back = moved.emplace_back(keypoint);
        back.x = static_cast<float>(std::fmod(position->x, static_cast<double>(width)));
        back.y = static_cast<float>(std::clamp(position->y, 0.0, static_cast<double>(height)));
    }
    kept.shrink_to_fit();
    moved.shrink_to_fit();
    forDescriptors = std::move(kept);
    output = std::move(moved);
    logLine(log::Level::Information, 231)
        << "Spherical feature transform: converted back to spherical";
}

}  // namespace marlo
