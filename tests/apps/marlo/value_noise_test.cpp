// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/value_noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <set>

namespace marlo::app {
namespace {

TEST(LatticeHashTest, IsTheSameOnEveryMachine) {
    EXPECT_EQ(latticeHash(0, 0, 0), 0U);
    EXPECT_EQ(latticeHash(1, 2, 3), 0x25417B12U);
    EXPECT_EQ(latticeHash(-5, 70, 1000), 0x9E9937B7U);
}

TEST(LatticeHashTest, TellsNeighboursApart) {
    std::set<std::uint32_t> seen;
    for (int y = -20; y < 20; ++y) {
        for (int x = -20; x < 20; ++x) seen.insert(latticeHash(x, y, 7));
    }
    EXPECT_EQ(seen.size(), 1600U);
}

TEST(UnitFloatTest, StaysBelowOne) {
    EXPECT_EQ(unitFloat(0U), 0.0F);
    EXPECT_EQ(unitFloat(0x80000000U), 0.5F);
    EXPECT_LT(unitFloat(0xFFFFFFFFU), 1.0F);
}

TEST(FloorToIntTest, RoundsDownOnBothSidesOfZero) {
    EXPECT_EQ(floorToInt(2.75F), 2);
    EXPECT_EQ(floorToInt(-2.75F), -3);
    EXPECT_EQ(floorToInt(-3.0F), -3);
}

TEST(SmoothStepTest, RisesFromZeroToOne) {
    EXPECT_EQ(smoothStep(2.0F, 4.0F, 1.0F), 0.0F);
    EXPECT_EQ(smoothStep(2.0F, 4.0F, 3.0F), 0.5F);
    EXPECT_EQ(smoothStep(2.0F, 4.0F, 5.0F), 1.0F);
}

TEST(SmoothStepTest, FallsIfTheEndsAreSwapped) {
    EXPECT_EQ(smoothStep(4.0F, 2.0F, 1.0F), 1.0F);
    EXPECT_EQ(smoothStep(4.0F, 2.0F, 5.0F), 0.0F);
}

TEST(ValueNoiseTest, HasTheValuesOfTheLatticeAtIntegers) {
    EXPECT_EQ(valueNoise(-3.0F, 8.0F, 5), 2.0F * unitFloat(latticeHash(-3, 8, 5)) - 1.0F);
}

TEST(ValueNoiseTest, IsContinuousAcrossTheLattice) {
    for (int i = -10; i < 10; ++i) {
        const auto x = static_cast<float>(i);
        EXPECT_NEAR(valueNoise(x - 1e-4F, 0.4F, 5), valueNoise(x + 1e-4F, 0.4F, 5), 1e-3F);
        EXPECT_NEAR(valueNoise(0.3F, 0.4F, x - 1e-4F, 5), valueNoise(0.3F, 0.4F, x + 1e-4F, 5),
                    1e-3F);
    }
}

TEST(FractalNoiseTest, LeavesOutWhatIsFinerThanAPixel) {
    constexpr Octaves kOctaves{4.0F, 0.1F, 0.8F};
    constexpr Octaves kCoarseOnly{4.0F, 4.0F, 0.8F};
    EXPECT_EQ(fractalNoise(3.3F, 7.7F, 9, kOctaves, 100.0F), 0.0F);
    EXPECT_EQ(fractalNoise(3.3F, 7.7F, 9, kOctaves, 2.4F),
              fractalNoise(3.3F, 7.7F, 9, kCoarseOnly, 2.4F));
    EXPECT_NE(fractalNoise(3.3F, 7.7F, 9, kOctaves, 0.1F),
              fractalNoise(3.3F, 7.7F, 9, kCoarseOnly, 0.1F));
}

TEST(CellTest, FindsTheNearestPoint) {
    // A slow search over more of the unit squares.
    const auto pointOf = [](int column, int row, float& x, float& y) {
        const std::uint32_t hash = latticeHash(column, row, 11);
        x = static_cast<float>(column) + 0.15F + 0.7F * static_cast<float>(hash & 0xFFFFU) / 65536;
        y = static_cast<float>(row) + 0.15F + 0.7F * static_cast<float>(hash >> 16) / 65536;
        return hash;
    };
    for (int i = 0; i < 100; ++i) {
        const float x = 0.37F * static_cast<float>(i) - 15.0F;
        const float y = 0.11F * static_cast<float>(i) - 3.0F;
        float nearest = 1e9F;
        std::uint32_t hash = 0;
        for (int row = floorToInt(y) - 3; row <= floorToInt(y) + 3; ++row) {
            for (int column = floorToInt(x) - 3; column <= floorToInt(x) + 3; ++column) {
                float pointX = 0.0F;
                float pointY = 0.0F;
                const std::uint32_t h = pointOf(column, row, pointX, pointY);
                const float distance = std::hypot(pointX - x, pointY - y);
                if (distance < nearest) hash = h;
                nearest = std::min(nearest, distance);
            }
        }
        const Cell cell = cellAt(x, y, 11);
        ASSERT_NEAR(cell.toCentre, nearest, 1e-4F);
        ASSERT_EQ(cell.hash, hash);
        ASSERT_GE(cell.toBorder, 0.0F);
    }
}

}  // namespace
}  // namespace marlo::app
