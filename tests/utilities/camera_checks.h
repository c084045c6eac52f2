// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <random>

#include "support/cameras/abstract_camera.h"

/// What every camera must do, as the largest error found.
namespace marlo::test {

/// In pixels, from pixel to ray and back, over the image from `firstRow` to its lower corners.
/// Infinite if a pixel has no ray, or a ray is not 1 long to 1e-15.
double largestRoundTrip(const AbstractCamera& camera, int pixelsApart, int firstRow = 0);

/// How much the derivatives of the pixel by direction and parameters, and of the ray by the pixel,
/// differ from differences, relative to the largest of each. Infinite if there are none.
double largestJacobianError(const AbstractCamera& camera, const Eigen::Vector3d& direction);

/// Evenly spread over all directions at less than `maxAngle` off +z.
Eigen::Vector3d randomDirection(std::mt19937& generator, double maxAngle);

/// Evenly spread between the two.
double randomBetween(std::mt19937& generator, double low, double high);

}  // namespace marlo::test
