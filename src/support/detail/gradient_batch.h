// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

#include "support/detail/gradient_source.h"
#include "support/detail/simd.h"

namespace marlo::detail {

/// Gradients that a kernel gathers from pieces of rows and then works on in steps, each a loop over
/// all of them: short steps over many samples leave the processor more to do at once than one long
/// step over the few of a row.
template <int kCapacity>
struct GradientBatch {
    static constexpr std::ptrdiff_t kRoom = kCapacity + 8;  // vectors may reach beyond the end

    std::ptrdiff_t count = 0;
    alignas(32) float magnitude[kRoom];
    alignas(32) float direction[kRoom];

    /// Appends the pixels [begin, end) of row `r`.
    template <int W>
    MARLO_KERNEL_INLINE void append(const GradientSource& gradients, std::ptrdiff_t r,
                                    std::ptrdiff_t begin, std::ptrdiff_t end) {
        using F = FloatV<W>;
        const float* const magnitudes = gradients.magnitude + r * gradients.cols;
        const float* const directions = gradients.orientation + r * gradients.cols;
        std::ptrdiff_t c = begin;
        std::ptrdiff_t to = count;
        for (; c < end && c + W <= gradients.cols; c += W, to += W) {
            store(magnitude + to, load<F>(magnitudes + c));
            store(direction + to, load<F>(directions + c));
        }
        for (; c < end; ++c, ++to) {
            magnitude[to] = magnitudes[c];
            direction[to] = directions[c];
        }
        count += end - begin;
    }
};

}  // namespace marlo::detail
