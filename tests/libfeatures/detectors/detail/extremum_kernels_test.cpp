// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/detail/extremum_kernels.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "references/sift_reference.h"
#include "utilities/kernel_parameters.h"
#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

using Eigen::Index;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// Five differences of three rows.
using ThreeRows = reference::Differences;

// Few different values, so that many neighbours are equal.
ThreeRows fewValues(Index cols, std::uint32_t seed, float low, float high) {
    ThreeRows differences;
    for (FloatImage& difference : differences) {
        difference = test::noiseImage(3, cols, seed++, low, high);
        difference = difference.unaryExpr([](float value) { return std::floor(value); });
    }
    return differences;
}

std::vector<std::uint8_t> marksOf(ExtremumFunction* kernel, const ThreeRows& differences) {
    DifferenceRows rows;
    for (std::size_t i = 0; i < 5; ++i) {
        for (Index r = 0; r < 3; ++r) {
            rows[i][r] = differences[i].data() + r * differences[i].cols();
        }
    }
    std::vector<std::uint8_t> marks(static_cast<std::size_t>(differences[0].cols()), 0xff);
    kernel(rows, static_cast<int>(differences[0].cols()), marks.data());
    return marks;
}

TEST(MarkExtremaTest, MarksWhatTheReferenceFindsUnlessItIsFlat) {
    int marked = 0;
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        ThreeRows differences = fewValues(20, seed * 10, -1.5F, 2.0F);
        if (seed % 4 == 0) {
            differences[seed % 5](1, static_cast<Index>(seed % 20)) = kNaN;
        }
        const std::vector<std::uint8_t> marks = marksOf(markExtrema, differences);
        for (Index c = 0; c < 20; ++c) {
            unsigned expected = 0;
            for (std::size_t s = 1; s <= 3 && c >= 5 && c < 15; ++s) {
                const float value = differences[s](1, c);
                bool found = true;
                bool flat = true;
                for (std::size_t i = s - 1; i <= s + 1; ++i) {
                    found = found && reference::isExtremumIn(differences[i], value, 1, c);
                    const auto window = differences[i].block(0, c - 1, 3, 3).array();
                    flat = flat && (window == window(0, 0)).all();
                }
                expected |= found && !flat ? 1U << (s - 1) : 0U;
            }
            EXPECT_EQ(marks[static_cast<std::size_t>(c)], expected) << seed << " at " << c;
            marked += expected != 0 ? 1 : 0;
        }
    }
    EXPECT_GT(marked, 20);
}

TEST(MarkExtremaTest, FlatNeighbourhoodsAreNotMarked) {
    ThreeRows differences = fewValues(11, 1, 0.0F, 1.0F);
    EXPECT_EQ(marksOf(markExtrema, differences)[5], 0);
    differences[1](0, 4) = 1.0F;
    EXPECT_EQ(marksOf(markExtrema, differences)[5], 0b11);
}

class ExtremumKernelTest : public test::KernelTest<ExtremumFunction> {};

TEST_P(ExtremumKernelTest, MarksWhatTheDefinitionMarks) {
    for (Index cols = 11; cols <= 60; ++cols) {
        for (std::uint32_t seed = 1; seed <= 10; ++seed) {
            for (const float high : {1.0F, 2.0F, 1000.0F}) {
                const ThreeRows differences = fewValues(cols, seed, -0.5F * high, high);
                EXPECT_EQ(marksOf(GetParam().run, differences), marksOf(markExtrema, differences))
                    << cols << " columns, seed " << seed;
            }
        }
    }
}

TEST_P(ExtremumKernelTest, ZeroIsAMinimumAndNoMaximum) {
    for (const float zero : {0.0F, -0.0F}) {
        ThreeRows differences;
        differences.fill(FloatImage::Constant(3, 40, 1.0F));
        differences[2](1, 17) = zero;
        EXPECT_EQ(marksOf(GetParam().run, differences)[17] & 0b010, 0b010);
        differences.fill(FloatImage::Constant(3, 40, -1.0F));
        differences[2](1, 17) = zero;
        EXPECT_EQ(marksOf(GetParam().run, differences)[17] & 0b010, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryKernelOfThisBuild, ExtremumKernelTest,
                         test::everyKernel(extremumKernels()), test::KernelName());

class DifferenceKernelTest : public test::KernelTest<DifferenceFunction> {
protected:
    struct Result {
        bool hasNan = false;
        std::array<std::vector<float>, 5> differences;
    };
    static Result subtracted(DifferenceFunction* kernel, const FloatImage& levels) {
        Result result;
        const float* from[kLevels];
        float* to[kDifferences];
        for (Index i = 0; i < 6; ++i) {
            from[i] = levels.data() + i * levels.cols();
        }
        for (std::size_t i = 0; i < 5; ++i) {
            result.differences[i].assign(static_cast<std::size_t>(levels.cols()) + 1, -77.0F);
            to[i] = result.differences[i].data();
        }
        result.hasNan = kernel(from, to, static_cast<int>(levels.cols()));
        return result;
    }
};

TEST_P(DifferenceKernelTest, SubtractsTheMoreBlurredFromTheLessBlurred) {
    for (Index cols = 1; cols <= 40; ++cols) {
        const FloatImage levels = test::noiseImage(6, cols, 1);
        const Result result = subtracted(GetParam().run, levels);
        EXPECT_FALSE(result.hasNan);
        for (std::size_t i = 0; i < 5; ++i) {
            for (Index c = 0; c < cols; ++c) {
                const auto level = static_cast<Index>(i);
                EXPECT_EQ(result.differences[i][static_cast<std::size_t>(c)],
                          levels(level, c) - levels(level + 1, c));
            }
            EXPECT_EQ(result.differences[i].back(), -77.0F);
        }
    }
}

TEST_P(DifferenceKernelTest, NoticesANaNInAnyLevelAndColumn) {
    for (const float bad : {kNaN, std::numeric_limits<float>::infinity()}) {
        for (Index level = 0; level < 6; ++level) {
            for (Index col = 0; col < 37; ++col) {
                FloatImage levels = test::noiseImage(6, 37, 1);
                levels(level, col) = bad;
                EXPECT_EQ(subtracted(GetParam().run, levels).hasNan, std::isnan(bad))
                    << level << ", " << col;
                // Infinity less infinity.
                levels.col(col).setConstant(bad);
                EXPECT_TRUE(subtracted(GetParam().run, levels).hasNan) << col;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryKernelOfThisBuild, DifferenceKernelTest,
                         test::everyKernel(differenceKernels()), test::KernelName());

}  // namespace
}  // namespace marlo::detail
