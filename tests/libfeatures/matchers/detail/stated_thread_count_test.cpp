// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/detail/stated_thread_count.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "utilities/number_of_threads.h"

namespace marlo::detail {
namespace {

TEST(StatedThreadCountTest, IsOneForAsManyBlocksAsProcessors) {
    const test::NumberOfThreads three(3);
    const StatedThreadCount threads(system::noLogicalCPUs());
    EXPECT_EQ(omp_get_max_threads(), 1);
}

TEST(StatedThreadCountTest, IsOneForFewerBlocksThanProcessors) {
    const test::NumberOfThreads three(3);
    const StatedThreadCount threads(0);
    EXPECT_EQ(omp_get_max_threads(), 1);
}

TEST(StatedThreadCountTest, StaysForMoreBlocksThanProcessors) {
    const test::NumberOfThreads three(3);
    const StatedThreadCount threads(system::noLogicalCPUs() + 1);
    EXPECT_EQ(omp_get_max_threads(), 3);
}

TEST(StatedThreadCountTest, IsOneAfterwardsOutsideAParallelRegion) {
    const test::NumberOfThreads three(3);
    { const StatedThreadCount threads(system::noLogicalCPUs() + 1); }
    EXPECT_EQ(omp_get_max_threads(), 1);
}

TEST(StatedThreadCountTest, IsThatOfTheTeamAfterwardsInsideAParallelRegion) {
    const test::NumberOfThreads three(3);
    int teamSize = 0;
    int inside = 0;
    int afterwards = 0;
#pragma omp parallel num_threads(2)
    {
#pragma omp master
        {
            teamSize = omp_get_num_threads();
            {
                const StatedThreadCount threads(system::noLogicalCPUs());
                inside = omp_get_max_threads();
            }
            afterwards = omp_get_max_threads();
        }
    }
    ASSERT_EQ(teamSize, 2);
    EXPECT_EQ(inside, 1);
    EXPECT_EQ(afterwards, 2);
}

TEST(StatedThreadCountTest, IsSetWhenAnExceptionLeavesToo) {
    const test::NumberOfThreads three(3);
    const auto search = [] {
        const StatedThreadCount threads(system::noLogicalCPUs() + 1);
        throw std::runtime_error("search");
    };
    EXPECT_THROW(search(), std::runtime_error);
    EXPECT_EQ(omp_get_max_threads(), 1);
}

}  // namespace
}  // namespace marlo::detail
