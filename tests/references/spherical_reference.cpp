// SPDX-License-Identifier: BSD-3-Clause
#include "references/spherical_reference.h"

#include <cmath>

namespace marlo::test {
namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kCosine = 6.123233995736766e-17;

long clamped(long value, long least, long most) {
    return value < least ? least : (value > most ? most : value);
}

template <typename Pixel>
Matrix<Pixel> workingImage(const Matrix<Pixel>& panorama) {
    const long cols = panorama.cols();
    const long rows = panorama.rows();
    const double radius = static_cast<double>(cols) / (2.0 * kPi);
    const double centre = 0.5 * static_cast<double>(cols);
    const double halfHeight = 0.5 * static_cast<double>(rows);
    const double k = static_cast<double>(rows) / kPi;
    const long margin = std::lround(0.1 * halfHeight * 0.5);
    const long bandRows = std::lround(halfHeight) + 2 * margin;
    const double disc = 1.1 * radius;
    const long outRows = std::lround(halfHeight + 2.0 * static_cast<double>(margin) + 2.0 * disc);
    const long outCols = 2 * margin + cols;
    Matrix<Pixel> working = Matrix<Pixel>::Zero(outRows, outCols);
    for (long i = 0; i < bandRows; ++i) {
        const long s =
            std::lround(0.25 * static_cast<double>(rows) - static_cast<double>(margin)) + i;
        for (long col = 0; col < margin; ++col) {
            working(i, col) = panorama(s, cols - margin + col);
            working(i, outCols - margin + col) = panorama(s, col);
        }
        for (long col = 0; col < cols; ++col) working(i, margin + col) = panorama(s, col);
    }
    const long ri = std::lround(disc);
    const auto pixel = [&](double lon, double lat) {
        const long col = std::lround(lon * radius + centre) % cols;
        const long row = clamped(std::lround(k * lat + halfHeight), 0, rows - 1);
        return panorama(row, col);
    };
    for (long i = -ri; i < ri; ++i) {
        const long y =
            clamped(std::lround(static_cast<double>(bandRows) + disc) + i, 0, outRows - 1);
        const double square = disc * disc - static_cast<double>(i) * static_cast<double>(i);
        if (square < 0.0) continue;
        const long w = std::lround(std::sqrt(square));
        const double t = static_cast<double>(i) / k;
        for (long j = -w; j < w; ++j) {
            const double a = static_cast<double>(j) / radius;
            const double north = kCosine * t - 1.0;
            const double south = 1.0 + kCosine * t;
            working(y, clamped(ri + j, 0, outCols - 1)) =
                pixel(std::atan2(a, t + kCosine),
                      std::asin(north /
                                std::sqrt((t + kCosine) * (t + kCosine) + north * north + a * a)));
            working(y, clamped(outCols - ri + j, 0, outCols - 1)) =
                pixel(std::atan2(a, kCosine - t),
                      std::asin(south /
                                std::sqrt((kCosine - t) * (kCosine - t) + south * south + a * a)));
        }
    }
    return working;
}

}  // namespace

ByteImage sphericalWorkingImage(const ByteImage& panorama) {
    return workingImage(panorama);
}

FloatImage sphericalWorkingImage(const FloatImage& panorama) {
    return workingImage(panorama);
}

KeypointsBack sphericalKeypointsBack(const std::vector<Keypoint>& transformed, int width,
                                     int height) {
    const double w = width;
    const double h = height;
    const double radius = w / (2.0 * kPi);
    const double centre = 0.5 * w;
    const double halfHeight = 0.5 * h;
    const double k = h / kPi;
    const double m = 0.5 * (0.1 * halfHeight);
    const double bandHeight = 1.1 * halfHeight;
    const double r = 1.1 * w / (2.0 * kPi);
    const double square = w * w / 39.47841760435743;
    KeypointsBack back;
    for (const Keypoint& keypoint : transformed) {
        const double x = static_cast<double>(keypoint.x);
        const double y = static_cast<double>(keypoint.y);
        double newX = x - m;
        double newY = y - m + 0.5 * halfHeight;
        if (y < bandHeight) {
            if (x < m || x > w + m || y < m || y > bandHeight - m) continue;
        } else {
            const bool isNorth = x < 2.0 * r;
            if (!isNorth && !(x > 2.0 * m + w - 2.0 * r)) continue;
            const double dx = isNorth ? x - r : x - (2.0 * m + w - r);
            const double dy = y - (bandHeight + r);
            if (dx * dx + dy * dy > square) continue;
            const double t = dy / k;
            const double a = dx / radius;
            const double ahead = isNorth ? t + kCosine : kCosine - t;
            const double z = isNorth ? kCosine * t - 1.0 : 1.0 + kCosine * t;
            newX = std::atan2(a, ahead) * radius + centre;
            newY = k * std::asin(z / std::sqrt(ahead * ahead + z * z + a * a)) + halfHeight;
            if (isNorth && newY > 0.5 * halfHeight) continue;
            if (!isNorth && newY < 1.5 * halfHeight) continue;
        }
        back.forDescriptors.push_back(keypoint);
        Keypoint moved = keypoint;
        moved.x = static_cast<float>(std::fmod(newX, w));
        moved.y = static_cast<float>(newY < 0.0 ? 0.0 : (newY > h ? h : newY));
        back.output.push_back(moved);
    }
    return back;
}

}  // namespace marlo::test
