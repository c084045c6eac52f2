// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <vector>

namespace marlo::detail {

/// The filled disc of the midpoint circle algorithm, as half widths of its rows: the row `d` above
/// or below the centre reaches from `halfWidths[d]` cells to the left of the centre column to as
/// many to the right. Only the first `rows` rows are made, and no others cost time; there are
/// `radius` + 1 at most. `rows` must be at least 1.
void discHalfWidths(std::uint32_t radius, std::uint64_t rows,
                    std::vector<std::uint32_t>& halfWidths);

}  // namespace marlo::detail
