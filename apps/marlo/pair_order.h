// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace marlo::app {

/// Two photographs' ids, the smaller first.
using PairOfIds = std::pair<std::int64_t, std::int64_t>;

/// The pairs, in an order in which few photographs have to be loaded if `inMemory` of each side fit
/// into memory: the photographs in blocks of so many, and all pairs of one block with another
/// before those of the next. `inMemory` of 0 counts as 1.
[[nodiscard]] std::vector<PairOfIds> inBlocks(const std::set<PairOfIds>& pairs,
                                              std::size_t inMemory);

}  // namespace marlo::app
