// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <omp.h>

namespace marlo::test {

/// Sets the number of OpenMP threads while this object lives.
class NumberOfThreads {
public:
    explicit NumberOfThreads(int count) : before_(omp_get_max_threads()) {
        omp_set_num_threads(count);
    }
    ~NumberOfThreads() { omp_set_num_threads(before_); }
    NumberOfThreads(const NumberOfThreads&) = delete;
    NumberOfThreads& operator=(const NumberOfThreads&) = delete;

private:
    int before_;
};

}  // namespace marlo::test
