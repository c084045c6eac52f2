// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/detail/extremum.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

#include "references/sift_reference.h"
#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

using Eigen::Index;

std::optional<Extremum> refined(const reference::Differences& differences, int row, int col,
                                int level) {
    const auto at = [&](int s, int r, int c) {
        return differences[static_cast<std::size_t>(s)](r, c);
    };
    return interpKeyPoint(at, static_cast<int>(differences[0].rows()),
                          static_cast<int>(differences[0].cols()), Candidate{row, col, level});
}

// value - (the squared distance from an extremum), which a fit hits exactly.
reference::Differences paraboloid(Index rows, Index cols, float level, float row, float col,
                                  float value, float curvature = 1.0F) {
    reference::Differences differences;
    for (std::size_t s = 0; s < 5; ++s) {
        differences[s].resize(rows, cols);
        for (Index r = 0; r < rows; ++r) {
            for (Index c = 0; c < cols; ++c) {
                const float ds = static_cast<float>(s) - level;
                const float dr = static_cast<float>(r) - row;
                const float dc = static_cast<float>(c) - col;
                differences[s](r, c) = value - curvature * (ds * ds + dr * dr + dc * dc);
            }
        }
    }
    return differences;
}

TEST(InterpKeyPointTest, HitsTheTopOfAParaboloid) {
    const auto extremum = refined(paraboloid(20, 20, 2.25F, 9.5F, 11.625F, 3.0F), 9, 12, 2);
    ASSERT_TRUE(extremum.has_value());
    EXPECT_EQ(extremum->row, 9.5F);
    EXPECT_EQ(extremum->col, 11.625F);
    EXPECT_FLOAT_EQ(extremum->sigma, 1.6F * std::exp2(2.25F / 3.0F));
    EXPECT_EQ(extremum->value, 3.0F);
    EXPECT_EQ(extremum->pixelRow, 9);
    EXPECT_EQ(extremum->pixelCol, 12);
    EXPECT_EQ(extremum->level, 2);
}

TEST(InterpKeyPointTest, MovesFiveTimesAtMost) {
    // One more move would be needed from five pixels and more away.
    for (int distance = 0; distance <= 6; ++distance) {
        const auto down = refined(
            paraboloid(30, 30, 2.0F, static_cast<float>(12 + distance), 15.0F, 1.0F), 12, 15, 2);
        ASSERT_TRUE(down.has_value());
        EXPECT_EQ(down->pixelRow, std::min(12 + distance, 17));
        EXPECT_EQ(down->row, static_cast<float>(12 + distance));
        const auto left = refined(
            paraboloid(30, 30, 2.0F, 12.0F, static_cast<float>(15 - distance), 1.0F), 12, 15, 2);
        ASSERT_TRUE(left.has_value());
        EXPECT_EQ(left->pixelCol, std::max(15 - distance, 10));
        EXPECT_EQ(left->col, static_cast<float>(15 - distance));
    }
    // Seven are too far: two are left.
    EXPECT_FALSE(refined(paraboloid(30, 30, 2.0F, 19.0F, 15.0F, 1.0F), 12, 15, 2).has_value());
}

TEST(InterpKeyPointTest, MovesInBothDirectionsAtOnce) {
    const auto extremum = refined(paraboloid(30, 30, 2.0F, 16.0F, 11.0F, 1.0F), 12, 15, 2);
    ASSERT_TRUE(extremum.has_value());
    EXPECT_EQ(extremum->pixelRow, 16);
    EXPECT_EQ(extremum->pixelCol, 11);
}

TEST(InterpKeyPointTest, MovesOnlyBeyondSixTenths) {
    EXPECT_EQ(refined(paraboloid(20, 20, 2.0F, 9.59F, 9.0F, 1.0F), 9, 9, 2)->pixelRow, 9);
    EXPECT_EQ(refined(paraboloid(20, 20, 2.0F, 9.61F, 9.0F, 1.0F), 9, 9, 2)->pixelRow, 10);
    EXPECT_EQ(refined(paraboloid(20, 20, 2.0F, 8.39F, 9.0F, 1.0F), 9, 9, 2)->pixelRow, 8);
    EXPECT_EQ(refined(paraboloid(20, 20, 2.0F, 9.0F, 8.41F, 1.0F), 9, 9, 2)->pixelCol, 9);
    EXPECT_EQ(refined(paraboloid(20, 20, 2.0F, 9.0F, 9.61F, 1.0F), 9, 9, 2)->pixelCol, 10);
}

TEST(InterpKeyPointTest, StopsThreePixelsFromTheTopAndTwoFromTheBottom) {
    // Offsets of one remain.
    const auto topLeft = refined(paraboloid(20, 22, 2.0F, 2.0F, 2.0F, 1.0F), 5, 5, 2);
    ASSERT_TRUE(topLeft.has_value());
    EXPECT_EQ(topLeft->pixelRow, 3);
    EXPECT_EQ(topLeft->pixelCol, 3);
    EXPECT_EQ(topLeft->row, 2.0F);
    const auto bottomRight = refined(paraboloid(20, 22, 2.0F, 18.0F, 20.0F, 1.0F), 14, 16, 2);
    ASSERT_TRUE(bottomRight.has_value());
    EXPECT_EQ(bottomRight->pixelRow, 17);
    EXPECT_EQ(bottomRight->pixelCol, 19);
    EXPECT_EQ(bottomRight->row, 18.0F);
}

