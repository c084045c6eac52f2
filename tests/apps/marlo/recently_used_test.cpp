// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/recently_used.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace marlo::app {
namespace {

class RecentlyUsedTest : public testing::Test {
protected:
    std::shared_ptr<const std::string> get(std::int64_t id) {
        return cache_.get(
            id,
            [&](std::int64_t missing) {
                loaded_.push_back(missing);
                return std::string(10, static_cast<char>('0' + missing));
            },
            [](const std::string& value) { return value.size(); });
    }

    RecentlyUsed<std::string> cache_{35};  // three of 10 bytes
    std::vector<std::int64_t> loaded_;
};

TEST_F(RecentlyUsedTest, WhatFitsIsLoadedOnce) {
    for (const std::int64_t id : {1, 2, 3, 1, 2, 3}) {
        EXPECT_EQ(*get(id), std::string(10, static_cast<char>('0' + id)));
    }
    EXPECT_EQ(loaded_, (std::vector<std::int64_t>{1, 2, 3}));
}

TEST_F(RecentlyUsedTest, WhatWasUsedLongestAgoGoesFirst) {
    for (const std::int64_t id : {1, 2, 3, 1, 4, 1, 3, 2}) get(id);
    EXPECT_EQ(loaded_, (std::vector<std::int64_t>{1, 2, 3, 4, 2}));
}

TEST_F(RecentlyUsedTest, AValueOutlivesItsPlace) {
    const auto held = get(1);
    for (const std::int64_t id : {2, 3, 4, 5}) get(id);
    EXPECT_EQ(*held, "1111111111");
}

TEST_F(RecentlyUsedTest, TheLastTwoStayHoweverLarge) {
    cache_ = RecentlyUsed<std::string>(5);
    for (const std::int64_t id : {1, 2, 1, 2, 3, 2}) get(id);
    EXPECT_EQ(loaded_, (std::vector<std::int64_t>{1, 2, 3}));
}

}  // namespace
}  // namespace marlo::app
