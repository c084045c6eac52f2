// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <vector>

#include "support/detail/kernel_list.h"

namespace marlo::detail {

/// One half of a symmetric filter: weights[0] is the middle, weights[k] belongs to the pixels at
/// distances k on both sides.
class GaussWeights {
public:
    /// A Gaussian of standard deviation `sigma` >= 0 sampled out to ceil(4 sigma); all weights,
    /// both halves, sum to 1. For a side of `length` pixels, mirrored at both ends, longer filters
    /// are folded onto one period of 2 * length pixels: the same sums from fewer pixels.
    GaussWeights(double sigma, int length);

    [[nodiscard]] int radius() const { return static_cast<int>(weights_.size()) - 1; }
    [[nodiscard]] const float* data() const { return weights_.data(); }

private:
    std::vector<float> weights_;
};

/// Where row or column `i` lies in a line of `length` pixels that is mirrored at both ends, edge
/// pixels repeated: ... 1 0 | 0 1 ... n-1 | n-1 n-2 ...
[[nodiscard]] int mirrored(int i, int length);

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
