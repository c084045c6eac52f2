// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/pair_order.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace marlo::app {
namespace {

std::set<PairOfIds> allOf(const std::vector<std::int64_t>& ids) {
    std::set<PairOfIds> pairs;
    for (const std::int64_t a : ids) {
        for (const std::int64_t b : ids) {
            if (a < b) pairs.insert({a, b});
        }
    }
    return pairs;
}

TEST(PairOrderTest, PairsOfOneBlockWithAnotherAreTogether) {
    // Blocks {2, 3} and {5, 9}.
    const std::vector<PairOfIds> expected{{2, 3}, {2, 5}, {2, 9}, {3, 5}, {3, 9}, {5, 9}};
    EXPECT_EQ(inBlocks(allOf({2, 3, 5, 9}), 2), expected);
    // Blocks {2}, {3}, {5}, {9} and one block give the order of the ids.
    EXPECT_EQ(inBlocks(allOf({2, 3, 5, 9}), 1), expected);
    EXPECT_EQ(inBlocks(allOf({2, 3, 5, 9}), 100), expected);
    // Blocks {1, 2}, {3, 4}, {5}.
    const std::vector<PairOfIds> five{{1, 2}, {1, 3}, {1, 4}, {2, 3}, {2, 4},
                                      {1, 5}, {2, 5}, {3, 4}, {3, 5}, {4, 5}};
    EXPECT_EQ(inBlocks(allOf({1, 2, 3, 4, 5}), 2), five);
}

TEST(PairOrderTest, NoPairIsLostOrAdded) {
    const std::set<PairOfIds> pairs = allOf({1, 4, 5, 8, 9, 11, 12, 20, 21, 22, 30});
    for (const std::size_t inMemory : {std::size_t{0}, std::size_t{1}, std::size_t{3}}) {
        const std::vector<PairOfIds> ordered = inBlocks(pairs, inMemory);
        EXPECT_EQ(std::set<PairOfIds>(ordered.begin(), ordered.end()), pairs);
        EXPECT_EQ(ordered.size(), pairs.size());
    }
}

TEST(PairOrderTest, NoPairsAreNone) {
    EXPECT_TRUE(inBlocks({}, 4).empty());
}

}  // namespace
}  // namespace marlo::app
