// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/detail/point_grid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

using test::Random;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

TEST(SquaredDistanceTest, IsCutOffToWholePixels) {
    EXPECT_EQ(squaredDistance(0, 0, 1.5F, 1.0F), 3U);
    EXPECT_EQ(squaredDistance(2.0F, 1.0F, 1.25F, 0.5F), 0U);
}

TEST(SquaredDistanceTest, KeepsTheLow32Bits) {
    EXPECT_EQ(squaredDistance(0, 0, 65536.0F, 0), 0U);
    EXPECT_EQ(squaredDistance(0, 0, 65536.0F, 16384.0F), 268435456U);
}

TEST(SquaredDistanceTest, WhatHasNo64BitValueIsZero) {
    EXPECT_EQ(squaredDistance(0, 0, 4e9F, 0), 0U);
    EXPECT_EQ(squaredDistance(0, 0, kInfinity, 0), 0U);
    EXPECT_EQ(squaredDistance(0, 0, kNaN, 0), 0U);
}

TEST(PointGridTest, HoldsWhatIsFiniteAndNotTooFarApart) {
    EXPECT_TRUE(PointGrid::canHold(boundsOf({{-10, 5}, {65000, 8000}})));
    EXPECT_FALSE(PointGrid::canHold(boundsOf({{0, 0}, {65536, 0}})));
    EXPECT_FALSE(PointGrid::canHold(boundsOf({{0, 0}, {50000, 50000}})));
    EXPECT_FALSE(PointGrid::canHold(boundsOf({{0, 0}, {kNaN, 0}, {1, 1}})));
    EXPECT_FALSE(PointGrid::canHold(boundsOf({{0, kInfinity}})));
    EXPECT_FALSE(PointGrid::canHold(boundsOf({{1, 1}, {0, -kInfinity}})));
}

// Asks grids of several sizes for the nearest of all points before each.
void expectNearestOfEach(const std::vector<Keypoint>& points) {
    for (const std::size_t held : {points.size() / 7, points.size()}) {
        const PointGrid grid(points, boundsOf(points), held);
        for (std::size_t i = 1; i < points.size(); ++i) {
            const std::size_t count = std::min(i, held);
            std::uint32_t nearest = std::numeric_limits<std::uint32_t>::max();
            for (std::size_t j = 0; j < count; ++j) {
                nearest = std::min(
                    nearest, squaredDistance(points[i].x, points[i].y, points[j].x, points[j].y));
            }
            ASSERT_EQ(grid.nearest(points[i], count), nearest) << i;
            ASSERT_LT(grid.cellOf(points[i]), grid.numberOfCells());
        }
    }
}

std::vector<Keypoint> spread(std::size_t count, float width, float height, std::uint32_t seed) {
    Random random(seed);
    std::vector<Keypoint> points;
    for (std::size_t i = 0; i < count; ++i) {
        points.emplace_back(random.uniform(0, width), random.uniform(0, height));
    }
    return points;
}

TEST(PointGridTest, FindsTheNearestOfPointsThatAreSpread) {
    for (std::uint32_t seed = 0; seed < 40; ++seed) {
        expectNearestOfEach(spread(400, 3000, 2000, seed));
    }
}

TEST(PointGridTest, FindsTheNearestInLinesAndInOnePlace) {
    expectNearestOfEach(spread(400, 3000, 0, 1));
    expectNearestOfEach(spread(400, 0, 3000, 2));
    expectNearestOfEach(spread(400, 0, 0, 3));
    expectNearestOfEach(spread(400, 0.01F, 0.02F, 4));
    expectNearestOfEach(spread(400, 3000, 1e-6F, 5));
}

TEST(PointGridTest, FindsTheNearestInAndBetweenClusters) {
    for (std::uint32_t seed = 0; seed < 40; ++seed) {
        Random random(seed);
        std::vector<Keypoint> points;
        for (int i = 0; i < 300; ++i) {
            const auto cluster = static_cast<float>(random.below(4));
            points.emplace_back(-20000.0F + 13000 * cluster + random.uniform(0, 30),
                                9000 * cluster + random.uniform(0, 30));
        }
        expectNearestOfEach(points);
    }
}

TEST(PointGridTest, FindsTheNearestOnTheCornersOfCells) {
    for (std::uint32_t seed = 0; seed < 20; ++seed) {
        Random random(seed);
        std::vector<Keypoint> points;
        for (int i = 0; i < 400; ++i) {
            points.emplace_back(64 * static_cast<float>(random.below(65)),
                                64 * static_cast<float>(random.below(65)));
        }
        expectNearestOfEach(points);
    }
}

}  // namespace
}  // namespace marlo::detail
