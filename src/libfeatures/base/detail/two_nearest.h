// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <limits>

namespace marlo::detail {

/// The two smallest of the distances offered so far. Offered in the order of the rows, the first of
/// several equal ones is the nearest and the next the second.
template <typename Distance>
struct TwoNearest {
    static constexpr Distance kNone = std::numeric_limits<Distance>::max();
    static constexpr std::uint32_t kNoIndex = std::numeric_limits<std::uint32_t>::max();

    Distance best = kNone;
    Distance second = kNone;
    std::uint32_t index = kNoIndex;  ///< of the nearest

    /// NaN changes nothing.
    void offer(Distance distance, std::uint32_t row) {
        if (!(distance < second)) return;
        if (distance < best) {
            second = best;
            best = distance;
            index = row;
        } else {
            second = distance;
        }
    }
};

/// Binary distances, with the range that "none yet" has in the ratio test.
using TwoNearestBits = TwoNearest<std::uint64_t>;
using TwoNearestFloat = TwoNearest<float>;

}  // namespace marlo::detail
