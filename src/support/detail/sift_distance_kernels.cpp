// SPDX-License-Identifier: BSD-3-Clause
#include "support/detail/sift_distance_kernels.h"

#include "support/detail/simd.h"

namespace marlo::detail {
namespace {

constexpr int kSums = 16;

template <int W>
MARLO_KERNEL_INLINE float distanceBody(const float* row1, const float* row2, std::ptrdiff_t count) {
    using F = FloatV<W>;
    constexpr int kVectors = kSums / W;
    F sums[kVectors] = {};
    std::ptrdiff_t at = 0;
    for (; at + kSums <= count; at += kSums) {
        for (int v = 0; v < kVectors; ++v) {
            const F difference =
                vectorAt<F>(row1 + at + v * W).value - vectorAt<F>(row2 + at + v * W).value;
            sums[v] += difference * difference;
        }
    }
    float folded[kSums];
    for (int v = 0; v < kVectors; ++v) vectorAt<F>(folded + v * W).value = sums[v];
    for (int i = 0; at < count; ++i, ++at) {
        const float difference =
            vectorAt<float>(row1 + at).value - vectorAt<float>(row2 + at).value;
        folded[i] += difference * difference;
    }
    for (int half = kSums / 2; half > 0; half /= 2) {
        for (int i = 0; i < half; ++i) folded[i] += folded[i + half];
    }
    return __builtin_sqrtf(folded[0]);
}

float portable(const float* row1, const float* row2, std::ptrdiff_t count) {
    return distanceBody<4>(row1, row2, count);
}

#if defined(__x86_64__)
MARLO_KERNEL_TARGET("avx2")
float avx2(const float* row1, const float* row2, std::ptrdiff_t count) {
    return distanceBody<8>(row1, row2, count);
}

MARLO_KERNEL_TARGET("avx512f")
float avx512(const float* row1, const float* row2, std::ptrdiff_t count) {
    return distanceBody<16>(row1, row2, count);
}
#endif

constexpr Kernel<SiftDistanceFunction> kKernels[] = {
#if defined(__x86_64__)
    {"avx512", hasAvx512, avx512},
    {"avx2", hasAvx2, avx2},
#endif
    {"portable", runsEverywhere, portable},
};

}  // namespace

KernelList<SiftDistanceFunction> siftDistanceKernels() {
    return kKernels;
}

}  // namespace marlo::detail
