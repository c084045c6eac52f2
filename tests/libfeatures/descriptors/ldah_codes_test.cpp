// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/ldah_codes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "libfeatures/descriptors/detail/ldah_tables.h"
#include "references/ldah_reference.h"
#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using reference::LdahCode;

constexpr int kColumns = 128;
constexpr std::size_t kRowBytes = kColumns * sizeof(float);

float* floats(const DescMat& matrix, int row) {
    return reinterpret_cast<float*>(matrix.row(row).data);
}

// Rows of length 1 without negative values, as SIFT makes them.
DescMat siftRows(int count, std::uint32_t seed) {
    test::Random random(seed);
    DescMat rows;
    allocateDescriptors(rows, count, true);
    for (int i = 0; i < count; ++i) {
        float* const values = floats(rows, i);
        float squares = 0.0F;
        for (int k = 0; k < kColumns; ++k) {
            values[k] = std::pow(random.uniform(0.0F, 1.0F), 2.0F);
            squares += values[k] * values[k];
        }
        for (int k = 0; k < kColumns; ++k) values[k] /= std::sqrt(squares);
    }
    return rows;
}

LdahCode code(const DescMat& ldah, int row) {
    LdahCode bytes;
    std::memcpy(bytes.data(), ldah.row(row).data, bytes.size());
    return bytes;
}

LdahCode expectedCode(const float* siftRow) {
    return reference::ldahCode(detail::kLdahTables.projection, detail::kLdahTables.offsets,
                               siftRow);
}

// `ldah` has the LDAH form and the codes of the SIFT rows.
void expectCodesOf(const DescMat& sift, const DescMat& ldah) {
    ASSERT_EQ(ldah.rows, sift.rows);
    ASSERT_EQ(ldah.cols, 16);
    ASSERT_EQ(ldah.type(), DescMat::Byte);
    ASSERT_EQ(ldah.step, 16U);
    for (int i = 0; i < sift.rows; ++i) {
        std::vector<float> values(kColumns);  // `sift` may lie at any address
        std::memcpy(values.data(), sift.row(i).data, kRowBytes);
        ASSERT_EQ(code(ldah, i), expectedCode(values.data())) << i;
    }
}

TEST(LdahCodesTest, TheIdentifierHasSixteenHexadecimalDigits) {
    EXPECT_THAT(std::string(ldahTablesIdentifier()), testing::MatchesRegex("[0-9a-f]+"));
    EXPECT_EQ(ldahTablesIdentifier().size(), 16U);
    EXPECT_EQ(ldahTablesIdentifier(), detail::kLdahTables.identifier);
}

TEST(LdahCodesTest, RowsAreThoseOfTheReference) {
    for (const int count : {1, 2, 3, 7, 8, 15, 16, 31, 32, 33, 64, 100}) {
        SCOPED_TRACE(count);
        const DescMat sift = siftRows(count, 1);
        DescMat ldah;
        ldahRowsFromSift(sift, ldah);
        expectCodesOf(sift, ldah);
    }
}

TEST(LdahCodesTest, DifferentRowsHaveDifferentCodes) {
    const DescMat sift = siftRows(2, 2);
    DescMat ldah;
    ldahRowsFromSift(sift, ldah);
    EXPECT_NE(code(ldah, 0), code(ldah, 1));
}

TEST(LdahCodesTest, ReplacesWhatTheMatrixHeld) {
    DescMat ldah(70, 64, DescMat::Byte);
    for (const int count : {40, 3, 50}) {
        const DescMat sift = siftRows(count, 3);
        ldahRowsFromSift(sift, ldah);
        expectCodesOf(sift, ldah);
    }
}

TEST(LdahCodesTest, RowsOfAHostMayLieAtAnyAddressAndAnyDistance) {
    constexpr int kCount = 37;
    constexpr std::size_t kStep = kRowBytes + 13;
    const DescMat own = siftRows(kCount, 4);
    std::vector<unsigned char> memory(1 + kCount * kStep);
    for (int i = 0; i < kCount; ++i) {
        std::memcpy(memory.data() + 1 + static_cast<std::size_t>(i) * kStep, own.row(i).data,
                    kRowBytes);
    }
    DescMat hosts(0, kColumns, DescMat::Float);
    hosts.rows = kCount;
    hosts.data = memory.data() + 1;
    hosts.step = kStep;
    DescMat ldah;
    ldahRowsFromSift(hosts, ldah);
    expectCodesOf(own, ldah);
}

