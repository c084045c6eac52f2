// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/detail/sdc_disc.h"

#include <algorithm>

namespace marlo::detail {

void discHalfWidths(std::uint32_t radius, std::uint64_t rows,
                    std::vector<std::uint32_t>& halfWidths) {
    const auto made = static_cast<std::int64_t>(std::min<std::uint64_t>(rows, radius + 1ULL));
    halfWidths.assign(static_cast<std::size_t>(made), 0);
    const auto span = [&](std::int64_t row, std::int64_t halfWidth) {
        if (row < made) {
            std::uint32_t& widest = halfWidths[static_cast<std::size_t>(row)];
            widest = std::max(widest, static_cast<std::uint32_t>(halfWidth));
        }
    };

    // One octant, from the top (x = 0) down to the diagonal. Each of its points closes four spans:
    // two rows of x cells and, mirrored at the diagonal, two of y. Past x = made both are outside.
    std::int64_t x = 0;
    std::int64_t y = radius;
    std::int64_t error = 1 - y;
    span(x, y);
    span(y, x);
    while (x < y && x < made) {
        if (error >= 0) {
            error += 2 * (x - y) + 5;
            --y;
        } else {
            error += 2 * x + 3;
        }
        ++x;
        span(x, y);
        span(y, x);
    }
}

}  // namespace marlo::detail
