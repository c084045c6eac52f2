// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/detail/hamming_kernels.h"

#include <algorithm>
#include <cstring>

#include "libfeatures/base/detail/add_counts.h"
#include "support/detail/simd.h"
#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace marlo::detail {
namespace {

using Word = std::uint64_t;

// ---- Row by row, with whatever counts the bits of a word ----

constexpr int kRowsTogether = 64;  // what the scan looks at together

template <int N>
void arrangeRows(const unsigned char* row, std::size_t step, int rows, unsigned char* group) {
    constexpr std::size_t kRowBytes = sizeof(Word) * N;
    std::memset(group, 0, kRowBytes * kRowsTogether);
    for (int r = 0; r < rows; ++r, row += step, group += kRowBytes) {
        std::memcpy(group, row, kRowBytes);
    }
}

struct PortableCount {
    MARLO_KERNEL_INLINE static int of(Word x) {
        x -= (x >> 1) & 0x5555555555555555U;
        x = (x & 0x3333333333333333U) + ((x >> 2) & 0x3333333333333333U);
        x = (x + (x >> 4)) & 0x0f0f0f0f0f0f0f0fU;
        return static_cast<int>((x * 0x0101010101010101U) >> 56);
    }
};

struct CompilersCount {
    MARLO_KERNEL_INLINE static int of(Word x) { return __builtin_popcountll(x); }
};

template <int N, typename BitCount>
MARLO_KERNEL_INLINE void distancesByWords(const unsigned char* const (&queries)[kHammingQueries],
                                          const unsigned char* groups, int groupCount,
                                          HammingDistance<N>* const (&out)[kHammingQueries]) {
    static_assert(kHammingQueries == 2);
    Word query0[N];
    Word query1[N];
    std::memcpy(query0, queries[0], sizeof(query0));
    std::memcpy(query1, queries[1], sizeof(query1));
    HammingDistance<N>* const out0 = out[0];
    HammingDistance<N>* const out1 = out[1];
    const std::ptrdiff_t rows = std::ptrdiff_t{groupCount} * kRowsTogether;
#pragma GCC unroll 4
    for (std::ptrdiff_t r = 0; r < rows; ++r) {
        int sum0 = 0;
        int sum1 = 0;
        for (int w = 0; w < N; ++w, groups += sizeof(Word)) {
            Word word;
            std::memcpy(&word, groups, sizeof(word));
            sum0 += BitCount::of(query0[w] ^ word);
            sum1 += BitCount::of(query1[w] ^ word);
        }
        out0[r] = static_cast<HammingDistance<N>>(sum0);
        out1[r] = static_cast<HammingDistance<N>>(sum1);
    }
}

template <int N>
void distancesPortable(const unsigned char* const (&queries)[kHammingQueries],
                       const unsigned char* groups, int groupCount,
                       HammingDistance<N>* const (&out)[kHammingQueries]) {
    distancesByWords<N, PortableCount>(queries, groups, groupCount, out);
}

#if defined(__x86_64__)
template <int N>
MARLO_KERNEL_TARGET("popcnt")
void distancesPopcnt(const unsigned char* const (&queries)[kHammingQueries],
                     const unsigned char* groups, int groupCount,
                     HammingDistance<N>* const (&out)[kHammingQueries]) {
    distancesByWords<N, CompilersCount>(queries, groups, groupCount, out);
}
#endif

// ---- Many rows at once ----

struct CountsOfXor {
    alignas(64) std::uint8_t of[16 * 16] = {};
    constexpr CountsOfXor() {
        for (unsigned x = 0; x < 16; ++x) {
            for (unsigned y = 0; y < 16; ++y) {
                of[16 * x + y] = static_cast<std::uint8_t>(__builtin_popcount(x ^ y));
            }
        }
    }
};
/// 16 tables, one for each half byte of a query: how many bits a half byte of a train row differs.
constexpr CountsOfXor kCountsOfXor;

/// What a distance must be below to change `nearest`.
template <int N>
HammingDistance<N> limitOf(const TwoNearestBits& nearest) {
    return static_cast<HammingDistance<N>>(std::min<std::uint64_t>(nearest.second, kNoDistance<N>));
}

#if defined(__x86_64__)

namespace sse2 {
typedef std::uint8_t Bytes __attribute__((vector_size(16)));
typedef std::uint16_t Shorts __attribute__((vector_size(16)));
using Mask = std::uint32_t;
template <typename Distance>
constexpr int kMaskBits = sizeof(Distance);
inline Mask below(Bytes distances, std::uint8_t limit) {
    const auto d = reinterpret_cast<__m128i>(distances);
    const __m128i most = _mm_set1_epi8(static_cast<char>(limit - 1));
    return static_cast<Mask>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(d, most), d)));
}
inline Mask below(Shorts distances, std::uint16_t limit) {
    const __m128i limits = _mm_set1_epi16(static_cast<short>(limit));
    return static_cast<Mask>(
        _mm_movemask_epi8(_mm_cmpgt_epi16(limits, reinterpret_cast<__m128i>(distances))));
}
#include "libfeatures/base/detail/hamming_scan_body.h"
}  // namespace sse2

