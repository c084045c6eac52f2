// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/detail/nearest_query.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace marlo::detail {
namespace {

TEST(NearestQueryTest, ThereIsNoneBeforeAnOffer) {
    EXPECT_EQ(NearestQueryBits().index, 0xffffffffU);
    EXPECT_EQ(NearestQueryBits().distance, 0xffffffffU);
    EXPECT_EQ(NearestQueryFloat().index, 0xffffffffU);
    EXPECT_EQ(NearestQueryFloat().distance, std::numeric_limits<float>::max());
}

TEST(NearestQueryTest, TheLowestIndexOfTheNearestIsKeptInAnyOrderOfOffers) {
    std::vector<std::pair<float, std::uint32_t>> offers = {
        {2.0F, 0}, {1.0F, 3}, {1.0F, 5}, {1.0F, 9}, {3.0F, 1}};
    std::sort(offers.begin(), offers.end());
    do {
        NearestQueryFloat floats;
        NearestQueryBits bits;
        for (const auto& [distance, query] : offers) {
            floats.offer(distance, query);
            bits.offer(static_cast<std::uint32_t>(distance), query);
        }
        ASSERT_EQ(floats.index, 3U);
        ASSERT_EQ(floats.distance, 1.0F);
        ASSERT_EQ(bits.index, 3U);
        ASSERT_EQ(bits.distance, 1U);
    } while (std::next_permutation(offers.begin(), offers.end()));
}

TEST(NearestQueryTest, AnOfferOfNoQueryChangesNothing) {
    NearestQueryFloat nearest;
    nearest.offer(2.0F, 7);
    const NearestQueryFloat none;
    nearest.offer(none.distance, none.index);
    EXPECT_EQ(nearest.index, 7U);
    EXPECT_EQ(nearest.distance, 2.0F);
}

TEST(NearestQueryTest, NaNAndInfinityChangeNothing) {
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    NearestQueryFloat nearest;
    nearest.offer(kNaN, 0);
    nearest.offer(kInfinity, 1);
    EXPECT_EQ(nearest.index, 0xffffffffU);
    EXPECT_EQ(nearest.distance, std::numeric_limits<float>::max());
    nearest.offer(2.0F, 7);
    nearest.offer(kNaN, 0);
    nearest.offer(kInfinity, 1);
    EXPECT_EQ(nearest.index, 7U);
    EXPECT_EQ(nearest.distance, 2.0F);
}

}  // namespace
}  // namespace marlo::detail
