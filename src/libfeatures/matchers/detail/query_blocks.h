// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <omp.h>

#include <algorithm>
#include <cstddef>

#include "support/detail/first_exception.h"

namespace marlo::detail {

/// How many query rows a thread searches for at a time: a multiple of `least`, at most `most`,
/// and few enough to keep all threads busy.
inline std::ptrdiff_t queryBlockRows(std::ptrdiff_t queryRows, std::ptrdiff_t least,
                                     std::ptrdiff_t most) {
    const std::ptrdiff_t share = queryRows / (4 * std::ptrdiff_t{omp_get_max_threads()});
    return std::clamp(share / least * least, least, most);
}

/// Calls search(first, last, own) for blocks of the query rows (last is excluded), in parallel,
/// with an object of the thread that make() returned. In the end collect(own) is called for these
/// objects, one after the other in no fixed order.
template <typename Make, typename Search, typename Collect>
void searchQueryBlocks(std::ptrdiff_t queryRows, std::ptrdiff_t blockRows, Make&& make,
                       Search&& search, Collect&& collect) {
    const std::ptrdiff_t blockCount = (queryRows + blockRows - 1) / blockRows;
    const auto threadCount =
        static_cast<int>(std::clamp<std::ptrdiff_t>(blockCount, 1, omp_get_max_threads()));
    FirstException failure;
#pragma omp parallel num_threads(threadCount)
    {
        decltype(make()) own;
        bool isMade = false;
        failure.capture([&] {
            own = make();
            isMade = true;
        });
#pragma omp for schedule(dynamic, 1)
        for (std::ptrdiff_t block = 0; block < blockCount; ++block) {
            const std::ptrdiff_t first = block * blockRows;
            failure.capture([&] {
                if (isMade) search(first, std::min(first + blockRows, queryRows), own);
            });
        }
#pragma omp critical(marlo_collect)
        failure.capture([&] {
            if (isMade) collect(own);
        });
    }
    failure.rethrow();
}

}  // namespace marlo::detail
