// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <chrono>
#include <utility>

namespace marlo::bench {

/// Wall-clock seconds that `work()` takes.
template <typename Work>
double secondsOf(Work&& work) {
    const auto start = std::chrono::steady_clock::now();
    std::forward<Work>(work)();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// The least time of `repeats` runs: on a shared machine everything else is somebody else's time.
template <typename Work>
double leastSecondsOf(int repeats, Work&& work) {
    double least = secondsOf(work);
    for (int i = 1; i < repeats; ++i) {
        const double seconds = secondsOf(work);
        if (seconds < least) least = seconds;
    }
    return least;
}

}  // namespace marlo::bench
