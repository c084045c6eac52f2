// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/solids.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace marlo::app {

House::House(const Plan& plan)
    : plan_(plan), along_(plan.cosine, plan.sine, 0.0), across_(-plan.sine, plan.cosine, 0.0) {
    const double x = 0.5 * plan.length;
    const double y = 0.5 * plan.width;
    addFace(0.0, -1.0, 0.0, y, 0.0);
    addFace(0.0, 1.0, 0.0, y, 0.0);
    addFace(-1.0, 0.0, 0.0, x, 0.0);
    addFace(1.0, 0.0, 0.0, x, 0.0);
    if (plan.roof == Roof::flat) {
        addFace(0.0, 0.0, 1.0, 0.0, plan.wallHeight);
        return;
    }
    addFace(0.0, -plan.roofHeight, y, y, plan.wallHeight);
    addFace(0.0, plan.roofHeight, y, y, plan.wallHeight);
    if (plan.roof == Roof::pyramid) {
        addFace(-plan.roofHeight, 0.0, x, x, plan.wallHeight);
        addFace(plan.roofHeight, 0.0, x, x, plan.wallHeight);
    }
}

// `towards` and `rise` are the normal along the own axes, of any length; the face passes at that
// distance from the middle of the house at that height.
void House::addFace(double towardsX, double towardsY, double rise, double distance, double height) {
    const Eigen::Vector3d outwards = towardsX * along_ + towardsY * across_;
    const Eigen::Vector3d normal = (outwards + Eigen::Vector3d(0.0, 0.0, rise)).normalized();
    Eigen::Vector3d point(plan_.x, plan_.y, height);
    if (distance > 0.0) point += distance * outwards.normalized();
    planes_.push_back({normal.x(), normal.y(), normal.z(), normal.dot(point)});
}

Eigen::Vector3d House::normal(int face) const {
    const Plane& plane = planes_[static_cast<std::size_t>(face)];
    return {plane.x, plane.y, plane.z};
}

Eigen::Vector2d House::onFace(int face, const Eigen::Vector3d& point) const {
    const Eigen::Vector3d fromCentre = point - Eigen::Vector3d(plan_.x, plan_.y, 0.0);
    const double x = along_.dot(fromCentre);
    const double y = across_.dot(fromCentre);
    const double halfLength = 0.5 * plan_.length;
    const double halfWidth = 0.5 * plan_.width;
    if (plan_.roof == Roof::flat && face == roofSouth) return {x + halfLength, y + halfWidth};
    // A roof is steeper than the ground plan by the vertical part of its normal.
    const double upwards = normal(face).z();
    switch (face) {
        case south:
            return {x + halfLength, point.z()};
        case north:
            return {halfLength - x, point.z()};
        case west:
            return {halfWidth - y, point.z()};
        case east:
            return {y + halfWidth, point.z()};
        case roofSouth:
            return {x + halfLength, (y + halfWidth) / upwards};
        case roofNorth:
            return {halfLength - x, (halfWidth - y) / upwards};
        case roofWest:
            return {halfWidth - y, (x + halfLength) / upwards};
        default:
            return {y + halfWidth, (halfLength - x) / upwards};
    }
}

std::optional<Chord> House::chord(const Ray& ray) const {
    const double* origin = ray.origin.data();
    const double* direction = ray.direction.data();
    Chord chord{-std::numeric_limits<double>::max(), std::numeric_limits<double>::max(), 0};
    for (std::size_t face = 0; face < planes_.size(); ++face) {
        const Plane& plane = planes_[face];
        const double towards =
            plane.x * direction[0] + plane.y * direction[1] + plane.z * direction[2];
        const double gap =
            plane.offset - (plane.x * origin[0] + plane.y * origin[1] + plane.z * origin[2]);
        if (towards < 0.0 && gap / towards > chord.enter) {
            chord.enter = gap / towards;
            chord.face = static_cast<int>(face);
        } else if (towards > 0.0) {
            chord.leave = std::min(chord.leave, gap / towards);
        } else if (towards == 0.0 && gap < 0.0) {
            return std::nullopt;
        }
        if (chord.enter >= chord.leave) return std::nullopt;
    }
    return chord;
}

Sphere House::bounds() const {
    const double height = plan_.wallHeight + plan_.roofHeight;
    const Eigen::Vector3d halfDiagonal(0.5 * plan_.length, 0.5 * plan_.width, 0.5 * height);
    return {Eigen::Vector3d(plan_.x, plan_.y, 0.5 * height), halfDiagonal.norm()};
}

Eigen::Vector3d Ellipsoid::normal(const Eigen::Vector3d& point) const {
    return (point - centre).cwiseQuotient(radii.cwiseProduct(radii)).normalized();
}

std::optional<Chord> Ellipsoid::chord(const Ray& ray) const {
    // A unit sphere around the origin, once everything is divided by the radii.
    double squared = 0.0;
    double along = 0.0;
    double away = 0.0;
    for (int axis = 0; axis < 3; ++axis) {
        const double origin = (ray.origin[axis] - centre[axis]) / radii[axis];
        const double direction = ray.direction[axis] / radii[axis];
        squared += direction * direction;
        along += origin * direction;
        away += origin * origin;
    }
    const double discriminant = along * along - squared * (away - 1.0);
    if (discriminant <= 0.0) return std::nullopt;
    const double root = std::sqrt(discriminant);
    return Chord{(-along - root) / squared, (-along + root) / squared, 0};
}

Sphere Ellipsoid::bounds() const {
    return {centre, radii.maxCoeff()};
}

}  // namespace marlo::app
