// SPDX-License-Identifier: BSD-3-Clause
#include "references/camera_reference.h"

#include <cmath>
#include <limits>

namespace marlo::reference {
namespace {

using Real = long double;

struct Point {
    Real x;
    Real y;
};

Point distorted(const BrownConradyParameters& p, Real x, Real y) {
    const Real rr = x * x + y * y;
    const Real radial = 1 + p.k1 * rr + p.k2 * rr * rr + p.k3 * rr * rr * rr;
    return {x * radial + 2 * p.p1 * x * y + p.p2 * (rr + 2 * x * x),
            y * radial + p.p1 * (rr + 2 * y * y) + 2 * p.p2 * x * y};
}

Real smallestEigenvalue(const BrownConradyParameters& p, Real x, Real y) {
    constexpr Real kStep = 1e-6L;
    const Point right = distorted(p, x + kStep, y);
    const Point left = distorted(p, x - kStep, y);
    const Point below = distorted(p, x, y + kStep);
    const Point above = distorted(p, x, y - kStep);
    const Real xx = (right.x - left.x) / (2 * kStep);
    const Real yy = (below.y - above.y) / (2 * kStep);
    const Real xy = (right.y - left.y) / (2 * kStep);
    return (xx + yy) / 2 - std::sqrt((xx - yy) * (xx - yy) / 4 + xy * xy);
}

}  // namespace

Eigen::Vector2d slowProject(const BrownConradyParameters& p, const Eigen::Vector3d& direction) {
    const Point point = distorted(p, static_cast<Real>(direction.x()) / direction.z(),
                                  static_cast<Real>(direction.y()) / direction.z());
    return {static_cast<double>(p.fx * point.x + p.cx), static_cast<double>(p.fy * point.y + p.cy)};
}

Eigen::Vector2d slowProject(const FisheyeParameters& p, const Eigen::Vector3d& direction) {
    const Real x = direction.x();
    const Real y = direction.y();
    const Real radius = std::sqrt(x * x + y * y);
    const Real theta = std::atan2(radius, static_cast<Real>(direction.z()));
    const Real d = theta + p.k1 * std::pow(theta, Real{3}) + p.k2 * std::pow(theta, Real{5}) +
                   p.k3 * std::pow(theta, Real{7}) + p.k4 * std::pow(theta, Real{9});
    return {static_cast<double>(p.fx * d * x / radius + p.cx),
            static_cast<double>(p.fy * d * y / radius + p.cy)};
}

double slowFoldRadius(const BrownConradyParameters& p, double step, double end) {
    constexpr int kDirections = 36;
    for (int i = 1; i * step <= end; ++i) {
        for (int k = 0; k < kDirections; ++k) {
            const Real angle = 6.283185307179586L * k / kDirections;
            const Real r = static_cast<Real>(i) * step;
            if (smallestEigenvalue(p, r * std::cos(angle), r * std::sin(angle)) <= 0) {
                return static_cast<double>(r);
            }
        }
    }
    return std::numeric_limits<double>::infinity();
}

}  // namespace marlo::reference
