// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <vector>

namespace marlo::app {

/// What two cameras' rays to the same points have in common, and which pairs of rays agree.
struct RayModel {
    Eigen::Matrix3d matrix = Eigen::Matrix3d::Zero();  ///< zero if there is none
    std::vector<Eigen::Index> inliers;                 ///< ascending
};

using Rays = std::vector<Eigen::Vector3d>;  ///< of unit length

/// The essential matrix E that most pairs of rays agree with: second^T E first = 0, and each ray
/// lies within `angle` (radians) of the plane that E and the other ray span. For cameras that see
/// all around, where a fundamental matrix has no meaning.
///
/// Random samples of eight, the later ones among ever more pairs in the order given, which should
/// be that of falling trust (O. Chum and J. Matas, Matching with PROSAC, CVPR 2005, in a simple
/// form), and a least-squares fit to the inliers of every better sample. The same pairs give the
/// same result. Whether points lie ahead along both rays or behind is not asked; a ray that is NaN
/// agrees with nothing. `angle` is below pi / 2.
/// @throws std::invalid_argument if there are not as many rays of either camera.
RayModel essentialMatrix(const Rays& first, const Rays& second, double angle);

/// The same for a rotation, second = R first: cameras in one place.
RayModel rotationBetween(const Rays& first, const Rays& second, double angle);

}  // namespace marlo::app
