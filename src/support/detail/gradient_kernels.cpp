// SPDX-License-Identifier: BSD-3-Clause
#include "support/detail/gradient_kernels.h"

#include "support/detail/simd.h"

namespace marlo::detail {
namespace {

template <int W>
MARLO_KERNEL_INLINE void storeGradient(FloatV<W> dx, FloatV<W> dy, float* magnitude,
                                       float* orientation) {
    store(magnitude, squareRoot<W>(dx * dx + dy * dy));
    store(orientation, arcTangent<W>(dy, dx));
}

template <int W>
MARLO_KERNEL_INLINE void gradientBody(const RowNeighbours& rows, float* magnitude,
                                      float* orientation) {
    using F = FloatV<W>;
    // Halved central differences inside the image, one-sided differences at its borders.
    const float vertical = rows.above != rows.row && rows.below != rows.row ? 0.5F : 1.0F;
    std::ptrdiff_t c = 0;
    const auto anywhere = [&] {
        const std::ptrdiff_t left = c > 0 ? c - 1 : c;
        const std::ptrdiff_t right = c < rows.cols - 1 ? c + 1 : c;
        const float horizontal = c > 0 && c < rows.cols - 1 ? 0.5F : 1.0F;
        storeGradient<1>((rows.row[right] - rows.row[left]) * horizontal,
                         (rows.above[c] - rows.below[c]) * vertical, magnitude + c,
                         orientation + c);
        ++c;
    };
    if (rows.cols > 0) anywhere();
    for (; c + W <= rows.cols - 1; c += W) {
        const F dx = (load<F>(rows.row + c + 1) - load<F>(rows.row + c - 1)) * 0.5F;
        const F dy = (load<F>(rows.above + c) - load<F>(rows.below + c)) * vertical;
        storeGradient<W>(dx, dy, magnitude + c, orientation + c);
    }
    while (c < rows.cols) anywhere();
}

void portable(const RowNeighbours& rows, float* magnitude, float* orientation) {
    gradientBody<4>(rows, magnitude, orientation);
}

#if defined(__x86_64__)
MARLO_KERNEL_TARGET("avx2")
void avx2(const RowNeighbours& rows, float* magnitude, float* orientation) {
    gradientBody<8>(rows, magnitude, orientation);
}
#endif

constexpr Kernel<GradientFunction> kKernels[] = {
#if defined(__x86_64__)
    {"avx2", hasAvx2, avx2},
#endif
    {"portable", runsEverywhere, portable},
};

}  // namespace

KernelList<GradientFunction> gradientKernels() {
    return kKernels;
}

}  // namespace marlo::detail