MARLO_KERNELS_FOR("ssse3")
namespace ssse3 {
typedef std::uint8_t Bytes __attribute__((vector_size(16)));
inline Bytes repeated(const std::uint8_t* from) {
    return vectorAt<Bytes>(from).value;
}
inline Bytes lookup(Bytes table, Bytes index) {
    return reinterpret_cast<Bytes>(
        _mm_shuffle_epi8(reinterpret_cast<__m128i>(table), reinterpret_cast<__m128i>(index)));
}
#include "libfeatures/base/detail/hamming_lookup_body.h"
}  // namespace ssse3
MARLO_KERNELS_END

MARLO_KERNELS_FOR("avx2")
namespace avx2 {
typedef std::uint8_t Bytes __attribute__((vector_size(32)));
typedef std::uint16_t Shorts __attribute__((vector_size(32)));
using Mask = std::uint32_t;
template <typename Distance>
constexpr int kMaskBits = sizeof(Distance);
inline Mask below(Bytes distances, std::uint8_t limit) {
    const auto d = reinterpret_cast<__m256i>(distances);
    const __m256i most = _mm256_set1_epi8(static_cast<char>(limit - 1));
    return static_cast<Mask>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_min_epu8(d, most), d)));
}
inline Mask below(Shorts distances, std::uint16_t limit) {
    const __m256i limits = _mm256_set1_epi16(static_cast<short>(limit));
    return static_cast<Mask>(
        _mm256_movemask_epi8(_mm256_cmpgt_epi16(limits, reinterpret_cast<__m256i>(distances))));
}
inline Bytes repeated(const std::uint8_t* from) {
    return reinterpret_cast<Bytes>(_mm256_broadcastsi128_si256(vectorAt<__m128i>(from).value));
}
inline Bytes lookup(Bytes table, Bytes index) {
    return reinterpret_cast<Bytes>(
        _mm256_shuffle_epi8(reinterpret_cast<__m256i>(table), reinterpret_cast<__m256i>(index)));
}
#include "libfeatures/base/detail/hamming_lookup_body.h"
#include "libfeatures/base/detail/hamming_scan_body.h"
}  // namespace avx2
MARLO_KERNELS_END

