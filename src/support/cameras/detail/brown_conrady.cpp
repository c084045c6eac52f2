// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/detail/brown_conrady.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "support/cameras/detail/polynomial_roots.h"

namespace marlo::detail {
namespace {

constexpr int kMostSteps = 60;  // at the fold each step only halves what is missing
// Of the radius, squared: what is missing after it, about its square, is below 1e-8 pixels.
constexpr double kLastStep = 2e-14;
constexpr double kShortestStep = 0x1p-100;  // for growth as r^7 and a guess far too small

double square(double value) {
    return value * value;
}

// The factor from the radius to the distorted radius, without decentring.
double radialFactor(const BrownConradyParameters& p, double rr) {
    return 1.0 + rr * (p.k1 + rr * (p.k2 + rr * p.k3));
}

}  // namespace

DistortedPoint distort(const BrownConradyParameters& p, double x, double y) {
    const double rr = x * x + y * y;
    const double radial = radialFactor(p, rr);
    const double twiceSlope = 2.0 * (p.k1 + rr * (2.0 * p.k2 + 3.0 * rr * p.k3));  // of radial, rr
    const double shift = 2.0 * (p.p1 * y + p.p2 * x);
    return {x * (radial + shift) + p.p2 * rr, y * (radial + shift) + p.p1 * rr,
            radial + shift + x * (twiceSlope * x + 4.0 * p.p2),
            twiceSlope * x * y + 2.0 * (p.p1 * x + p.p2 * y),
            radial + shift + y * (twiceSlope * y + 4.0 * p.p1)};
}

double foldRadius(const BrownConradyParameters& p) {
    // In the direction of a point of radius r, and at right angles to it, the derivative is
    //
    //     | q + 6 r a    2 r b   |   q = 1 + 3 k1 r^2 + 5 k2 r^4 + 7 k3 r^6
    //     |   2 r b    L + 2 r a |   L = 1 +   k1 r^2 +   k2 r^4 +   k3 r^6
    //
    // where (a, b) is the vector (p2, p1), of length A, in these directions. Up to the first zero
    // of q - 6.4 r A it is positive definite: r L is the integral of q, so L > 3.2 r A there. Hence
    // q + 3 L > 16 r A, so that of all directions of the point the one with a = -A has the least
    // determinant, (q - 6 r A) (L - 2 r A); and both factors are positive. With 6 in place of 6.4
    // only the last step would hold.
    const double a = std::sqrt(square(p.p1) + square(p.p2));
    const std::vector<double> ends =
        positiveRoots({1.0, -6.4 * a, 3.0 * p.k1, 0.0, 5.0 * p.k2, 0.0, 7.0 * p.k3});
    return ends.empty() ? std::numeric_limits<double>::infinity() : ends.front();
}

double largestDistortedRadius(const BrownConradyParameters& p, double foldRadius) {
    if (std::isinf(foldRadius)) return foldRadius;
    // The radial part grows up to the end of the disc, and the decentring moves no point of radius
    // r by more than 3 |p| r^2.
    const double rr = square(foldRadius);
    return foldRadius * radialFactor(p, rr) + 3.0 * std::sqrt(square(p.p1) + square(p.p2)) * rr;
}

bool undistort(const BrownConradyParameters& p, double foldRadius, double largestDistortedRadius,
               double& x, double& y) {
    const double wantedX = x;
    const double wantedY = y;
    const double wanted = square(x) + square(y);
    // A little inside, so that rounding takes no ray beyond the fold.
    const double end = square(foldRadius) * (1.0 - 0x1p-49);
    if (!std::isfinite(wanted) || wanted > square(largestDistortedRadius)) return false;

    // One step of the fixed-point iteration is a good guess, if it lies in the disc.
    double scale = 1.0 / radialFactor(p, wanted);
    if (!(scale > 0.0) || !(square(scale) * wanted < 0.81 * end)) {
        scale = std::min(1.0, 0.9 * foldRadius / std::sqrt(wanted));
    }
    x *= scale;
    y *= scale;

    DistortedPoint at = distort(p, x, y);
    for (int i = 0; i < kMostSteps; ++i) {
        const double missX = at.x - wantedX;
        const double missY = at.y - wantedY;
        const double miss = square(missX) + square(missY);
        if (miss <= 1e-30 * wanted) return true;  // as good as rounding allows
        const double determinant = at.dxdx * at.dydy - square(at.dxdy);
        const double stepX = (at.dydy * missX - at.dxdy * missY) / determinant;
        const double stepY = (at.dxdx * missY - at.dxdy * missX) / determinant;
        // What is missing after the step is about its square, so it need not be looked at.
        if (square(stepX) + square(stepY) <= kLastStep * (square(x) + square(y))) {
            x -= stepX;
            y -= stepY;
            return square(x) + square(y) < end;
        }
        double length = 1.0;
        for (;; length *= 0.5) {
            if (length < kShortestStep) return false;
            const double nextX = x - length * stepX;
            const double nextY = y - length * stepY;
            if (!(square(nextX) + square(nextY) < end)) continue;
            at = distort(p, nextX, nextY);
            if (square(at.x - wantedX) + square(at.y - wantedY) < (1.0 - 0.5 * length) * miss) {
                x = nextX;
                y = nextY;
                break;
            }
        }
    }
    return false;
}

}  // namespace marlo::detail
