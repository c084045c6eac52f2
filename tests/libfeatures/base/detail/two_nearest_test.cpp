// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/detail/two_nearest.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace marlo::detail {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

/// After offers of these distances, those of rows 0, 1 and so on.
template <typename Distance>
TwoNearest<Distance> offered(const std::vector<Distance>& distances) {
    TwoNearest<Distance> nearest;
    std::uint32_t row = 0;
    for (const Distance distance : distances) nearest.offer(distance, row++);
    return nearest;
}

void expectNearest(const TwoNearestFloat& nearest, float best, float second, std::uint32_t index) {
    EXPECT_EQ(nearest.best, best);
    EXPECT_EQ(nearest.second, second);
    EXPECT_EQ(nearest.index, index);
}

TEST(TwoNearestTest, ThereAreNoneBeforeAnOffer) {
    constexpr float kLargest = std::numeric_limits<float>::max();
    expectNearest(TwoNearestFloat(), kLargest, kLargest, 0xffffffffU);
    EXPECT_EQ(TwoNearestBits().best, std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(TwoNearestBits().second, std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(TwoNearestBits().index, 0xffffffffU);
}

TEST(TwoNearestTest, ASingleRowHasNoSecond) {
    expectNearest(offered<float>({4.0F}), 4.0F, TwoNearestFloat::kNone, 0);
}

TEST(TwoNearestTest, ANearerRowMakesTheNearestTheSecond) {
    expectNearest(offered<float>({4.0F, 9.0F, 3.0F}), 3.0F, 4.0F, 2);
}

TEST(TwoNearestTest, ARowBetweenTheTwoBecomesTheSecond) {
    expectNearest(offered<float>({4.0F, 9.0F, 5.0F}), 4.0F, 5.0F, 0);
}

TEST(TwoNearestTest, ARowBeyondTheTwoChangesNothing) {
    expectNearest(offered<float>({4.0F, 5.0F, 9.0F}), 4.0F, 5.0F, 0);
}

TEST(TwoNearestTest, OfEqualDistancesTheFirstIsTheNearestAndTheNextTheSecond) {
    expectNearest(offered<float>({9.0F, 4.0F, 4.0F, 4.0F}), 4.0F, 4.0F, 1);
    expectNearest(offered<float>({0.0F, 0.0F}), 0.0F, 0.0F, 0);
    const TwoNearestBits bits = offered<std::uint64_t>({9, 4, 4, 4});
    EXPECT_EQ(bits.best, 4U);
    EXPECT_EQ(bits.second, 4U);
    EXPECT_EQ(bits.index, 1U);
}

TEST(TwoNearestTest, NaNAndInfinityChangeNothing) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    expectNearest(offered<float>({kNaN, kInfinity}), TwoNearestFloat::kNone, TwoNearestFloat::kNone,
                  0xffffffffU);
    expectNearest(offered<float>({kNaN, 4.0F, kNaN, kInfinity, 5.0F, kNaN}), 4.0F, 5.0F, 1);
}

}  // namespace
}  // namespace marlo::detail
