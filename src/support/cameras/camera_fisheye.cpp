// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/camera_fisheye.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "support/cameras/detail/lens_parameters.h"
#include "support/cameras/detail/polynomial_roots.h"

namespace marlo {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kPi = 3.141592653589793;
// Of the angle, and of 1 radian where that is less: what is missing after it, about its square, is
// below 1e-8 pixels.
constexpr double kLastStep = 3e-7;
constexpr int kMostSteps = 100;  // of which 45 halve what is left, if it comes to that

constexpr std::size_t kNumberOfParameters = 8;
constexpr const char* kNames[kNumberOfParameters] = {"fx", "fy", "cx", "cy",
                                                     "k1", "k2", "k3", "k4"};

std::vector<double> asVector(const FisheyeParameters& p) {
    return {p.fx, p.fy, p.cx, p.cy, p.k1, p.k2, p.k3, p.k4};
}

void check(const double* values) {
    detail::checkLensParameters("fisheye", kNames, values, kNumberOfParameters);
}

double distorted(const FisheyeParameters& p, double theta) {
    const double tt = theta * theta;
    return theta * (1.0 + tt * (p.k1 + tt * (p.k2 + tt * (p.k3 + tt * p.k4))));
}

// Its derivative.
double slopeAt(const FisheyeParameters& p, double theta) {
    const double tt = theta * theta;
    return 1.0 + tt * (3.0 * p.k1 + tt * (5.0 * p.k2 + tt * (7.0 * p.k3 + tt * (9.0 * p.k4))));
}

// A direction as seen from the axis.
struct Polar {
    double radius;  // its distance from the axis
    double theta;   // its angle off the axis
    double cosPhi;  // its direction around the axis; that of the columns if it lies on the axis
    double sinPhi;
};

// False if the direction is not within the field of view.
bool toPolar(const Eigen::Vector3d& direction, double maxAngle, Polar& polar) {
    const double radius = std::hypot(direction.x(), direction.y());
    polar.radius = radius;
    polar.theta = std::atan2(radius, direction.z());
    polar.cosPhi = radius > 0.0 ? direction.x() / radius : 1.0;
    polar.sinPhi = radius > 0.0 ? direction.y() / radius : 0.0;
    const bool isDirection = radius > 0.0 || direction.z() > 0.0;
    return isDirection && direction.allFinite() && polar.theta < maxAngle;
}

}  // namespace

CameraFisheye::CameraFisheye(int width, int height, const FisheyeParameters& parameters)
    : AbstractCamera(width, height, asVector(parameters)) {
    check(this->parameters().data());
    findFold();
}

void CameraFisheye::findFold() {
    const FisheyeParameters p = values();
    const auto squares =
        detail::positiveRoots({1.0, 3.0 * p.k1, 5.0 * p.k2, 7.0 * p.k3, 9.0 * p.k4});
    maxAngle_ = squares.empty() ? kPi : std::min(kPi, std::sqrt(squares.front()));
    largestDistortedAngle_ = distorted(p, maxAngle_);
}

FisheyeParameters CameraFisheye::values() const {
    const std::vector<double>& v = parameters();
    return {v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]};
}

std::unique_ptr<AbstractCamera> CameraFisheye::clone() const {
    return std::make_unique<CameraFisheye>(*this);
}

QString CameraFisheye::modelName() const {
    return QStringLiteral("fisheye");
}

double CameraFisheye::pixelsPerRadian(double angle) const {
    if (!(angle >= 0.0 && angle < maxAngle_)) return kNaN;
    const FisheyeParameters p = values();
    return std::sqrt(p.fx) * std::sqrt(p.fy) * slopeAt(p, angle);
}

bool CameraFisheye::project(const Eigen::Vector3d& direction, Eigen::Vector2d& pixel) const {
    Polar polar{};
    if (toPolar(direction, maxAngle_, polar)) {
        const FisheyeParameters p = values();
        const double d = distorted(p, polar.theta);
        pixel = {p.fx * d * polar.cosPhi + p.cx, p.fy * d * polar.sinPhi + p.cy};
        if (pixel.allFinite()) return true;
    }
    pixel.setConstant(kNaN);
    return false;
}

// The angle that is distorted to `d`, which is below the largest. The slope is positive, so there
// is exactly one.
double CameraFisheye::angleAt(double d) const {
    const FisheyeParameters p = values();
    double low = 0.0;
    double high = maxAngle_;
    double theta = std::min(d, 0.9 * high);
    for (int i = 0; i < kMostSteps; ++i) {
        const double miss = distorted(p, theta) - d;
        (miss < 0.0 ? low : high) = theta;
        double next = theta - miss / slopeAt(p, theta);
        // Newton's method takes a few steps, unless the lens is absurd; halving always ends.
        const bool isSlow = i >= 10 && i % 2 == 0;
        const bool isHalved = isSlow || !(next >= low && next <= high);
        if (isHalved) next = low + 0.5 * (high - low);
        // What is missing after a step is about its square, so it need not be looked at.
        const bool isThere =
            !isHalved && std::fabs(next - theta) <= kLastStep * std::min(1.0, next);
        theta = next;
        if (isThere) break;
    }
    return theta;
}

