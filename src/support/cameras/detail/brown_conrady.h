// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "support/cameras/camera_perspective.h"

/// The distortion of CameraPerspective, in units of the focal length: `fx` to `cy` do not enter.
///
/// It is the gradient of a potential, for its derivative is symmetric:
///
///     r^2 / 2 + k1 r^4 / 4 + k2 r^6 / 6 + k3 r^8 / 8 + (p2 x + p1 y) r^2
///
/// Within a disc in which the derivative is positive definite the potential is strictly convex, so
/// the distortion is one to one there, and to undo it is to find the one minimum of a convex
/// function.
namespace marlo::detail {

struct DistortedPoint {
    double x;
    double y;
    double dxdx;  // the derivative, which is symmetric
    double dxdy;
    double dydy;
};

DistortedPoint distort(const BrownConradyParameters& p, double x, double y);

/// The radius of a disc around 0 in which the derivative is positive definite: the largest one if
/// there is no decentring, else no smaller than that of a decentring stronger by 1/15. May be
/// infinite.
double foldRadius(const BrownConradyParameters& p);

/// A bound of the radius to which points of that disc are distorted.
double largestDistortedRadius(const BrownConradyParameters& p, double foldRadius);

/// Replaces a distorted point by the undistorted one within that disc, if there is one. Otherwise
/// the result is false and the point undefined.
bool undistort(const BrownConradyParameters& p, double foldRadius, double largestDistortedRadius,
               double& x, double& y);

}  // namespace marlo::detail
