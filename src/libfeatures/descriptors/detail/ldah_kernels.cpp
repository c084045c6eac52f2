// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/detail/ldah_kernels.h"

#include "support/detail/simd.h"
#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace marlo::detail {
namespace {

#if defined(__x86_64__)

MARLO_KERNELS_FOR("avx512f")
namespace avx512 {
typedef float Floats __attribute__((vector_size(64)));
constexpr int kRows = 8;
inline unsigned bitsOf(Floats sums) {
    return _mm512_cmp_ps_mask(reinterpret_cast<__m512>(sums), _mm512_setzero_ps(), _CMP_LE_OQ);
}
#include "libfeatures/descriptors/detail/ldah_body.h"
}  // namespace avx512
MARLO_KERNELS_END

MARLO_KERNELS_FOR("avx2")
namespace avx2 {
typedef float Floats __attribute__((vector_size(32)));
constexpr int kRows = 4;
inline unsigned bitsOf(Floats sums) {
    const __m256 mask =
        _mm256_cmp_ps(reinterpret_cast<__m256>(sums), _mm256_setzero_ps(), _CMP_LE_OQ);
    return static_cast<unsigned>(_mm256_movemask_ps(mask));
}
#include "libfeatures/descriptors/detail/ldah_body.h"
}  // namespace avx2
MARLO_KERNELS_END

bool hasAvx512f() {
    return __builtin_cpu_supports("avx512f") != 0;
}

#endif

namespace portable {
typedef float Floats __attribute__((vector_size(16)));
constexpr int kRows = 2;
MARLO_KERNEL_INLINE unsigned bitsOf(Floats sums) {
#if defined(__x86_64__)
    return static_cast<unsigned>(_mm_movemask_ps(sums <= Floats{}));
#else
    // A true lane is -1.
    const IntV<4> bits = (sums <= Floats{}) & IntV<4>{1, 2, 4, 8};
    return static_cast<unsigned>(bits[0] | bits[1] | bits[2] | bits[3]);
#endif
}
#include "libfeatures/descriptors/detail/ldah_body.h"
}  // namespace portable

constexpr Kernel<LdahFunction> kKernels[] = {
#if defined(__x86_64__)
    {"avx512", hasAvx512f, avx512::makeCodes},
    {"avx2", hasAvx2, avx2::makeCodes},
#endif
    {"portable", runsEverywhere, portable::makeCodes},
};

}  // namespace

LdahPanels::LdahPanels(const float (&projectionRows)[kLdahBits][kDescriptorSize],
                       const float (&offsetOfBits)[kLdahBits]) {
    for (int bit = 0; bit < kLdahBits; ++bit) {
        for (int k = 0; k < kDescriptorSize; ++k) {
            projection[bit / kLdahPanel][k % kLdahSums][k / kLdahSums][bit % kLdahPanel] =
                projectionRows[bit][k];
        }
        offsets[bit] = offsetOfBits[bit];
    }
}

const LdahPanels& ldahPanels() {
    static const LdahPanels panels(kLdahTables.projection, kLdahTables.offsets);
    return panels;
}

KernelList<LdahFunction> ldahKernels() {
    return kKernels;
}

}  // namespace marlo::detail