bool CameraFisheye::unproject(const Eigen::Vector2d& pixel, Eigen::Vector3d& ray) const {
    const FisheyeParameters p = values();
    const double x = (pixel.x() - p.cx) / p.fx;
    const double y = (pixel.y() - p.cy) / p.fy;
    const double d = std::sqrt(x * x + y * y);
    if (!(d < largestDistortedAngle_)) {
        ray.setConstant(kNaN);
        return false;
    }
    const double theta = angleAt(d);
    const double sine = std::sin(theta);
    ray = {d > 0.0 ? sine * (x / d) : 0.0, d > 0.0 ? sine * (y / d) : 0.0, std::cos(theta)};
    return true;
}

bool CameraFisheye::projectionJacobian(const Eigen::Vector3d& direction,
                                       Eigen::Matrix<double, 2, 3>& jacobian) const {
    Polar polar{};
    if (toPolar(direction, maxAngle_, polar)) {
        const FisheyeParameters p = values();
        const double length = std::hypot(polar.radius, direction.z());
        const double c = polar.cosPhi;
        const double s = polar.sinPhi;
        // Away from the axis the point moves by the slope, around it by d over the radius, which on
        // the axis is the same.
        const double away = slopeAt(p, polar.theta) / length;
        const double outwards = away * (direction.z() / length);
        const double forwards = -away * (polar.radius / length);
        const double around =
            polar.radius > 0.0 ? distorted(p, polar.theta) / polar.radius : outwards;
        const double mixed = c * s * (outwards - around);
        jacobian << p.fx * (c * c * outwards + s * s * around), p.fx * mixed, p.fx * c * forwards,
            p.fy * mixed, p.fy * (s * s * outwards + c * c * around), p.fy * s * forwards;
        if (jacobian.allFinite()) return true;
    }
    jacobian.setConstant(kNaN);
    return false;
}

bool CameraFisheye::parameterJacobian(const Eigen::Vector3d& direction, double* jacobian) const {
    Eigen::Map<Eigen::Matrix<double, 2, kNumberOfParameters, Eigen::RowMajor>> derivative(jacobian);
    Eigen::Vector2d pixel;
    Polar polar{};
    if (!project(direction, pixel) || !toPolar(direction, maxAngle_, polar)) {
        derivative.setConstant(kNaN);
        return false;
    }
    const FisheyeParameters p = values();
    const double d = distorted(p, polar.theta);
    const double x = p.fx * polar.cosPhi;
    const double y = p.fy * polar.sinPhi;
    const double tt = polar.theta * polar.theta;
    const double t3 = polar.theta * tt;
    derivative << d * polar.cosPhi, 0.0, 1.0, 0.0,                     //
        x * t3, x * t3 * tt, x * t3 * tt * tt, x * t3 * tt * tt * tt,  //
        0.0, d * polar.sinPhi, 0.0, 1.0,                               //
        y * t3, y * t3 * tt, y * t3 * tt * tt, y * t3 * tt * tt * tt;
    return true;
}

QString CameraFisheye::parameterName(std::size_t index) const {
    return QLatin1String(kNames[index]);
}

void CameraFisheye::setParameters(const double* values) {
    check(values);
    storeParameters(values);
    findFold();
}

double CameraFisheye::maxAngle() const {
    return maxAngle_;
}

Eigen::Matrix3d CameraFisheye::calibrationMatrix() const {
    const FisheyeParameters p = values();
    Eigen::Matrix3d matrix;
    matrix << p.fx, 0.0, p.cx, 0.0, p.fy, p.cy, 0.0, 0.0, 1.0;
    return matrix;
}

Eigen::Vector2d CameraFisheye::pixelDifference(const Eigen::Vector2d& a,
                                               const Eigen::Vector2d& b) const {
    return a - b;
}

bool CameraFisheye::equal(const AbstractCamera& other) const {
    return hasSameState(other);
}

void CameraFisheye::readBin(BinReader& reader) {
    readState(reader);
}

void CameraFisheye::writeBin(BinWriter& writer) const {
    writeState(writer);
}

bool CameraFisheye::unprojectionJacobian(const Eigen::Vector2d& pixel,
                                         Eigen::Matrix<double, 3, 2>& jacobian) const {
    return invertProjectionJacobian(pixel, jacobian);
}

}  // namespace marlo
