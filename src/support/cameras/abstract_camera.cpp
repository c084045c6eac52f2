// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/abstract_camera.h"

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <typeinfo>
#include <utility>

namespace marlo {
namespace {

void checkImageSize(int width, int height) {
    if (width < 1 || height < 1) {
        throw std::invalid_argument("Invalid camera: image width and height must be positive");
    }
}

}  // namespace

AbstractCamera::AbstractCamera(int width, int height, std::vector<double> parameters)
    : width_(width), height_(height), parameters_(std::move(parameters)) {
    checkImageSize(width, height);
}

void AbstractCamera::print(std::ostream& out) const {
    out << modelName().toStdString() << ' ' << width_ << " x " << height_;
    for (std::size_t i = 0; i < parameters_.size(); ++i) {
        out << ", " << parameterName(i).toStdString() << " = " << parameters_[i];
    }
    if (!name_.isEmpty()) out << ", name \"" << name_.toStdString() << '"';
    if (!serialNumber_.isEmpty()) {
        out << ", serial number \"" << serialNumber_.toStdString() << '"';
    }
}

void AbstractCamera::storeParameters(const double* values) {
    parameters_.assign(values, values + parameters_.size());
}

bool AbstractCamera::hasSameState(const AbstractCamera& other) const {
    return typeid(*this) == typeid(other) && width_ == other.width_ && height_ == other.height_ &&
           parameters_ == other.parameters_;
}

void AbstractCamera::writeState(BinWriter& writer) const {
    writer.write(static_cast<std::int32_t>(width_));
    writer.write(static_cast<std::int32_t>(height_));
    writer.write(static_cast<std::uint32_t>(parameters_.size()));
    writer.writeBytes(parameters_.data(), parameters_.size() * sizeof(double));
}

void AbstractCamera::readState(BinReader& reader) {
    const auto width = reader.read<std::int32_t>();
    const auto height = reader.read<std::int32_t>();
    if (reader.read<std::uint32_t>() != parameters_.size()) {
        throw std::runtime_error("The camera read is of another model");
    }
    std::vector<double> values(parameters_.size());
    reader.readBytes(values.data(), values.size() * sizeof(double));
    checkImageSize(width, height);
    setParameters(values.data());
    width_ = width;
    height_ = height;
}

bool AbstractCamera::invertProjectionJacobian(const Eigen::Vector2d& pixel,
                                              Eigen::Matrix<double, 3, 2>& jacobian) const {
    Eigen::Vector3d ray;
    Eigen::Matrix<double, 2, 3> forward;
    if (unproject(pixel, ray) && projectionJacobian(ray, forward)) {
        // The length of a direction does not move its pixel, so the rows of `forward` span the
        // plane at right angles to the ray, in which a ray of length 1 moves: the pseudo-inverse.
        const double aa = forward.row(0).squaredNorm();
        const double ab = forward.row(0).dot(forward.row(1));
        const double bb = forward.row(1).squaredNorm();
        const double determinant = aa * bb - ab * ab;
        jacobian.col(0) = (bb * forward.row(0) - ab * forward.row(1)) / determinant;
        jacobian.col(1) = (aa * forward.row(1) - ab * forward.row(0)) / determinant;
        if (jacobian.allFinite()) return true;
    }
    jacobian.setConstant(std::numeric_limits<double>::quiet_NaN());
    return false;
}

}  // namespace marlo
