// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/camera_perspective.h"

#include <cmath>
#include <limits>

#include "support/cameras/detail/brown_conrady.h"
#include "support/cameras/detail/lens_parameters.h"

namespace marlo {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kHalfPi = 1.5707963267948966;

constexpr std::size_t kNumberOfParameters = 9;
constexpr const char* kNames[kNumberOfParameters] = {"fx", "fy", "cx", "cy", "k1",
                                                     "k2", "p1", "p2", "k3"};

std::vector<double> asVector(const BrownConradyParameters& p) {
    return {p.fx, p.fy, p.cx, p.cy, p.k1, p.k2, p.p1, p.p2, p.k3};
}

void check(const double* values) {
    detail::checkLensParameters("perspective", kNames, values, kNumberOfParameters);
}

// Where a direction meets the plane z = 1. False if that is not within the disc.
bool intersect(const Eigen::Vector3d& direction, double foldRadius, double& x, double& y) {
    x = direction.x() / direction.z();
    y = direction.y() / direction.z();
    return direction.z() > 0.0 && x * x + y * y < foldRadius * foldRadius;
}

}  // namespace

CameraPerspective::CameraPerspective(int width, int height,
                                     const BrownConradyParameters& parameters)
    : AbstractCamera(width, height, asVector(parameters)) {
    check(this->parameters().data());
    findFold();
}

void CameraPerspective::findFold() {
    foldRadius_ = detail::foldRadius(values());
    largestDistortedRadius_ = detail::largestDistortedRadius(values(), foldRadius_);
}

BrownConradyParameters CameraPerspective::values() const {
    const std::vector<double>& v = parameters();
    return {v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]};
}

std::unique_ptr<AbstractCamera> CameraPerspective::clone() const {
    return std::make_unique<CameraPerspective>(*this);
}

QString CameraPerspective::modelName() const {
    return QStringLiteral("perspective");
}

double CameraPerspective::pixelsPerRadian(double angle) const {
    if (!(angle >= 0.0 && angle < maxAngle())) return kNaN;
    const BrownConradyParameters p = values();
    const double r = std::tan(angle);
    const double rr = r * r;
    const double slope = 1.0 + rr * (3.0 * p.k1 + rr * (5.0 * p.k2 + rr * 7.0 * p.k3));
    return std::sqrt(p.fx) * std::sqrt(p.fy) * slope * (1.0 + rr);
}

bool CameraPerspective::project(const Eigen::Vector3d& direction, Eigen::Vector2d& pixel) const {
    double x = 0.0;
    double y = 0.0;
    if (intersect(direction, foldRadius_, x, y)) {
        const BrownConradyParameters p = values();
        const detail::DistortedPoint point = detail::distort(p, x, y);
        pixel = {p.fx * point.x + p.cx, p.fy * point.y + p.cy};
        if (pixel.allFinite()) return true;
    }
    pixel.setConstant(kNaN);
    return false;
}

bool CameraPerspective::unproject(const Eigen::Vector2d& pixel, Eigen::Vector3d& ray) const {
    const BrownConradyParameters p = values();
    double x = (pixel.x() - p.cx) / p.fx;
    double y = (pixel.y() - p.cy) / p.fy;
    if (!detail::undistort(p, foldRadius_, largestDistortedRadius_, x, y)) {
        ray.setConstant(kNaN);
        return false;
    }
    const double length = std::sqrt(x * x + y * y + 1.0);
    ray = {x / length, y / length, 1.0 / length};
    return true;
}

bool CameraPerspective::projectionJacobian(const Eigen::Vector3d& direction,
                                           Eigen::Matrix<double, 2, 3>& jacobian) const {
    double x = 0.0;
    double y = 0.0;
    if (intersect(direction, foldRadius_, x, y)) {
        const BrownConradyParameters p = values();
        const detail::DistortedPoint d = detail::distort(p, x, y);
        jacobian << p.fx * d.dxdx, p.fx * d.dxdy, -p.fx * (d.dxdx * x + d.dxdy * y),  //
            p.fy * d.dxdy, p.fy * d.dydy, -p.fy * (d.dxdy * x + d.dydy * y);
        jacobian /= direction.z();
        if (jacobian.allFinite()) return true;
    }
    jacobian.setConstant(kNaN);
    return false;
}

bool CameraPerspective::parameterJacobian(const Eigen::Vector3d& direction,
                                          double* jacobian) const {
    Eigen::Map<Eigen::Matrix<double, 2, kNumberOfParameters, Eigen::RowMajor>> derivative(jacobian);
    Eigen::Vector2d pixel;
    double x = 0.0;
    double y = 0.0;
    if (!project(direction, pixel) || !intersect(direction, foldRadius_, x, y)) {
        derivative.setConstant(kNaN);
        return false;
    }
    const BrownConradyParameters p = values();
    const detail::DistortedPoint d = detail::distort(p, x, y);
    const double rr = x * x + y * y;
    derivative << d.x, 0.0, 1.0, 0.0,                   //
        p.fx * x * rr, p.fx * x * rr * rr,              // k1, k2
        p.fx * 2.0 * x * y, p.fx * (rr + 2.0 * x * x),  // p1, p2
        p.fx * x * rr * rr * rr,                        // k3
        0.0, d.y, 0.0, 1.0,                             //
        p.fy * y * rr, p.fy * y * rr * rr,              //
        p.fy * (rr + 2.0 * y * y), p.fy * 2.0 * x * y,  //
        p.fy * y * rr * rr * rr;
    return true;
}

QString CameraPerspective::parameterName(std::size_t index) const {
    return QLatin1String(kNames[index]);
}

void CameraPerspective::setParameters(const double* values) {
    check(values);
    storeParameters(values);
    findFold();
}

double CameraPerspective::maxAngle() const {
    return std::isinf(foldRadius_) ? kHalfPi : std::atan(foldRadius_);
}

Eigen::Matrix3d CameraPerspective::calibrationMatrix() const {
    const BrownConradyParameters p = values();
    Eigen::Matrix3d matrix;
    matrix << p.fx, 0.0, p.cx, 0.0, p.fy, p.cy, 0.0, 0.0, 1.0;
    return matrix;
}

Eigen::Vector2d CameraPerspective::pixelDifference(const Eigen::Vector2d& a,
                                                   const Eigen::Vector2d& b) const {
    return a - b;
}

bool CameraPerspective::equal(const AbstractCamera& other) const {
    return hasSameState(other);
}

void CameraPerspective::readBin(BinReader& reader) {
    readState(reader);
}

void CameraPerspective::writeBin(BinWriter& writer) const {
    writeState(writer);
}

bool CameraPerspective::unprojectionJacobian(const Eigen::Vector2d& pixel,
                                             Eigen::Matrix<double, 3, 2>& jacobian) const {
    return invertProjectionJacobian(pixel, jacobian);
}

}  // namespace marlo
