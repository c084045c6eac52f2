// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "libfeatures/base/detail/two_nearest.h"
#include "support/detail/kernel_list.h"
#include "support/system.h"

namespace marlo::detail {

/// A Hamming distance of rows of N 64-bit words.
template <int N>
using HammingDistance = std::conditional_t<(N <= 2), std::uint8_t, std::uint16_t>;

/// Stands for "no row" in a list of distances; above every distance.
template <int N>
constexpr HammingDistance<N> kNoDistance = N <= 2 ? 0xff : 0x7fff;

/// The smallest distance of a train row to some query rows together with the query's number among
/// them, in one word: distance * 2^kHammingKeyBits + number.
template <int N>
using HammingKey = std::conditional_t<(N <= 2), std::uint16_t, std::uint32_t>;
template <int N>
constexpr int kHammingKeyBits = N <= 2 ? 8 : 16;

constexpr int kHammingQueries = 2;  // compared with the train rows at once

/// The inner loops of a search by Hamming distance among rows of N 64-bit words. They read train
/// rows as arrange() laid them out, in groups.
template <int N>
struct HammingFunctions {
    int groupRows;
    std::size_t groupBytes;

    /// Lays `rows` <= groupRows rows out as one group of groupBytes bytes at `group`; rows that are
    /// missing are zeros. Row i starts at `row` + i * `step`.
    void (*arrange)(const unsigned char* row, std::size_t step, int rows, unsigned char* group);

    /// distances[q][i] is the distance of row i of the groups to query q.
    void (*distances)(const unsigned char* const (&queries)[kHammingQueries],
                      const unsigned char* groups, int groupCount,
                      HammingDistance<N>* const (&distances)[kHammingQueries]);

    /// Offers `count` distances, of the rows `first`, `first` + 1 and so on, to `nearest`.
    /// `count` is a multiple of groupRows; kNoDistance stands for rows that do not exist.
    void (*offer)(const HammingDistance<N>* distances, int count, std::uint32_t first,
                  TwoNearestBits& nearest);

    /// Lowers the keys of `count` rows (a multiple of groupRows) to those of query number `query`,
    /// which is below 2^kHammingKeyBits. keys[i] is that of row 2 i, keys[count / 2 + i] that of
    /// row 2 i + 1.
    void (*lowerKeys)(const HammingDistance<N>* distances, int count, unsigned query,
                      HammingKey<N>* keys);
};

/// The kernels for a way of counting bits and a row width, for N = 1, 2, 4, 8 and 16.
template <system::popcnt_t P, int N>
KernelList<const HammingFunctions<N>> hammingKernels();

}  // namespace marlo::detail
