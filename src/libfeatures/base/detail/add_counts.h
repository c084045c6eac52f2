// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>

#include "libfeatures/base/detail/hamming_kernels.h"
#include "support/detail/simd.h"

namespace marlo::detail {

/// The distances at `at` of rows of N 64-bit words are `counts`, or become larger by them.
template <int N, typename Bytes>
MARLO_KERNEL_INLINE void addCounts(const Bytes& counts, bool areFirst, HammingDistance<N>* at) {
    if constexpr (N <= 2) {
        vectorAt<Bytes>(at).value = counts;
    } else {
        typedef std::uint16_t Counts __attribute__((vector_size(2 * sizeof(Bytes))));
        const Counts wide = __builtin_convertvector(counts, Counts);
        vectorAt<Counts>(at).value = areFirst ? wide : vectorAt<Counts>(at).value + wide;
    }
}

}  // namespace marlo::detail
