// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/coverage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace marlo {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr double kTiny = 1e-12;

std::vector<Keypoint> lattice(int columns, int rows, float step) {
    std::vector<Keypoint> keypoints;
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            keypoints.emplace_back(step * static_cast<float>(column),
                                   step * static_cast<float>(row));
        }
    }
    return keypoints;
}

std::vector<Keypoint> randomKeypoints(std::mt19937& random, std::size_t count, float width,
                                      float height) {
    std::uniform_real_distribution<float> x(-0.5F, width - 0.5F);
    std::uniform_real_distribution<float> y(-0.5F, height - 0.5F);
    std::vector<Keypoint> keypoints;
    for (std::size_t i = 0; i < count; ++i) {
        const float column = x(random);
        keypoints.emplace_back(column, y(random));
    }
    return keypoints;
}

double occupiedCells(const std::vector<Keypoint>& keypoints, int width, int height) {
    return coverage(keypoints, width, height).occupiedCells;
}

void expectEqual(const Coverage& a, const Coverage& b) {
    EXPECT_EQ(a.places, b.places);
    EXPECT_EQ(a.occupiedCells, b.occupiedCells);
    EXPECT_EQ(a.nearestNeighbourRatio, b.nearestNeighbourRatio);
}

TEST(CoverageTest, SquareLatticeHasARatioOfTwo) {
    // 1200 places on 40 x 30 cells of 3 x 3 pixels: neighbours are 3 apart, 1.5 are expected.
    const Coverage measured = coverage(lattice(40, 30, 3.0F), 120, 90);
    EXPECT_EQ(measured.places, 1200U);
    EXPECT_EQ(measured.occupiedCells, 1.0);
    EXPECT_NEAR(measured.nearestNeighbourRatio, 2.0, kTiny);
}

TEST(CoverageTest, HexagonalLatticeHasTheHighestRatio) {
    // Rows sqrt(3) / 2 of the distance apart, every other one shifted by half of it: a place has
    // 10 x 10 sqrt(3) / 2 pixels, which are 1000 x 866 for 10,000.
    std::vector<Keypoint> keypoints;
    for (int row = 0; row < 100; ++row) {
        for (int column = 0; column < 100; ++column) {
            keypoints.emplace_back(
                10.0F * static_cast<float>(column) + 5.0F * static_cast<float>(row % 2),
                static_cast<float>(row * 5.0 * std::sqrt(3.0)));
        }
    }
    EXPECT_NEAR(coverage(keypoints, 1000, 866).nearestNeighbourRatio,
                std::sqrt(2.0 / std::sqrt(3.0)) * 2.0, 1e-4);
}

TEST(CoverageTest, RandomPlacesHaveARatioOfOne) {
    std::mt19937 random(1);
    for (const std::size_t count : {100U, 1000U, 10000U}) {
        double sum = 0.0;
        constexpr int kDraws = 20;
        for (int draw = 0; draw < kDraws; ++draw) {
            sum +=
                coverage(randomKeypoints(random, count, 900, 900), 900, 900).nearestNeighbourRatio;
        }
        const double border = 0.4 / std::sqrt(static_cast<double>(count));
        EXPECT_NEAR(sum / kDraws, 1.0 + border, 0.025) << count;
    }
}

TEST(CoverageTest, RatioOfFewPlacesWorkedByHand) {
    // Nearest neighbours at 5, 5 and 10; 0.5 / sqrt(3 / 1200) = 10 is expected.
    const Coverage measured = coverage({{0, 0}, {3, 4}, {3, 14}}, 40, 30);
    EXPECT_EQ(measured.places, 3U);
    EXPECT_NEAR(measured.nearestNeighbourRatio, 20.0 / 3.0 / 10.0, kTiny);
    // Cells of 2 x 1.5 pixels.
    EXPECT_EQ(measured.occupiedCells, 3 / 400.0);
}

TEST(CoverageTest, NoKeypointsCoverNothing) {
    expectEqual(coverage({}, 40, 30), {0, 0.0, 0.0});
}

TEST(CoverageTest, OneKeypointOccupiesACellAndHasNoNeighbour) {
    expectEqual(coverage({{5, 5}}, 40, 30), {1, 1 / 400.0, 0.0});
}

TEST(CoverageTest, AllKeypointsAtOnePlaceAreOnePlace) {
    expectEqual(coverage(std::vector<Keypoint>(1000, {5, 5}), 40, 30), {1, 1 / 400.0, 0.0});
}

TEST(CoverageTest, DirectionsOfOnePlaceCountOnce) {
    std::vector<Keypoint> keypoints = lattice(40, 30, 3.0F);
    const Coverage once = coverage(keypoints, 120, 90);
    for (int i = 0; i < 1200; i += 2) {
        Keypoint another = keypoints[static_cast<std::size_t>(i)];
        another.angle = 1.0F;
        another.response = 7.0F;
        keypoints.push_back(another);
    }
    expectEqual(coverage(keypoints, 120, 90), once);
    expectEqual(coverage({{0.0F, -0.0F}, {-0.0F, 0.0F}}, 40, 30), {1, 1 / 400.0, 0.0});
}