MARLO_KERNELS_FOR("avx512f,avx512bw")
namespace avx512 {
typedef std::uint8_t Bytes __attribute__((vector_size(64)));
typedef std::uint16_t Shorts __attribute__((vector_size(64)));
using Mask = std::uint64_t;
template <typename Distance>
constexpr int kMaskBits = 1;
inline Mask below(Bytes distances, std::uint8_t limit) {
    return _mm512_cmplt_epu8_mask(reinterpret_cast<__m512i>(distances),
                                  _mm512_set1_epi8(static_cast<char>(limit)));
}
inline Mask below(Shorts distances, std::uint16_t limit) {
    return _mm512_cmplt_epu16_mask(reinterpret_cast<__m512i>(distances),
                                   _mm512_set1_epi16(static_cast<short>(limit)));
}
inline Bytes repeated(const std::uint8_t* from) {
    return reinterpret_cast<Bytes>(
        _mm512_maskz_broadcast_i32x4(0xffff, vectorAt<__m128i>(from).value));
}
inline Bytes lookup(Bytes table, Bytes index) {
    return reinterpret_cast<Bytes>(
        _mm512_shuffle_epi8(reinterpret_cast<__m512i>(table), reinterpret_cast<__m512i>(index)));
}
#include "libfeatures/base/detail/hamming_lookup_body.h"
#include "libfeatures/base/detail/hamming_scan_body.h"
}  // namespace avx512
MARLO_KERNELS_END

MARLO_KERNELS_FOR("avx512f,avx512bw,avx512bitalg")
namespace avx512_bitalg {
typedef std::uint8_t Bytes __attribute__((vector_size(64)));
inline Bytes bitCounts(Bytes bytes) {
    return reinterpret_cast<Bytes>(_mm512_popcnt_epi8(reinterpret_cast<__m512i>(bytes)));
}
#include "libfeatures/base/detail/hamming_planes_body.h"
}  // namespace avx512_bitalg
MARLO_KERNELS_END

bool hasSsse3() {
    return __builtin_cpu_supports("ssse3") != 0;
}
bool hasPopcnt() {
    return __builtin_cpu_supports("popcnt") != 0;
}
bool hasAvx512bitalg() {
    return hasAvx512() && __builtin_cpu_supports("avx512bitalg") != 0;
}

#elif defined(__aarch64__)

namespace neon {
typedef std::uint8_t Bytes __attribute__((vector_size(16)));
typedef std::uint16_t Shorts __attribute__((vector_size(16)));
using Mask = std::uint64_t;
template <typename Distance>
constexpr int kMaskBits = 4 * sizeof(Distance);
inline Mask below(Bytes distances, std::uint8_t limit) {
    const uint8x16_t mask = vcltq_u8(reinterpret_cast<uint8x16_t>(distances), vdupq_n_u8(limit));
    return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(mask), 4)), 0);
}
inline Mask below(Shorts distances, std::uint16_t limit) {
    const uint16x8_t mask = vcltq_u16(reinterpret_cast<uint16x8_t>(distances), vdupq_n_u16(limit));
    return vget_lane_u64(vreinterpret_u64_u8(vmovn_u16(mask)), 0);
}
inline Bytes repeated(const std::uint8_t* from) {
    return vectorAt<Bytes>(from).value;
}
inline Bytes lookup(Bytes table, Bytes index) {
    return reinterpret_cast<Bytes>(
        vqtbl1q_u8(reinterpret_cast<uint8x16_t>(table), reinterpret_cast<uint8x16_t>(index)));
}
#include "libfeatures/base/detail/hamming_lookup_body.h"
#include "libfeatures/base/detail/hamming_scan_body.h"
}  // namespace neon

#endif

namespace plain {
typedef std::uint8_t Bytes __attribute__((vector_size(16)));
using Mask = std::uint32_t;
template <typename Distance>
constexpr int kMaskBits = 1;
template <typename Distances, typename Distance>
MARLO_KERNEL_INLINE Mask below(const Distances& distances, Distance limit) {
    Mask mask = 0;
    for (unsigned i = 0; i < sizeof(Bytes) / sizeof(Distance); ++i) {
        mask |= static_cast<Mask>(distances[i] < limit) << i;
    }
    return mask;
}
#include "libfeatures/base/detail/hamming_scan_body.h"
}  // namespace plain

// ---- The tables ----

template <int N>
constexpr std::size_t kRowBytes = sizeof(Word) * N;

template <int N>
constexpr HammingFunctions<N> kPortable = {kRowsTogether,   kRowsTogether* kRowBytes<N>,
                                           arrangeRows<N>,  distancesPortable<N>,
                                           plain::offer<N>, plain::lowerKeys<N>};

