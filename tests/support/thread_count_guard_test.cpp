// SPDX-License-Identifier: BSD-3-Clause
#include "support/thread_count_guard.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <stdexcept>
#include <thread>
#include <type_traits>

#include "libfeatures/matchers/desc_matcher_dist_frac.h"
#include "utilities/matching_cases.h"
#include "utilities/number_of_threads.h"

namespace marlo {
namespace {

int threadsOfAParallelRegion() {
    int threads = 0;
#pragma omp parallel
    {
#pragma omp single
        threads = omp_get_num_threads();
    }
    return threads;
}

TEST(ThreadCountGuardTest, SetsTheNumberOfThreadsAgain) {
    const test::NumberOfThreads five(5);
    {
        const ThreadCountGuard guard;
        EXPECT_EQ(omp_get_max_threads(), 5);
        omp_set_num_threads(1);
    }
    EXPECT_EQ(omp_get_max_threads(), 5);
}

TEST(ThreadCountGuardTest, LaterParallelRegionsHaveTheirThreadsAgain) {
    const test::NumberOfThreads two(2);
    const int before = threadsOfAParallelRegion();
    {
        const ThreadCountGuard guard;
        omp_set_num_threads(1);
    }
    EXPECT_EQ(threadsOfAParallelRegion(), before);
}

TEST(ThreadCountGuardTest, KeepsTheSettingAroundAMatch) {
    const test::NumberOfThreads three(3);
    const DescMat rows = test::rowsOfBits(16, {0, 30, 100});
    const DescMatcherDistFrac matcher;
    {
        const ThreadCountGuard guard;
        (void)matcher.match(rows, rows);
        EXPECT_EQ(omp_get_max_threads(), 1);
    }
    EXPECT_EQ(omp_get_max_threads(), 3);
}

TEST(ThreadCountGuardTest, KeepsTheSettingWhenAnExceptionLeaves) {
    const test::NumberOfThreads four(4);
    try {
        const ThreadCountGuard guard;
        omp_set_num_threads(1);
        throw std::runtime_error("any");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(omp_get_max_threads(), 4);
}

TEST(ThreadCountGuardTest, GuardsNest) {
    const test::NumberOfThreads four(4);
    {
        const ThreadCountGuard outer;
        omp_set_num_threads(3);
        {
            const ThreadCountGuard inner;
            omp_set_num_threads(2);
        }
        EXPECT_EQ(omp_get_max_threads(), 3);
    }
    EXPECT_EQ(omp_get_max_threads(), 4);
}

TEST(ThreadCountGuardTest, HoldsForTheThreadThatMakesIt) {
    const test::NumberOfThreads four(4);
    int seen = 0;
    std::thread([&seen] {
        const test::NumberOfThreads two(2);
        {
            const ThreadCountGuard guard;
            omp_set_num_threads(1);
        }
        seen = omp_get_max_threads();
    }).join();
    EXPECT_EQ(seen, 2);
    EXPECT_EQ(omp_get_max_threads(), 4);
}

TEST(ThreadCountGuardTest, CannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<ThreadCountGuard>);
    EXPECT_FALSE(std::is_copy_assignable_v<ThreadCountGuard>);
}

}  // namespace
}  // namespace marlo