TEST(LdahCodesTest, AViewOfOneRowGivesItsCode) {
    const DescMat sift = siftRows(5, 5);
    DescMat ldah;
    ldahRowsFromSift(sift.row(3), ldah);
    expectCodesOf(sift.row(3), ldah);
}

TEST(LdahCodesTest, OneMatrixMayBeBoth) {
    const DescMat sift = siftRows(40, 6);
    DescMat both;
    sift.copyTo(both);
    ldahRowsFromSift(both, both);
    expectCodesOf(sift, both);
}

TEST(LdahCodesTest, AViewOfTheMatrixThatIsReplacedIsReadFirst) {
    const DescMat sift = siftRows(40, 7);
    DescMat matrix;
    sift.copyTo(matrix);
    ldahRowsFromSift(matrix.row(9), matrix);
    expectCodesOf(sift.row(9), matrix);
}

TEST(LdahCodesTest, AViewOfTheRowsLetsGoOfThem) {
    const DescMat sift = siftRows(40, 8);
    DescMat before;
    sift.copyTo(before);
    DescMat view = sift.row(0);
    ldahRowsFromSift(sift, view);
    expectCodesOf(before, view);
    EXPECT_EQ(std::memcmp(sift.data, before.data, 40 * kRowBytes), 0);
}

TEST(LdahCodesTest, ARowOfNaNGivesZeros) {
    const DescMat sift = siftRows(3, 9);
    for (int k = 0; k < kColumns; ++k) {
        floats(sift, 1)[k] = std::numeric_limits<float>::quiet_NaN();
    }
    DescMat ldah;
    ldahRowsFromSift(sift, ldah);
    EXPECT_EQ(code(ldah, 1), LdahCode{});
    EXPECT_EQ(code(ldah, 2), expectedCode(floats(sift, 2)));
}

TEST(LdahCodesTest, NoRowsGiveNoRows) {
    for (const DescMat& none : {DescMat(), DescMat(0, 128, DescMat::Float)}) {
        DescMat ldah(3, 16, DescMat::Byte);
        ldahRowsFromSift(none, ldah);
        EXPECT_TRUE(ldah.empty());
        EXPECT_EQ(ldah.rows, 0);
        EXPECT_EQ(ldah.cols, 16);
        EXPECT_EQ(ldah.type(), DescMat::Byte);
    }
}

TEST(LdahCodesTest, RefusesRowsOfAnotherForm) {
    struct Form {
        int rows, cols, type;
    };
    for (const auto& [rows, cols, type] :
         {Form{2, 127, DescMat::Float}, Form{2, 129, DescMat::Float}, Form{2, 16, DescMat::Float},
          Form{2, 0, DescMat::Float}, Form{2, 128, DescMat::Byte}, Form{2, 16, DescMat::Byte},
          Form{2, 512, DescMat::Byte}}) {
        const DescMat other(rows, cols, type);
        DescMat ldah(1, 16, DescMat::Byte);
        std::memset(ldah.data, 0x3b, 16);
        std::string message = "nothing thrown";
        try {
            ldahRowsFromSift(other, ldah);
        } catch (const std::invalid_argument& error) {
            message = error.what();
        }
        EXPECT_EQ(message, "LDAH rows are made from rows of 128 floats.") << cols << ", " << type;
        ASSERT_EQ(ldah.rows, 1);
        EXPECT_THAT(code(ldah, 0), testing::Each(0x3b));
    }
}

TEST(LdahCodesTest, AnyNumberOfThreadsGivesTheSameBits) {
    const DescMat sift = siftRows(333, 10);
    for (const int threads : {1, 2, 5}) {
        const test::NumberOfThreads number(threads);
        DescMat ldah;
        ldahRowsFromSift(sift, ldah);
        expectCodesOf(sift, ldah);
    }
}

}  // namespace
}  // namespace marlo
