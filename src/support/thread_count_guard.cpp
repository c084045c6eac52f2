// SPDX-License-Identifier: BSD-3-Clause
#include "support/thread_count_guard.h"

#include <omp.h>

namespace marlo {

ThreadCountGuard::ThreadCountGuard() noexcept : threadCount_(omp_get_max_threads()) {}

ThreadCountGuard::~ThreadCountGuard() {
    omp_set_num_threads(threadCount_);
}

}  // namespace marlo
