// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

#include "support/detail/kernel_list.h"

namespace marlo::detail {

/// A row of an image and its neighbours; in the first and last row of an image the neighbour that
/// is not there is the row itself.
struct RowNeighbours {
    const float* above = nullptr;
    const float* row = nullptr;
    const float* below = nullptr;
    std::ptrdiff_t cols = 0;
};

/// Writes the length and direction of the gradients of a row, `cols` values each; see
/// gradOriImages().
using GradientFunction = void(const RowNeighbours& rows, float* magnitude, float* orientation);
KernelList<GradientFunction> gradientKernels();

}  // namespace marlo::detail