TEST(CoverageTest, PlacesAFloatApartAreTwo) {
    const float next = std::nextafter(5.0F, 6.0F);
    const Coverage measured = coverage({{5, 5}, {next, 5}}, 40, 30);
    EXPECT_EQ(measured.places, 2U);
    EXPECT_GT(measured.nearestNeighbourRatio, 0.0);
    const float smallest = std::numeric_limits<float>::denorm_min();
    EXPECT_GT(coverage({{0, 0}, {smallest, 0}}, 40, 30).nearestNeighbourRatio, 0.0);
}

TEST(CoverageTest, CrowdedPlacesHaveARatioNearZeroAndOneCell) {
    std::vector<Keypoint> keypoints = lattice(30, 30, 0.25F);
    const Coverage measured = coverage(keypoints, 1000, 1000);
    EXPECT_EQ(measured.occupiedCells, 1 / 400.0);
    EXPECT_NEAR(measured.nearestNeighbourRatio, 0.25 / (0.5 / std::sqrt(900 / 1e6)), kTiny);
}

TEST(CoverageTest, CellsCountOnce) {
    EXPECT_EQ(occupiedCells({{5, 5}, {6, 6}}, 600, 400), 1 / 400.0);
    EXPECT_EQ(occupiedCells({{5, 5}, {599, 399}}, 600, 400), 2 / 400.0);
}

TEST(CoverageTest, CellsBeginAtTheEdgesOfPixels) {
    // Cells of 2 x 2 pixels: the first ends at 1.5.
    EXPECT_EQ(occupiedCells({{0, 0}, {1.4375F, 0}}, 40, 40), 1 / 400.0);
    EXPECT_EQ(occupiedCells({{0, 0}, {1.5F, 0}}, 40, 40), 2 / 400.0);
    EXPECT_EQ(occupiedCells({{0, 0}, {0, 1.5F}}, 40, 40), 2 / 400.0);
}

TEST(CoverageTest, GridCanHaveAnySize) {
    const std::vector<Keypoint> keypoints = lattice(40, 30, 3.0F);
    EXPECT_EQ(coverage(keypoints, 120, 90, 1).occupiedCells, 1.0);
    EXPECT_EQ(coverage({{0, 0}, {100, 80}}, 120, 90, 2).occupiedCells, 0.5);
    // One cell each, of more than there is memory for.
    constexpr int kMost = std::numeric_limits<int>::max();
    EXPECT_DOUBLE_EQ(coverage(keypoints, 120, 90, kMost).occupiedCells,
                     1200.0 / static_cast<double>(kMost) / static_cast<double>(kMost));
}

TEST(CoverageTest, LargestImageIsMeasured) {
    constexpr int kMost = std::numeric_limits<int>::max();
    const Coverage measured = coverage({{0, 0}, {2e9F, 2e9F}, {3e9F, 0}}, kMost, kMost, kMost);
    EXPECT_EQ(measured.places, 2U);
    EXPECT_NEAR(measured.nearestNeighbourRatio,
                std::sqrt(8.0) * 1e9 / (0.5 / std::sqrt(2.0) * kMost), 1e-9);
}

TEST(CoverageTest, ImageOfOnePixelIsMeasured) {
    const Coverage measured = coverage({{-0.5F, 0}, {0.25F, 0}}, 1, 1);
    EXPECT_NEAR(measured.nearestNeighbourRatio, 0.75 / (0.5 / std::sqrt(2.0)), kTiny);
}

TEST(CoverageTest, KeypointsOutsideOfTheImageAreLeftOut) {
    EXPECT_EQ(coverage({{-0.5F, -0.5F}, {39.4375F, 29.4375F}}, 40, 30).places, 2U);
    const std::vector<Keypoint> inside = {{3, 4}, {20, 20}, {39, 29}};
    std::vector<Keypoint> all = inside;
    for (const float value : {-0.625F, -1e30F, 1e30F, kNaN, kInfinity, -kInfinity}) {
        all.emplace_back(value, 5.0F);
        all.emplace_back(5.0F, value);
    }
    all.emplace_back(39.5F, 5.0F);
    all.emplace_back(5.0F, 29.5F);
    expectEqual(coverage(all, 40, 30), coverage(inside, 40, 30));
    EXPECT_EQ(coverage({{kNaN, kNaN}}, 40, 30).places, 0U);
}

TEST(CoverageTest, ImagesWithoutPixelsAreRefused) {
    for (const auto& [width, height] : std::vector<std::pair<int, int>>{
             {0, 10}, {10, 0}, {-1, 10}, {10, std::numeric_limits<int>::min()}}) {
        try {
            static_cast<void>(coverage({{0, 0}}, width, height));
            FAIL() << width << " x " << height;
        } catch (const std::invalid_argument& error) {
            EXPECT_EQ(error.what(), std::string("coverage: the image has no pixels"));
        }
    }
}

