// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/detail/screen_kernels.h"

#include "support/detail/simd.h"
#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace marlo::detail {
namespace {

#if defined(__x86_64__)

MARLO_KERNELS_FOR("avx512f,avx512bw")
namespace avx512 {
typedef std::int32_t Ints __attribute__((vector_size(64)));
inline Ints productSums(Ints a, Ints b) {
    return reinterpret_cast<Ints>(
        _mm512_madd_epi16(reinterpret_cast<__m512i>(a), reinterpret_cast<__m512i>(b)));
}
inline std::uint32_t bits(Ints condition) {
    return _mm512_cmplt_epi32_mask(reinterpret_cast<__m512i>(condition), _mm512_setzero_si512());
}
#include "libfeatures/base/detail/screen_body.h"
}  // namespace avx512
MARLO_KERNELS_END

MARLO_KERNELS_FOR("avx2")
namespace avx2 {
typedef std::int32_t Ints __attribute__((vector_size(32)));
inline Ints productSums(Ints a, Ints b) {
    return reinterpret_cast<Ints>(
        _mm256_madd_epi16(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
}
inline std::uint32_t bits(Ints condition) {
    return static_cast<std::uint32_t>(_mm256_movemask_ps(reinterpret_cast<__m256>(condition)));
}
#include "libfeatures/base/detail/screen_body.h"
}  // namespace avx2
MARLO_KERNELS_END

#endif

namespace portable {
typedef std::int32_t Ints __attribute__((vector_size(16)));
#if defined(__x86_64__)
inline Ints productSums(Ints a, Ints b) {
    return reinterpret_cast<Ints>(
        _mm_madd_epi16(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
}
inline std::uint32_t bits(Ints condition) {
    return static_cast<std::uint32_t>(_mm_movemask_ps(reinterpret_cast<__m128>(condition)));
}
#else
MARLO_KERNEL_INLINE Ints productSums(Ints a, Ints b) {
#if defined(__aarch64__)
    const auto a16 = reinterpret_cast<int16x8_t>(a);
    const auto b16 = reinterpret_cast<int16x8_t>(b);
    return reinterpret_cast<Ints>(
        vpaddq_s32(vmull_s16(vget_low_s16(a16), vget_low_s16(b16)), vmull_high_s16(a16, b16)));
#else
    return ((a << 16) >> 16) * ((b << 16) >> 16) + (a >> 16) * (b >> 16);
#endif
}
MARLO_KERNEL_INLINE std::uint32_t bits(Ints condition) {
    const auto bit = [&condition](int lane) {
        return condition[lane] != 0 ? std::uint32_t{1} << lane : 0;
    };
    return bit(0) | bit(1) | bit(2) | bit(3);
}
#endif
#include "libfeatures/base/detail/screen_body.h"
}  // namespace portable

#if defined(__x86_64__)
constexpr ScreenFunctions kAvx512 = {avx512::kGroupRows, avx512::screen};
constexpr ScreenFunctions kAvx2 = {avx2::kGroupRows, avx2::screen};
#endif
constexpr ScreenFunctions kPortable = {portable::kGroupRows, portable::screen};

constexpr Kernel<const ScreenFunctions> kKernels[] = {
#if defined(__x86_64__)
    {"avx512", hasAvx512, &kAvx512},
    {"avx2", hasAvx2, &kAvx2},
#endif
    {"portable", runsEverywhere, &kPortable},
};

}  // namespace

KernelList<const ScreenFunctions> screenKernels() {
    return kKernels;
}

}  // namespace marlo::detail
