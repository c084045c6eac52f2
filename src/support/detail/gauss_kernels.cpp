// SPDX-License-Identifier: BSD-3-Clause
#include "support/detail/gauss_kernels.h"

#include <cstddef>

#include "support/detail/simd.h"

namespace marlo::detail {

std::size_t blurScratchSize(int rows, int cols, const GaussWeights& colWeights) {
    return static_cast<std::size_t>(rows) *
           (static_cast<std::size_t>(cols) + 2 * static_cast<std::size_t>(colWeights.radius()));
}

namespace {

// Columns that are filtered across rows in one go: the input rows of a strip stay in the
// first-level cache while the rows of the block are made.
constexpr std::ptrdiff_t kStrip = 128;

// The sum that defines a blurred pixel, for N x W neighbouring pixels: the middle, then the pairs
// outwards, each pair added before it is weighted.
template <int W, int N, typename Minus, typename Plus>
MARLO_KERNEL_INLINE void weightedSum(const float* middle, Minus&& minus, Plus&& plus,
                                     const float* weights, int radius, float* out) {
    using F = FloatV<W>;
    F sum[N];
    for (int n = 0; n < N; ++n) sum[n] = load<F>(middle + n * W) * weights[0];
    for (int k = 1; k <= radius; ++k) {
        const float* low = minus(k);
        const float* high = plus(k);
        const float weight = weights[k];
        for (int n = 0; n < N; ++n) {
            sum[n] = sum[n] + (load<F>(low + n * W) + load<F>(high + n * W)) * weight;
        }
    }
    for (int n = 0; n < N; ++n) store(out + n * W, sum[n]);
}

// The same for two rows, one below the other: each input row is loaded once for both.
template <int W, int N>
MARLO_KERNEL_INLINE void weightedSums(const float* const* rows, std::ptrdiff_t c,
                                      const float* weights, int radius, float* upper,
                                      float* lower) {
    using F = FloatV<W>;
    F upperSum[N];
    F lowerSum[N];
    F above[N];  // the rows at distance k - 1 above the upper row and below the lower one
    F below[N];
    for (int n = 0; n < N; ++n) {
        above[n] = load<F>(rows[radius] + c + n * W);
        below[n] = load<F>(rows[radius + 1] + c + n * W);
        upperSum[n] = above[n] * weights[0];
        lowerSum[n] = below[n] * weights[0];
    }
    for (int k = 1; k <= radius; ++k) {
        const float* nextAbove = rows[radius - k] + c;
        const float* nextBelow = rows[radius + 1 + k] + c;
        const float weight = weights[k];
        for (int n = 0; n < N; ++n) {
            const F newAbove = load<F>(nextAbove + n * W);
            const F newBelow = load<F>(nextBelow + n * W);
            upperSum[n] = upperSum[n] + (newAbove + below[n]) * weight;
            lowerSum[n] = lowerSum[n] + (above[n] + newBelow) * weight;
            above[n] = newAbove;
            below[n] = newBelow;
        }
    }
    for (int n = 0; n < N; ++n) {
        store(upper + n * W, upperSum[n]);
        store(lower + n * W, lowerSum[n]);
    }
}

template <int W>
MARLO_KERNEL_INLINE void acrossRows(const float* const* rows, int radius, const float* weights,
                                    std::ptrdiff_t begin, std::ptrdiff_t end, float* out) {
    std::ptrdiff_t c = begin;
    const auto minus = [&](int k) { return rows[radius - k] + c; };
    const auto plus = [&](int k) { return rows[radius + k] + c; };
    for (; c + 4 * W <= end; c += 4 * W) {
        weightedSum<W, 4>(rows[radius] + c, minus, plus, weights, radius, out + c);
    }
    for (; c < end; ++c) {
        weightedSum<1, 1>(rows[radius] + c, minus, plus, weights, radius, out + c);
    }
}

template <int W>
MARLO_KERNEL_INLINE void acrossTwoRows(const float* const* rows, int radius, const float* weights,
                                       std::ptrdiff_t begin, std::ptrdiff_t end, float* upper,
                                       float* lower) {
    std::ptrdiff_t c = begin;
    for (; c + 2 * W <= end; c += 2 * W) {
        weightedSums<W, 2>(rows, c, weights, radius, upper + c, lower + c);
    }
    for (; c < end; ++c) weightedSums<1, 1>(rows, c, weights, radius, upper + c, lower + c);
}

template <int W>
MARLO_KERNEL_INLINE void alongRow(const float* in, int radius, const float* weights,
                                  std::ptrdiff_t cols, float* out) {
    std::ptrdiff_t c = 0;
    const auto minus = [&](int k) { return in + c - k; };
    const auto plus = [&](int k) { return in + c + k; };
    for (; c + 6 * W <= cols; c += 6 * W) {
        weightedSum<W, 6>(in + c, minus, plus, weights, radius, out + c);
    }
    for (; c + W <= cols; c += W) {
        weightedSum<W, 1>(in + c, minus, plus, weights, radius, out + c);
    }
    for (; c < cols; ++c) weightedSum<1, 1>(in + c, minus, plus, weights, radius, out + c);
}

template <int W>
MARLO_KERNEL_INLINE void blurBody(const BlurBlock& block) {
    const std::ptrdiff_t cols = block.cols;
    const std::ptrdiff_t pad = block.colWeights->radius();
    const std::ptrdiff_t stride = cols + 2 * pad;
    for (std::ptrdiff_t begin = 0; begin < cols; begin += kStrip) {
        const std::ptrdiff_t end = begin + kStrip < cols ? begin + kStrip : cols;
        const int radius = block.rowWeights->radius();
        const float* const weights = block.rowWeights->data();
        int r = 0;
        for (; r + 2 <= block.rows; r += 2) {
            float* const upper = block.scratch + r * stride + pad;
            acrossTwoRows<W>(block.in + r, radius, weights, begin, end, upper, upper + stride);
        }
        if (r < block.rows) {
            acrossRows<W>(block.in + r, radius, weights, begin, end,
                          block.scratch + r * stride + pad);
        }
    }
    for (int r = 0; r < block.rows; ++r) {
        float* row = block.scratch + r * stride + pad;
        for (std::ptrdiff_t k = 1; k <= pad; ++k) {
            // Radii never exceed the length of a row, so one reflection reaches them.
            row[-k] = row[k - 1];
            row[cols - 1 + k] = row[cols - k];
        }
        alongRow<W>(row, static_cast<int>(pad), block.colWeights->data(), cols, block.out[r]);
    }
}

void portable(const BlurBlock& block) {
    blurBody<4>(block);
}

#if defined(__x86_64__)
MARLO_KERNEL_TARGET("avx2") void avx2(const BlurBlock& block) {
    blurBody<8>(block);
}
#endif

constexpr Kernel<BlurFunction> kKernels[] = {
#if defined(__x86_64__)
    {"avx2", hasAvx2, avx2},
#endif
    {"portable", runsEverywhere, portable},
};

}  // namespace

KernelList<BlurFunction> blurKernels() {
    return kKernels;
}

}  // namespace marlo::detail