TEST(CoverageTest, GridsWithoutCellsAreRefused) {
    for (const int gridSize : {0, -1, std::numeric_limits<int>::min()}) {
        try {
            static_cast<void>(coverage({}, 10, 10, gridSize));
            FAIL() << gridSize;
        } catch (const std::invalid_argument& error) {
            EXPECT_EQ(error.what(), std::string("coverage: the grid has no cells"));
        }
    }
}

// The definition, place by place.
Coverage plainCoverage(const std::vector<Keypoint>& keypoints, int width, int height,
                       int gridSize) {
    std::set<std::pair<double, double>> places;
    std::set<std::pair<int, int>> cells;
    for (const Keypoint& keypoint : keypoints) {
        const double x = static_cast<double>(keypoint.x);
        const double y = static_cast<double>(keypoint.y);
        if (!(x >= -0.5 && x < width - 0.5 && y >= -0.5 && y < height - 0.5)) continue;
        places.emplace(x, y);
        cells.emplace(static_cast<int>(std::floor((x + 0.5) / width * gridSize)),
                      static_cast<int>(std::floor((y + 0.5) / height * gridSize)));
    }
    double sum = 0.0;
    for (const auto& [x, y] : places) {
        double nearest = std::numeric_limits<double>::infinity();
        for (const auto& [otherX, otherY] : places) {
            if (x == otherX && y == otherY) continue;
            nearest = std::min(nearest, std::hypot(otherX - x, otherY - y));
        }
        sum += nearest;
    }
    const auto count = static_cast<double>(places.size());
    return {
        places.size(), static_cast<double>(cells.size()) / (gridSize * gridSize),
        places.size() < 2 ? 0.0 : sum / count / (0.5 / std::sqrt(count / (1.0 * width * height)))};
}

void expectAsDefined(const std::vector<Keypoint>& keypoints, int width, int height, int gridSize) {
    const Coverage measured = coverage(keypoints, width, height, gridSize);
    const Coverage defined = plainCoverage(keypoints, width, height, gridSize);
    EXPECT_EQ(measured.places, defined.places);
    EXPECT_DOUBLE_EQ(measured.occupiedCells, defined.occupiedCells);
    EXPECT_NEAR(measured.nearestNeighbourRatio, defined.nearestNeighbourRatio,
                1e-10 * defined.nearestNeighbourRatio);
}

TEST(CoverageTest, AgreesWithItsDefinition) {
    std::mt19937 random(2);
    for (std::size_t round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        const std::size_t count = round % 100;
        // Some of them outside.
        std::vector<Keypoint> keypoints = randomKeypoints(random, count, 70, 50);
        if (round % 3 == 1) {  // on pixels: many at one place, many at equal distances
            for (Keypoint& keypoint : keypoints) {
                keypoint = {std::round(keypoint.x / 4), std::round(keypoint.y / 4)};
            }
        }
        if (round % 3 == 2) {  // most of them in a corner or on a line
            for (Keypoint& keypoint : keypoints) {
                if (random() % 10 != 0) keypoint.x = round % 2 == 0 ? 7.0F : keypoint.x / 1000;
            }
        }
        expectAsDefined(keypoints, 64, 48, 16);
    }
    expectAsDefined(randomKeypoints(random, 2000, 640, 480), 640, 480, 32);
}

TEST(CoverageTest, OrderOfKeypointsChangesNoBit) {
    std::mt19937 random(3);
    std::vector<Keypoint> keypoints = randomKeypoints(random, 3000, 640, 480);
    const Coverage first = coverage(keypoints, 640, 480);
    for (int round = 0; round < 5; ++round) {
        std::shuffle(keypoints.begin(), keypoints.end(), random);
        expectEqual(coverage(keypoints, 640, 480), first);
    }
}

// Ten thousand million comparisons if every place were compared with all others.
TEST(CoverageTest, HundredThousandPlacesAreQuicklyMeasuredHoweverTheyLie) {
    std::mt19937 random(4);
    std::vector<Keypoint> keypoints = randomKeypoints(random, 100000, 6000, 4000);
    EXPECT_NEAR(coverage(keypoints, 6000, 4000).nearestNeighbourRatio, 1.0, 0.01);
    // In a millionth of the image, but for a few.
    std::vector<Keypoint> corner = keypoints;
    for (std::size_t i = 10; i < corner.size(); ++i) {
        corner[i].x *= 0.001F;
        corner[i].y *= 0.001F;
    }
    EXPECT_LT(coverage(corner, 6000, 4000).nearestNeighbourRatio, 0.02);
    std::vector<Keypoint> upright = keypoints;
    for (Keypoint& keypoint : upright) keypoint.x = 3.0F;
    EXPECT_LT(coverage(upright, 6000, 4000).nearestNeighbourRatio, 0.01);
}

}  // namespace
}  // namespace marlo
