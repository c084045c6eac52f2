// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "support/image.h"

namespace marlo::detail {

/// The gradients of one level of a scale space, as kernels read them. Refers to images of its
/// maker.
struct GradientSource {
    /// @throws std::invalid_argument if the images differ in size.
    GradientSource(const FloatImage& magnitudes, const FloatImage& orientations)
        : magnitude(magnitudes.data()),
          orientation(orientations.data()),
          rows(magnitudes.rows()),
          cols(magnitudes.cols()) {
        if (magnitudes.rows() != orientations.rows() || magnitudes.cols() != orientations.cols()) {
            throw std::invalid_argument("Gradient magnitudes and orientations differ in size.");
        }
    }

    /// Asks for some rows and columns, ends included, ahead of their use: windows are too small for
    /// the processor to guess what comes next. All of them lie in the image; there may be none.
    void prefetch(Eigen::Index firstRow, Eigen::Index lastRow, Eigen::Index firstCol,
                  Eigen::Index lastCol) const {
        constexpr Eigen::Index kLine = 64 / sizeof(float);
        if (firstCol > lastCol) return;
        for (Eigen::Index r = firstRow; r <= lastRow; ++r) {
            for (Eigen::Index c = firstCol; c < lastCol + kLine; c += kLine) {
                const Eigen::Index pixel = r * cols + std::min(c, lastCol);
                __builtin_prefetch(magnitude + pixel);
                __builtin_prefetch(orientation + pixel);
            }
        }
    }

    const float* magnitude;
    const float* orientation;
    Eigen::Index rows;
    Eigen::Index cols;
};

/// Sort windows by this to find the pixels of one still in cache when the next is read: level by
/// level, in bands of rows, along the columns. Below 2^28 rows and columns; beyond, the order is
/// only less good.
inline std::uint64_t readingOrder(std::uint64_t level, std::uint64_t row, std::uint64_t col) {
    constexpr std::uint64_t kRowsOfBand = 128;
    return level << 56 | row / kRowsOfBand << 28 | col;
}

}  // namespace marlo::detail