TEST(InterpKeyPointTest, NeverChangesTheLevel) {
    for (const float level : {0.5F, 1.0F, 3.0F, 3.5F}) {
        const auto extremum = refined(paraboloid(20, 20, level, 9.0F, 9.0F, 1.0F), 9, 9, 2);
        ASSERT_TRUE(extremum.has_value()) << level;
        EXPECT_EQ(extremum->level, 2);
        EXPECT_FLOAT_EQ(extremum->sigma, 1.6F * std::exp2(level / 3.0F));
    }
    EXPECT_FALSE(refined(paraboloid(20, 20, 3.75F, 9.0F, 9.0F, 1.0F), 9, 9, 2).has_value());
    EXPECT_FALSE(refined(paraboloid(20, 20, 0.25F, 9.0F, 9.0F, 1.0F), 9, 9, 2).has_value());
}

TEST(InterpKeyPointTest, ValuesOfATenThousandthAndLessAreRejected) {
    for (const float sign : {1.0F, -1.0F}) {
        const auto accepted = [&](float value) {
            const float curvature = sign * 0x1p-10F;
            return refined(paraboloid(20, 20, 2.0F, 9.0F, 9.0F, sign * value, curvature), 9, 9, 2)
                .has_value();
        };
        EXPECT_TRUE(accepted(0.000101F));
        EXPECT_FALSE(accepted(0.0001F));
        EXPECT_FALSE(accepted(0.000099F));
        EXPECT_FALSE(accepted(0.0F));
    }
}

TEST(InterpKeyPointTest, FlatAndSingularSurroundingsAreRejected) {
    reference::Differences differences;
    differences.fill(FloatImage::Constant(20, 20, 1.0F));
    EXPECT_FALSE(refined(differences, 9, 9, 2).has_value());
    // A valley: no curvature along it.
    for (std::size_t s = 0; s < 5; ++s) {
        differences[s].setConstant(static_cast<float>(s) * static_cast<float>(s));
        differences[s].col(9).array() -= 1.0F;
    }
    EXPECT_FALSE(refined(differences, 9, 9, 2).has_value());
}

TEST(InterpKeyPointTest, NeighboursThatAreNoNumbersAreRejected) {
    for (std::size_t s = 1; s <= 3; ++s) {
        for (Index r = 8; r <= 10; ++r) {
            reference::Differences differences = paraboloid(20, 20, 2.0F, 9.0F, 9.0F, 1.0F);
            differences[s](r, 9) = std::numeric_limits<float>::quiet_NaN();
            EXPECT_FALSE(refined(differences, 9, 9, 2).has_value())
                << "in level " << s << ", row " << r;
        }
    }
}

// Bit for bit, also where pivots tie and where the search runs into borders.
TEST(InterpKeyPointTest, AgreesWithTheReference) {
    int accepted = 0;
    int moved = 0;
    for (std::uint32_t seed = 1; seed <= 3000; ++seed) {
        test::Random random(seed);
        const auto rows = static_cast<Index>(random.uniform(11.0F, 14.0F));
        const auto cols = static_cast<Index>(random.uniform(11.0F, 14.0F));
        // A bowl somewhere in the image, or near it, under noise of few different values.
        reference::Differences differences = paraboloid(
            rows, cols, random.uniform(1.0F, 3.0F), random.uniform(0.0F, static_cast<float>(rows)),
            random.uniform(0.0F, static_cast<float>(cols)), 1.0F,
            std::floor(random.uniform(0.0F, 3.0F)));
        const float steps = seed % 2 == 0 ? 4.0F : 1000.0F;
        for (FloatImage& difference : differences) {
            for (Index i = 0; i < difference.size(); ++i) {
                const float noise = random.uniform(-1.5F, 1.5F);
                difference.data()[i] = std::round(steps * (difference.data()[i] + noise)) / steps;
            }
        }
        reference::Extremum expected;
        expected.level = 1 + static_cast<int>(seed % 3);
        expected.row = random.uniform(0.0F, 1.0F) < 0.5F ? 5 : rows - 6;
        expected.col = random.uniform(0.0F, 1.0F) < 0.5F ? 5 : cols - 6;
        const auto extremum = refined(differences, static_cast<int>(expected.row),
                                      static_cast<int>(expected.col), expected.level);
        const bool isAccepted = reference::refine(differences, expected);
        ASSERT_EQ(extremum.has_value(), isAccepted) << seed;
        if (!isAccepted) {
            continue;
        }
        ++accepted;
        moved += expected.moves > 1 ? 1 : 0;
        EXPECT_EQ(extremum->pixelRow, expected.row) << seed;
        EXPECT_EQ(extremum->pixelCol, expected.col) << seed;
        EXPECT_EQ(extremum->row, static_cast<float>(expected.row) + expected.rowOffset) << seed;
        EXPECT_EQ(extremum->col, static_cast<float>(expected.col) + expected.colOffset) << seed;
        EXPECT_EQ(extremum->sigma, expected.sigma()) << seed;
        EXPECT_EQ(extremum->value, expected.value) << seed;
    }
    EXPECT_GT(accepted, 500);
    EXPECT_GT(moved, 100);
}

}  // namespace
}  // namespace marlo::detail
