// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/detail/query_blocks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

#include "utilities/number_of_threads.h"

namespace marlo::detail {
namespace {

using Blocks = std::vector<std::pair<std::ptrdiff_t, std::ptrdiff_t>>;

/// The blocks that all threads together searched, sorted.
Blocks searchedBlocks(std::ptrdiff_t queryRows, std::ptrdiff_t blockRows) {
    Blocks all;
    searchQueryBlocks(
        queryRows, blockRows, [] { return Blocks(); },
        [](std::ptrdiff_t first, std::ptrdiff_t last, Blocks& own) {
            own.emplace_back(first, last);
        },
        [&all](const Blocks& own) { all.insert(all.end(), own.begin(), own.end()); });
    std::sort(all.begin(), all.end());
    return all;
}

TEST(QueryBlocksTest, EveryRowIsSearchedOnceAndEveryThreadsObjectCollected) {
    for (const int threads : {1, 2, 5}) {
        const test::NumberOfThreads guard(threads);
        for (const std::ptrdiff_t queryRows : {1, 7, 8, 9, 63, 64, 65, 500}) {
            for (const std::ptrdiff_t blockRows : {1, 8, 64}) {
                std::ptrdiff_t next = 0;
                for (const auto& [first, last] : searchedBlocks(queryRows, blockRows)) {
                    ASSERT_EQ(first, next) << queryRows << ' ' << blockRows;
                    ASSERT_EQ(last, std::min(first + blockRows, queryRows));
                    next = last;
                }
                ASSERT_EQ(next, queryRows) << blockRows;
            }
        }
    }
}

TEST(QueryBlocksTest, NothingIsSearchedWithoutRows) {
    EXPECT_TRUE(searchedBlocks(0, 8).empty());
}

TEST(QueryBlocksTest, AllSearchesOfAThreadGetTheObjectThatItMade) {
    const test::NumberOfThreads guard(3);
    std::atomic<int> made = 0;
    std::vector<int> collected;
    searchQueryBlocks(
        100, 1, [&made] { return ++made; },
        [](std::ptrdiff_t, std::ptrdiff_t, int& own) { EXPECT_GT(own, 0); },
        [&collected](int own) { collected.push_back(own); });
    std::sort(collected.begin(), collected.end());
    std::vector<int> all;
    for (int i = 1; i <= made; ++i) all.push_back(i);
    EXPECT_EQ(collected, all);
}

TEST(QueryBlocksTest, NoMoreThreadsThanBlocksAreUsed) {
    const test::NumberOfThreads guard(8);
    for (const std::ptrdiff_t queryRows : {0, 1, 8, 9, 16, 17}) {
        std::atomic<int> made = 0;
        searchQueryBlocks(
            queryRows, 8, [&made] { return ++made; }, [](std::ptrdiff_t, std::ptrdiff_t, int) {},
            [](int) {});
        EXPECT_LE(made, std::max<std::ptrdiff_t>(1, (queryRows + 7) / 8)) << queryRows;
    }
}

TEST(QueryBlocksTest, NoMoreThreadsThanAllowedAreUsed) {
    const test::NumberOfThreads guard(2);
    std::atomic<int> made = 0;
    searchQueryBlocks(
        800, 8, [&made] { return ++made; }, [](std::ptrdiff_t, std::ptrdiff_t, int) {}, [](int) {});
    EXPECT_LE(made, 2);
}

TEST(QueryBlocksTest, AnExceptionOfMakeIsPassedOnAndNothingSearched) {
    const test::NumberOfThreads guard(3);
    std::atomic<int> searches = 0;
    const auto make = []() -> int { throw std::range_error("make"); };
    const auto search = [&searches](std::ptrdiff_t, std::ptrdiff_t, int) { ++searches; };
    EXPECT_THROW(searchQueryBlocks(100, 8, make, search, [](int) {}), std::range_error);
    EXPECT_EQ(searches, 0);
}

TEST(QueryBlocksTest, AnExceptionOfSearchIsPassedOn) {
    const test::NumberOfThreads guard(3);
    const auto search = [](std::ptrdiff_t first, std::ptrdiff_t, int) {
        if (first == 96) throw std::range_error("search");
    };
    EXPECT_THROW(searchQueryBlocks(
                     100, 8, [] { return 0; }, search, [](int) {}),
                 std::range_error);
}

TEST(QueryBlocksTest, AnExceptionOfCollectIsPassedOn) {
    const test::NumberOfThreads guard(3);
    const auto collect = [](int) { throw std::range_error("collect"); };
    EXPECT_THROW(searchQueryBlocks(
                     100, 8, [] { return 0; }, [](std::ptrdiff_t, std::ptrdiff_t, int) {}, collect),
                 std::range_error);
}

TEST(QueryBlockRowsTest, GivesEveryThreadFourBlocksOfAMultipleOfTheLeast) {
    const test::NumberOfThreads one(1);
    EXPECT_EQ(queryBlockRows(100, 8, 64), 24);
    EXPECT_EQ(queryBlockRows(128, 8, 64), 32);
    const test::NumberOfThreads four(4);
    EXPECT_EQ(queryBlockRows(1000, 8, 64), 56);
    EXPECT_EQ(queryBlockRows(1000, 32, 256), 32);
}

TEST(QueryBlockRowsTest, StaysBetweenTheLeastAndTheMost) {
    const test::NumberOfThreads one(1);
    EXPECT_EQ(queryBlockRows(0, 8, 64), 8);
    EXPECT_EQ(queryBlockRows(31, 8, 64), 8);
    EXPECT_EQ(queryBlockRows(256, 8, 64), 64);
    EXPECT_EQ(queryBlockRows(1'000'000, 8, 64), 64);
}

}  // namespace
}  // namespace marlo::detail
