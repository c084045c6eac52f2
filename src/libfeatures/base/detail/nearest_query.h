// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <limits>

namespace marlo::detail {

/// The nearest query row of a train row, the first of several, whatever order they are offered in.
template <typename Distance>
struct NearestQuery {
    Distance distance = std::numeric_limits<Distance>::max();
    std::uint32_t index = std::numeric_limits<std::uint32_t>::max();

    void offer(Distance candidate, std::uint32_t query) {
        if (candidate < distance || (candidate == distance && query < index)) {
            distance = candidate;
            index = query;
        }
    }
};

using NearestQueryBits = NearestQuery<std::uint32_t>;
using NearestQueryFloat = NearestQuery<float>;

}  // namespace marlo::detail
