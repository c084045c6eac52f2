// SPDX-License-Identifier: BSD-3-Clause
#include "utilities/camera_checks.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace marlo::test {
namespace {

using Eigen::Matrix;
using Eigen::Vector2d;
using Eigen::Vector3d;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

double roundTrip(const AbstractCamera& camera, const Vector2d& pixel) {
    Vector3d ray;
    Vector2d back;
    if (!camera.unproject(pixel, ray) || !camera.project(ray, back)) return kInfinity;
    if (std::fabs(ray.norm() - 1.0) > 1e-15) return kInfinity;
    return camera.pixelDifference(back, pixel).norm();
}

// The derivative of `function(t)` at 0: central differences of two widths, extrapolated.
template <typename Function>
auto derivative(const Function& function, double width) {
    const auto difference = [&](double h) {
        return ((function(h) - function(-h)) / (2.0 * h)).eval();
    };
    return ((4.0 * difference(0.5 * width) - difference(width)) / 3.0).eval();
}

template <typename Derivative, typename Differences>
double relativeError(const Derivative& jacobian, const Differences& differences) {
    const double error = (jacobian - differences).cwiseAbs().maxCoeff();
    return error <= kInfinity ? error / differences.cwiseAbs().maxCoeff() : kInfinity;
}

double directionError(const AbstractCamera& camera, const Vector3d& direction) {
    Matrix<double, 2, 3> jacobian;
    if (!camera.projectionJacobian(direction, jacobian)) return kInfinity;
    Vector2d middle;
    camera.project(direction, middle);
    Matrix<double, 2, 3> differences;
    for (int i = 0; i < 3; ++i) {
        const auto moved = [&](double step) -> Vector2d {
            Vector2d pixel;
            camera.project(direction + step * Vector3d::Unit(i), pixel);
            return camera.pixelDifference(pixel, middle);
        };
        differences.col(i) = derivative(moved, 1e-3 * direction.norm());
    }
    return relativeError(jacobian, differences);
}

double parameterError(const AbstractCamera& camera, const Vector3d& direction) {
    const std::size_t count = camera.parameters().size();
    if (count == 0) return camera.parameterJacobian(direction, nullptr) ? 0.0 : kInfinity;
    const auto columns = static_cast<Eigen::Index>(count);
    Matrix<double, 2, Eigen::Dynamic, Eigen::RowMajor> jacobian(2, columns);
    if (!camera.parameterJacobian(direction, jacobian.data())) return kInfinity;
    Matrix<double, 2, Eigen::Dynamic> differences(2, columns);
    for (std::size_t i = 0; i < count; ++i) {
        const auto moved = [&](double step) -> Vector2d {
            const auto other = camera.clone();
            std::vector<double> parameters = camera.parameters();
            parameters[i] += step;
            other->setParameters(parameters.data());
            Vector2d pixel;
            other->project(direction, pixel);
            return pixel;
        };
        differences.col(static_cast<Eigen::Index>(i)) = derivative(moved, 1e-4);
    }
    return relativeError(jacobian, differences);
}

double rayError(const AbstractCamera& camera, const Vector3d& direction) {
    Vector2d pixel;
    Matrix<double, 3, 2> jacobian;
    if (!camera.project(direction, pixel)) return kInfinity;
    if (!camera.unprojectionJacobian(pixel, jacobian)) return kInfinity;
    Matrix<double, 3, 2> differences;
    for (int i = 0; i < 2; ++i) {
        const auto moved = [&](double step) -> Vector3d {
            Vector3d ray;
            camera.unproject(pixel + step * Vector2d::Unit(i), ray);
            return ray;
        };
        differences.col(i) = derivative(moved, 1e-3 * camera.calibrationMatrix()(0, 0));
    }
    return relativeError(jacobian, differences);
}

}  // namespace

double largestRoundTrip(const AbstractCamera& camera, int pixelsApart, int firstRow) {
    double largest = 0.0;
    for (int y = firstRow; y < camera.height() + pixelsApart; y += pixelsApart) {
        for (int x = 0; x < camera.width() + pixelsApart; x += pixelsApart) {
            const Vector2d pixel(std::min(x, camera.width() - 1), std::min(y, camera.height() - 1));
            largest = std::max(largest, roundTrip(camera, pixel));
        }
    }
    return largest;
}

double largestJacobianError(const AbstractCamera& camera, const Vector3d& direction) {
    return std::max({directionError(camera, direction), parameterError(camera, direction),
                     rayError(camera, direction)});
}

Vector3d randomDirection(std::mt19937& generator, double maxAngle) {
    const double z = randomBetween(generator, std::cos(maxAngle), 1.0);
    const double phi = randomBetween(generator, 0.0, 6.283185307179586);
    const double radius = std::sqrt(1.0 - z * z);
    return {radius * std::cos(phi), radius * std::sin(phi), z};
}

double randomBetween(std::mt19937& generator, double low, double high) {
    return low + (high - low) * (static_cast<double>(generator()) / 4294967296.0);
}

}  // namespace marlo::test
