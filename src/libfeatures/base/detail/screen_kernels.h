// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/detail/kernel_list.h"

namespace marlo::detail {

constexpr int kScreenQueries = 4;  // in a group of query rows

/// A group of train rows and groups of query rows, as 16-bit integers, two columns together: pair p
/// of row r stands at [p][r], which is [p * rows of a group + r].
struct ScreenTile {
    std::ptrdiff_t pairs = 0;                  ///< of columns
    const std::int16_t* train = nullptr;       ///< one group
    const std::int32_t* trainTerms = nullptr;  ///< a term for every train row
    /// A limit for every train row, or nothing.
    const std::int32_t* trainLimits = nullptr;
    const std::int16_t* queries = nullptr;  ///< `queryGroups` groups, one after the other
    int queryGroups = 0;
    const std::int32_t* queryTerms = nullptr;   ///< a term for every query row
    const std::int32_t* queryLimits = nullptr;  ///< a limit for every query row
};

/// Bit r of masks[q]: query row q of the group and train row r are a candidate, with the x below.
struct ScreenCandidates {
    std::uint32_t masks[kScreenQueries];
    std::int32_t x[kScreenQueries][32];
};

/// Compares products of rows with limits. With x = (the scalar product of a query row and a train
/// row) - trainTerm, the two are a candidate if x > queryLimit, or x > queryTerm - trainLimit.
/// All of it must stay within 32 bits.
struct ScreenFunctions {
    int groupRows;  ///< train rows of a group, at most 32

    /// The first group of query rows from `firstGroup` on in which there is a candidate;
    /// `queryGroups` if there is none.
    int (*screen)(const ScreenTile& tile, int firstGroup, ScreenCandidates& candidates);
};

KernelList<const ScreenFunctions> screenKernels();

}  // namespace marlo::detail
