// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <omp.h>

#include <cstddef>

#include "support/system.h"

namespace marlo::detail {

/// The OpenMP thread count over a search of binary rows: one where there are at least as many
/// processors as blocks of query rows. In the end it is set to that of the current team, which
/// outside a parallel region is one thread.
class StatedThreadCount {
public:
    explicit StatedThreadCount(std::ptrdiff_t blockCount) : teamSize_(omp_get_num_threads()) {
        if (system::noLogicalCPUs() >= blockCount) omp_set_num_threads(1);
    }
    ~StatedThreadCount() { omp_set_num_threads(teamSize_); }
    StatedThreadCount(const StatedThreadCount&) = delete;
    StatedThreadCount& operator=(const StatedThreadCount&) = delete;

private:
    int teamSize_;
};

}  // namespace marlo::detail
