// SPDX-License-Identifier: BSD-3-Clause
#include "support/sift_distance.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <vector>

#include "references/matching_reference.h"
#include "utilities/matching_cases.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

DescMat row(const std::vector<float>& values) {
    DescMat matrix(1, static_cast<int>(values.size()), DescMat::Float);
    std::memcpy(matrix.data, values.data(), values.size() * sizeof(float));
    return matrix;
}

float distance(const std::vector<float>& a, const std::vector<float>& b) {
    return cvSiftDistance(row(a), row(b));
}

// The length of a row of `cols` floats that are 0 but for the listed ones.
struct Element {
    std::size_t column;
    float value;
};
float length(std::size_t cols, const std::vector<Element>& elements) {
    std::vector<float> values(cols, 0.0F);
    for (const Element& element : elements) {
        values[element.column] = element.value;
    }
    return distance(values, std::vector<float>(cols, 0.0F));
}

TEST(CvSiftDistanceTest, IsTheEuclideanDistance) {
    EXPECT_EQ(distance({1.0F}, {-4.0F}), 5.0F);
    EXPECT_EQ(distance({1.0F, 2.0F}, {4.0F, -2.0F}), 5.0F);
    EXPECT_EQ(distance({2.0F, 3.0F, 6.0F, 1.0F}, {0.0F, 0.0F, 0.0F, 1.0F}), 7.0F);
    EXPECT_EQ(distance(std::vector<float>(128, 0.75F), std::vector<float>(128, 0.25F)),
              std::sqrt(32.0F));
    EXPECT_EQ(distance({1.0F}, {0.0F}), 1.0F);
}

TEST(CvSiftDistanceTest, ColumnsSixteenApartShareAPartialSum) {
    // 4096^2 = 2^24, where single precision counts in steps of 2: adding 1 at a time does nothing,
    // adding 4 at once gives the next root.
    EXPECT_EQ(length(128, {{0, 4096.0F}, {8, 1.0F}, {24, 1.0F}, {40, 1.0F}, {56, 1.0F}}),
              4096.00048828125F);
    EXPECT_EQ(length(128, {{0, 4096.0F}, {16, 1.0F}, {48, 1.0F}, {80, 1.0F}, {112, 1.0F}}),
              4096.0F);
    // The other way round, the ones come first and count.
    EXPECT_EQ(length(128, {{112, 4096.0F}, {0, 1.0F}, {16, 1.0F}, {32, 1.0F}, {48, 1.0F}}),
              4096.00048828125F);
}

TEST(CvSiftDistanceTest, PartialSumsAreFoldedInHalves) {
    // 1 meets 9, 5 meets 13, both pairs meet, and then they meet 0.
    EXPECT_EQ(length(16, {{0, 4096.0F}, {1, 1.0F}, {5, 1.0F}, {9, 1.0F}, {13, 1.0F}}),
              4096.00048828125F);
    // Each meets 0 on its own.
    EXPECT_EQ(length(16, {{0, 4096.0F}, {1, 1.0F}, {2, 1.0F}, {4, 1.0F}, {8, 1.0F}}), 4096.0F);
}

TEST(CvSiftDistanceTest, HasTheBitsOfTheReferenceAtAnyWidth) {
    test::Random random(1);
    for (int cols = 1; cols <= 300; ++cols) {
        DescMat rows(2, cols, DescMat::Float);
        std::vector<float> values(static_cast<std::size_t>(2 * cols));
        for (float& value : values) {
            value = random.uniform(-1.0F, 1.0F) * (random.below(8) == 0 ? 1000.0F : 1.0F);
        }
        std::memcpy(rows.data, values.data(), values.size() * sizeof(float));
        EXPECT_EQ(cvSiftDistance(rows.row(0), rows.row(1)),
                  reference::siftDistance(rows, 0, rows, 1))
            << cols;
    }
}

TEST(CvSiftDistanceTest, IsTheSameBothWaysRound) {
    test::Random random(2);
    const DescMat rows = test::randomUnitRows(40, 128, random);
    for (int i = 1; i < rows.rows; ++i) {
        EXPECT_EQ(cvSiftDistance(rows.row(i - 1), rows.row(i)),
                  cvSiftDistance(rows.row(i), rows.row(i - 1)));
    }
}

