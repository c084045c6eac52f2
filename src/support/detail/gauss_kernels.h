// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

#include "support/detail/gauss_weights.h"
#include "support/detail/kernel_list.h"

namespace marlo::detail {

/// Rows to blur at a time: enough to share most of their input, few enough to stay in cache.
constexpr int kBlurBlockRows = 8;

/// A block of rows to blur.
struct BlurBlock {
    /// rows + 2 * rowWeights.radius() input rows, from the first row's topmost neighbour on.
    const float* const* in = nullptr;
    /// `rows` output rows. They may be input rows: all input is read before the first is written.
    float* const* out = nullptr;
    int rows = 0;
    int cols = 0;
    const GaussWeights* rowWeights = nullptr;  ///< across rows, applied first
    const GaussWeights* colWeights = nullptr;  ///< along each row
    /// rows x (cols + 2 * colWeights.radius()) floats.
    float* scratch = nullptr;
};

/// Floats of scratch that a block of `rows` needs.
[[nodiscard]] std::size_t blurScratchSize(int rows, int cols, const GaussWeights& colWeights);

using BlurFunction = void(const BlurBlock&);
KernelList<BlurFunction> blurKernels();

}  // namespace marlo::detail
