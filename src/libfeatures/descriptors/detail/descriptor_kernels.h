// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

#include "support/detail/gradient_source.h"
#include "support/detail/kernel_list.h"

namespace marlo::detail {

constexpr int kCells = 4;       // of a descriptor, along each side
constexpr int kDirections = 8;  // of a cell
constexpr int kDescriptorSize = kCells * kCells * kDirections;
constexpr float kTwoPi = 6.2831855F;

/// The pixels that a descriptor is made from, and where each of them falls. A pixel at (i, j) rows
/// and columns from the centre lies `sinScaled * j + cosScaled * i + rowShift` cells below the
/// middle of the descriptor and `cosScaled * j - sinScaled * i + colShift` cells to its right.
struct DescriptorWindow {
    std::ptrdiff_t centreRow = 0;
    std::ptrdiff_t centreCol = 0;
    /// The rows and columns of the window that lie in the image, from the centre, ends included.
    std::ptrdiff_t firstRow = 0;
    std::ptrdiff_t lastRow = -1;
    std::ptrdiff_t firstCol = 0;
    std::ptrdiff_t lastCol = -1;
    float cosScaled = 0.0F;
    float sinScaled = 0.0F;
    float rowShift = 0.0F;
    float colShift = 0.0F;
    float angle = 0.0F;
    /// How often a difference of directions may have to be brought nearer to [0, 2 pi], at most.
    int turnsDown = 0;
    int turnsUp = 0;
};

/// Fills the 128 values of a descriptor, (rowCell * 4 + colCell) * 8 + direction, and normalises
/// them. Every value is folded from sums of every second sample, in the order of the pixels.
using DescriptorFunction = void(const GradientSource& gradients, const DescriptorWindow& window,
                                float* values);
KernelList<DescriptorFunction> descriptorKernels();

}  // namespace marlo::detail
