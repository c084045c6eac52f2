// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <vector>

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

}  // namespace marlo::detail
