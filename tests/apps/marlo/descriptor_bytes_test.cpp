// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/descriptor_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

namespace marlo::app {
namespace {

constexpr int kElements = 128;

DescMat oneRow(const std::vector<float>& firstElements) {
    DescMat row(1, kElements, DescMat::Float);
    auto* const elements = reinterpret_cast<float*>(row.data);
    std::fill_n(elements, kElements, 0.0F);
    std::copy(firstElements.begin(), firstElements.end(), elements);
    return row;
}

std::vector<int> bytesOf(const DescMat& rows, int row) {
    const unsigned char* const data = rows.data + static_cast<std::size_t>(row) * rows.step;
    return {data, data + rows.cols};
}

std::vector<int> followedByZeros(std::vector<int> bytes) {
    bytes.resize(kElements, 0);
    return bytes;
}

TEST(DescriptorBytesTest, HellingerRowsAreRootsOfShares) {
    // The sum is 0.5: shares of 0.04, 0.32 and 0.64.
    const DescMat rows = hellingerRows(oneRow({0.02F, 0.16F, 0.32F}));
    ASSERT_EQ(rows.rows, 1);
    ASSERT_EQ(rows.cols, kElements);
    ASSERT_EQ(rows.type(), DescMat::Float);
    const auto* const elements = reinterpret_cast<const float*>(rows.data);
    EXPECT_FLOAT_EQ(elements[0], 0.2F);
    EXPECT_FLOAT_EQ(elements[1], 0.56568542F);
    EXPECT_FLOAT_EQ(elements[2], 0.8F);
    EXPECT_EQ(elements[3], 0.0F);
}

TEST(DescriptorBytesTest, HellingerRowsThatPointNowhereStay) {
    EXPECT_EQ(reinterpret_cast<const float*>(hellingerRows(oneRow({})).data)[0], 0.0F);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const DescMat rows = hellingerRows(oneRow({0.5F, nan}));
    EXPECT_EQ(reinterpret_cast<const float*>(rows.data)[0], 0.5F);
    EXPECT_TRUE(std::isnan(reinterpret_cast<const float*>(rows.data)[1]));
    EXPECT_EQ(hellingerRows(DescMat()).rows, 0);
    EXPECT_THROW(hellingerRows(DescMat(1, 16, DescMat::Byte)), std::invalid_argument);
}

TEST(DescriptorBytesTest, ColmapRowsAreRootsOfSharesOf512Rounded) {
    // The sum is 0.64: roots of 9, 16 and 39 of 64 are 0.375, 0.5 and 0.78062, so 192, 256, 399.7.
    const DescMat bytes = siftBytesForColmap(oneRow({0.09F, 0.16F, 0.39F}));
    ASSERT_EQ(bytes.rows, 1);
    ASSERT_EQ(bytes.cols, kElements);
    ASSERT_EQ(bytes.type(), DescMat::Byte);
    EXPECT_EQ(bytesOf(bytes, 0), followedByZeros({192, 255, 255}));
}

TEST(DescriptorBytesTest, ColmapRowsAreRoundedToTheNearest) {
    // Roots of 1, 3 and 95 of 99, times 512: 51.46, 89.13 and 501.55.
    EXPECT_EQ(bytesOf(siftBytesForColmap(oneRow({1, 3, 95})), 0), followedByZeros({51, 89, 255}));
    // The root of 1 of 98, times 512: 51.72.
    EXPECT_EQ(bytesOf(siftBytesForColmap(oneRow({1, 97})), 0), followedByZeros({52, 255}));
}

TEST(DescriptorBytesTest, OpenMvgRowsAreCutOff) {
    EXPECT_EQ(bytesOf(siftBytesForOpenMvg(oneRow({1, 97})), 0), followedByZeros({51, 255}));
    EXPECT_EQ(bytesOf(siftBytesForOpenMvg(oneRow({1, 3})), 0), followedByZeros({255, 255}));
}

TEST(DescriptorBytesTest, ElementsKeepTheirPlaces) {
    for (int place = 0; place < kElements; ++place) {
        DescMat floats = oneRow({});
        reinterpret_cast<float*>(floats.data)[place] = 1.0F;
        std::vector<int> expected(kElements, 0);
        expected[static_cast<std::size_t>(place)] = 255;
        EXPECT_EQ(bytesOf(siftBytesForColmap(floats), 0), expected);
        EXPECT_EQ(bytesOf(siftBytesForOpenMvg(floats), 0), expected);
    }
}

TEST(DescriptorBytesTest, LengthOfTheRowDoesNotMatter) {
    EXPECT_EQ(bytesOf(siftBytesForColmap(oneRow({0.001F, 0.015F})), 0),
              bytesOf(siftBytesForColmap(oneRow({1.0F, 15.0F})), 0));
}

TEST(DescriptorBytesTest, RowsOfNanBecomeRowsOfZeros) {
    DescMat floats(3, kElements, DescMat::Float);
    auto* const elements = reinterpret_cast<float*>(floats.data);
    std::fill_n(elements, 3 * kElements, 1.0F);
    std::fill_n(elements + kElements, kElements, std::numeric_limits<float>::quiet_NaN());
    const DescMat bytes = siftBytesForColmap(floats);
    const std::vector<int> equal(kElements, 45);  // 512 times the root of 1 of 128: 45.25
    EXPECT_EQ(bytesOf(bytes, 0), equal);
    EXPECT_EQ(bytesOf(bytes, 1), followedByZeros({}));
    EXPECT_EQ(bytesOf(bytes, 2), equal);
}

TEST(DescriptorBytesTest, RowsOfZerosStayRowsOfZeros) {
    EXPECT_EQ(bytesOf(siftBytesForColmap(oneRow({})), 0), followedByZeros({}));
}

TEST(DescriptorBytesTest, NoRowsGiveNoRowsOf128Bytes) {
    for (const DescMat& bytes : {siftBytesForColmap(DescMat()), siftBytesForOpenMvg(DescMat())}) {
        EXPECT_EQ(bytes.rows, 0);
        EXPECT_EQ(bytes.cols, kElements);
        EXPECT_EQ(bytes.type(), DescMat::Byte);
    }
}

TEST(DescriptorBytesTest, OtherRowsAreRefused) {
    const DescMat ldah(1, 16, DescMat::Byte);
    EXPECT_THROW(static_cast<void>(siftBytesForColmap(ldah)), std::invalid_argument);
    const DescMat narrow(1, 64, DescMat::Float);
    EXPECT_THROW(static_cast<void>(siftBytesForOpenMvg(narrow)), std::invalid_argument);
}

}  // namespace
}  // namespace marlo::app
