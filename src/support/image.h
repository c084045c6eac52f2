// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>

namespace marlo {

/// A single-channel image: height x width, row-major, without padding between rows. Pixel (x, y)
/// is `image(y, x)`; pixel centres lie at integer coordinates.
template <typename Pixel>
using Matrix = Eigen::Matrix<Pixel, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

using ByteImage = Matrix<unsigned char>;
using FloatImage = Matrix<float>;

}  // namespace marlo