#if defined(__x86_64__)
template <int N>
constexpr HammingFunctions<N> kPopcnt = {kRowsTogether,  kRowsTogether* kRowBytes<N>,
                                         arrangeRows<N>, distancesPopcnt<N>,
                                         sse2::offer<N>, sse2::lowerKeys<N>};
template <int N>
constexpr HammingFunctions<N> kSsse3 = {ssse3::kGroupRows, 2 * ssse3::kGroupRows* kRowBytes<N>,
                                        ssse3::arrange<N>, ssse3::distances<N>,
                                        sse2::offer<N>,    sse2::lowerKeys<N>};
template <int N>
constexpr HammingFunctions<N> kAvx2 = {avx2::kGroupRows, 2 * avx2::kGroupRows* kRowBytes<N>,
                                       avx2::arrange<N>, avx2::distances<N>,
                                       avx2::offer<N>,   avx2::lowerKeys<N>};
template <int N>
constexpr HammingFunctions<N> kAvx512 = {avx512::kGroupRows, 2 * avx512::kGroupRows* kRowBytes<N>,
                                         avx512::arrange<N>, avx512::distances<N>,
                                         avx512::offer<N>,   avx512::lowerKeys<N>};
template <int N>
constexpr HammingFunctions<N> kAvx512Bitalg = {
    avx512_bitalg::kGroupRows, avx512_bitalg::kGroupRows* kRowBytes<N>,
    avx512_bitalg::arrange<N>, avx512_bitalg::distances<N>,
    avx512::offer<N>,          avx512::lowerKeys<N>};

template <int N>
constexpr Kernel<const HammingFunctions<N>> kX86Kernels[] = {
    {"avx512_bitalg", hasAvx512bitalg, &kAvx512Bitalg<N>},
    {"avx512", hasAvx512, &kAvx512<N>},
    {"avx2", hasAvx2, &kAvx2<N>},
    {"ssse3", hasSsse3, &kSsse3<N>},
    {"popcnt", hasPopcnt, &kPopcnt<N>},
    {"portable", runsEverywhere, &kPortable<N>},
};
#elif defined(__aarch64__)
template <int N>
constexpr HammingFunctions<N> kNeon = {neon::kGroupRows, 2 * neon::kGroupRows* kRowBytes<N>,
                                       neon::arrange<N>, neon::distances<N>,
                                       neon::offer<N>,   neon::lowerKeys<N>};
#endif

template <int N>
constexpr Kernel<const HammingFunctions<N>> kArmKernels[] = {
#if defined(__aarch64__)
    {"neon", runsEverywhere, &kNeon<N>},
#endif
    {"portable", runsEverywhere, &kPortable<N>},
};

template <int N>
constexpr Kernel<const HammingFunctions<N>> kPortableKernels[] = {
    {"portable", runsEverywhere, &kPortable<N>},
};

}  // namespace

template <system::popcnt_t P, int N>
KernelList<const HammingFunctions<N>> hammingKernels() {
#if defined(__x86_64__)
    if constexpr (P == system::PopcntX86) return kX86Kernels<N>;
#endif
    if constexpr (P == system::PopcntArm) return kArmKernels<N>;
    return kPortableKernels<N>;
}

#define MARLO_KERNELS_OF(P)                                                \
    template KernelList<const HammingFunctions<1>> hammingKernels<P, 1>(); \
    template KernelList<const HammingFunctions<2>> hammingKernels<P, 2>(); \
    template KernelList<const HammingFunctions<4>> hammingKernels<P, 4>(); \
    template KernelList<const HammingFunctions<8>> hammingKernels<P, 8>(); \
    template KernelList<const HammingFunctions<16>> hammingKernels<P, 16>();
MARLO_KERNELS_OF(system::PopcntNone)
MARLO_KERNELS_OF(system::PopcntX86)
MARLO_KERNELS_OF(system::PopcntArm)
#undef MARLO_KERNELS_OF

}  // namespace marlo::detail
