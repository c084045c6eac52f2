// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/camera_spherical.h"

#include <cmath>
#include <limits>

namespace marlo {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kPi = 3.141592653589793;

// Sine and cosine of `turns` full turns, from -1/2 to 1/2. Exact at quarter turns, where those of
// angles in radians are not: the poles, the equator and the seam are such places.
double sineOfTurns(double turns) {
    const double nearest = std::fabs(turns) <= 0.25 ? turns : std::copysign(0.5, turns) - turns;
    return std::sin(2.0 * kPi * nearest);
}

double cosineOfTurns(double turns) {
    return sineOfTurns(0.25 - std::fabs(turns));
}

bool isDirection(const Eigen::Vector3d& v) {
    return v.allFinite() && (v.array() != 0.0).any();
}

bool isPole(const Eigen::Vector3d& direction) {
    return direction.x() == 0.0 && direction.z() == 0.0;
}

}  // namespace

CameraSpherical::CameraSpherical(int width, int height) : AbstractCamera(width, height, {}) {}

std::unique_ptr<AbstractCamera> CameraSpherical::clone() const {
    return std::make_unique<CameraSpherical>(*this);
}

QString CameraSpherical::modelName() const {
    return QStringLiteral("spherical");
}

double CameraSpherical::pixelsPerRadian(double angle) const {
    if (!(angle >= 0.0 && angle <= kPi)) return kNaN;
    return std::sqrt(0.5 * width() * height()) / kPi;
}

bool CameraSpherical::project(const Eigen::Vector3d& direction, Eigen::Vector2d& pixel) const {
    if (!isDirection(direction)) {
        pixel.setConstant(kNaN);
        return false;
    }
    const double longitude = isPole(direction) ? 0.0 : std::atan2(direction.x(), direction.z());
    const double latitude = std::atan2(direction.y(), std::hypot(direction.x(), direction.z()));
    // Divided by pi first: then the poles and the seam come out exactly.
    const double column = width() * (longitude / (2.0 * kPi) + 0.5);
    pixel = {column < width() ? column : 0.0, height() * (latitude / kPi + 0.5)};
    return true;
}

bool CameraSpherical::unproject(const Eigen::Vector2d& pixel, Eigen::Vector3d& ray) const {
    if (!std::isfinite(pixel.x()) || !(pixel.y() >= 0.0 && pixel.y() <= height())) {
        ray.setConstant(kNaN);
        return false;
    }
    const double fromMiddle = std::remainder(pixel.x() - 0.5 * width(), width());
    const double longitude = fromMiddle / width();               // in turns
    const double latitude = 0.5 * (pixel.y() / height() - 0.5);  // in turns
    const double horizontal = cosineOfTurns(latitude);
    ray = {horizontal * sineOfTurns(longitude), sineOfTurns(latitude),
           horizontal * cosineOfTurns(longitude)};
    return true;
}

bool CameraSpherical::projectionJacobian(const Eigen::Vector3d& direction,
                                         Eigen::Matrix<double, 2, 3>& jacobian) const {
    if (isDirection(direction) && !isPole(direction)) {
        const double columns = width() / (2.0 * kPi);  // a radian
        const double rows = height() / kPi;
        const double horizontal = std::hypot(direction.x(), direction.z());
        const double length = std::hypot(horizontal, direction.y());
        const double sine = direction.x() / horizontal;  // of the longitude
        const double cosine = direction.z() / horizontal;
        const double down = direction.y() / length;
        const double level = horizontal / length;
        jacobian << columns * cosine / horizontal, 0.0, -columns * sine / horizontal,  //
            -rows * sine * down / length, rows * level / length, -rows * cosine * down / length;
        if (jacobian.allFinite()) return true;
    }
    jacobian.setConstant(kNaN);
    return false;
}

bool CameraSpherical::parameterJacobian(const Eigen::Vector3d& direction,
                                        double* /*jacobian*/) const {
    return isDirection(direction);
}

QString CameraSpherical::parameterName(std::size_t /*index*/) const {
    return {};
}

void CameraSpherical::setParameters(const double* /*values*/) {}

double CameraSpherical::maxAngle() const {
    return kInfinity;
}

Eigen::Matrix3d CameraSpherical::calibrationMatrix() const {
    Eigen::Matrix3d matrix;
    matrix << width() / (2.0 * kPi), 0.0, 0.5 * width(), 0.0, height() / kPi, 0.5 * height(), 0.0,
        0.0, 1.0;
    return matrix;
}

Eigen::Vector2d CameraSpherical::pixelDifference(const Eigen::Vector2d& a,
                                                 const Eigen::Vector2d& b) const {
    return {std::remainder(a.x() - b.x(), width()), a.y() - b.y()};
}

bool CameraSpherical::equal(const AbstractCamera& other) const {
    return hasSameState(other);
}

void CameraSpherical::readBin(BinReader& reader) {
    readState(reader);
}

void CameraSpherical::writeBin(BinWriter& writer) const {
    writeState(writer);
}

bool CameraSpherical::unprojectionJacobian(const Eigen::Vector2d& pixel,
                                           Eigen::Matrix<double, 3, 2>& jacobian) const {
    return invertProjectionJacobian(pixel, jacobian);
}

}  // namespace marlo