TEST(CvSiftDistanceTest, OfEqualRowsIsZero) {
    test::Random random(3);
    for (const int cols : {1, 7, 16, 100, 128}) {
        const DescMat rows = test::randomUnitRows(1, cols, random);
        EXPECT_EQ(cvSiftDistance(rows, test::copyOf(rows)), 0.0F);
        EXPECT_FALSE(std::signbit(cvSiftDistance(rows, rows)));
    }
    EXPECT_EQ(distance({1e30F, -1e30F}, {1e30F, -1e30F}), 0.0F);
    EXPECT_EQ(distance({0.0F}, {-0.0F}), 0.0F);
}

TEST(CvSiftDistanceTest, OfARowWithANaNIsNaN) {
    for (const std::size_t at : {0U, 15U, 16U, 127U}) {
        std::vector<float> values(128, 1.0F);
        values[at] = kNaN;
        EXPECT_TRUE(std::isnan(distance(values, std::vector<float>(128, 0.0F)))) << at;
        EXPECT_TRUE(std::isnan(distance(std::vector<float>(128, 0.0F), values))) << at;
        EXPECT_TRUE(std::isnan(distance(values, values))) << at;
    }
}

TEST(CvSiftDistanceTest, OfInfinitiesIsInfiniteOrNaN) {
    EXPECT_EQ(distance({1.0F, kInfinity}, {1.0F, 2.0F}), kInfinity);
    EXPECT_EQ(distance({1.0F, -kInfinity}, {1.0F, kInfinity}), kInfinity);
    EXPECT_TRUE(std::isnan(distance({1.0F, kInfinity}, {1.0F, kInfinity})));
}

TEST(CvSiftDistanceTest, IsInfiniteWhereASquareOverflows) {
    EXPECT_EQ(distance({1e30F}, {0.0F}), kInfinity);
    EXPECT_EQ(distance({1.8e19F}, {0.0F}), 1.8e19F);
}

TEST(CvSiftDistanceTest, IsZeroWhereEverySquareUnderflows) {
    EXPECT_EQ(distance({1e-30F, 2e-30F}, {0.0F, 0.0F}), 0.0F);
    // The square is 2^-148, which is not normal but a number.
    EXPECT_EQ(distance({0x1p-74F}, {0.0F}), 0x1p-74F);
}

TEST(CvSiftDistanceTest, RowsMayLieAnywhere) {
    test::Random random(4);
    for (const int cols : {1, 3, 16, 17, 127, 128}) {
        const DescMat rows = test::randomUnitRows(2, cols, random);
        const test::RowsApart misaligned(rows);
        EXPECT_EQ(cvSiftDistance(misaligned.view().row(0), misaligned.view().row(1)),
                  cvSiftDistance(rows.row(0), rows.row(1)))
            << cols;
    }
}

TEST(CvSiftDistanceTest, RefusesRowsOfDifferentWidths) {
    EXPECT_THROW((void)distance({1.0F, 2.0F}, {1.0F}), std::invalid_argument);
    EXPECT_THROW((void)distance({1.0F}, {1.0F, 2.0F}), std::invalid_argument);
}

TEST(CvSiftDistanceTest, RefusesAnythingButSingleRows) {
    const DescMat one = row({1.0F});
    const DescMat two = test::rowsOfFloats(1, {1.0F, 2.0F});
    const DescMat none(0, 1, DescMat::Float);
    for (const DescMat* const other : {&two, &none}) {
        EXPECT_THROW((void)cvSiftDistance(one, *other), std::invalid_argument);
        EXPECT_THROW((void)cvSiftDistance(*other, one), std::invalid_argument);
    }
    EXPECT_THROW((void)cvSiftDistance(DescMat(), DescMat()), std::invalid_argument);
}

TEST(CvSiftDistanceTest, RefusesBytes) {
    const DescMat floats(1, 16, DescMat::Float);
    const DescMat bytes(1, 16, DescMat::Byte);
    EXPECT_THROW((void)cvSiftDistance(floats, bytes), std::invalid_argument);
    EXPECT_THROW((void)cvSiftDistance(bytes, floats), std::invalid_argument);
    EXPECT_THROW((void)cvSiftDistance(bytes, bytes), std::invalid_argument);
}

}  // namespace
}  // namespace marlo
