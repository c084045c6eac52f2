// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/histogram/random_descriptors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>

#include "libfeatures/descriptors/ldah_codes.h"
#include "utilities/number_of_threads.h"

namespace marlo {
namespace {

using Fill = void (*)(DescMat&, int);
constexpr std::array<Fill, 2> kFills = {fillRandomLdah, fillRandomSift};

DescMat filled(Fill fill, int rows) {
    DescMat descriptors;
    fill(descriptors, rows);
    return descriptors;
}

std::string bytesOf(const DescMat& matrix, int row) {
    const auto* const at = reinterpret_cast<const char*>(matrix.row(row).data);
    return {at, static_cast<std::size_t>(matrix.cols) * matrix.elemSizeBytes()};
}

std::string bytesOf(const DescMat& matrix) {
    std::string bytes;
    for (int row = 0; row < matrix.rows; ++row) bytes += bytesOf(matrix, row);
    return bytes;
}

const float* floatsOf(const DescMat& matrix, int row) {
    return reinterpret_cast<const float*>(matrix.row(row).data);
}

// As many as there are words for the longest rows.
const DescMat& manyLdahRows() {
    static const DescMat rows = filled(fillRandomLdah, 8192);
    return rows;
}

// FNV-1a, 64 bits.
std::uint64_t digestOf(const std::string& bytes) {
    std::uint64_t digest = 0xcbf29ce484222325;
    for (const char byte : bytes) {
        digest = (digest ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    }
    return digest;
}

TEST(RandomDescriptorsTest, HaveTheFormOfTheirType) {
    const DescMat ldah = filled(fillRandomLdah, 3);
    EXPECT_EQ(ldah.rows, 3);
    EXPECT_EQ(ldah.cols, 16);
    EXPECT_EQ(ldah.type(), DescMat::Byte);
    const DescMat sift = filled(fillRandomSift, 3);
    EXPECT_EQ(sift.rows, 3);
    EXPECT_EQ(sift.cols, 128);
    EXPECT_EQ(sift.type(), DescMat::Float);
}

// Histograms that hosts have stored hang on these bytes.
TEST(RandomDescriptorsTest, AreTheSameForEver) {
    const std::string ldah = bytesOf(manyLdahRows());
    EXPECT_EQ(digestOf(bytesOf(filled(fillRandomSift, 1024))), 10457059050005242357U);
    EXPECT_EQ(digestOf(ldah.substr(0, 1024 * 16)), 1076077925589500714U);
    EXPECT_EQ(digestOf(ldah), 12001162190810094112U);
}

TEST(RandomDescriptorsTest, FewerRowsAreTheFirstOfMore) {
    for (const Fill fill : kFills) {
        const std::string all = bytesOf(filled(fill, 100));
        for (const int rows : {1, 2, 31, 33, 99}) {
            const std::string few = bytesOf(filled(fill, rows));
            EXPECT_EQ(few, all.substr(0, few.size())) << rows;
        }
    }
}

TEST(RandomDescriptorsTest, LdahRowsAreTheCodesOfSiftRows) {
    DescMat codes;
    ldahRowsFromSift(filled(fillRandomSift, 200), codes);
    EXPECT_EQ(bytesOf(filled(fillRandomLdah, 200)), bytesOf(codes));
}

TEST(RandomDescriptorsTest, NoTwoRowsAreEqual) {
    const DescMat& ldah = manyLdahRows();
    std::set<std::string> rows;
    for (int row = 0; row < ldah.rows; ++row) rows.insert(bytesOf(ldah, row));
    EXPECT_EQ(rows.size(), 8192U);
}

TEST(RandomDescriptorsTest, SiftRowsHaveLengthOne) {
    const DescMat sift = filled(fillRandomSift, 1024);
    for (int row = 0; row < sift.rows; ++row) {
        const float* const values = floatsOf(sift, row);
        double square = 0.0;
        for (int c = 0; c < 128; ++c) square += double{values[c]} * double{values[c]};
        EXPECT_NEAR(std::sqrt(square), 1.0, 1e-6) << row;
    }
}

// Elements are cut at 0.2 and then grow, all alike, by what the length has lost.
TEST(RandomDescriptorsTest, SiftRowsAreCutAsDescriptorsAre) {
    const DescMat sift = filled(fillRandomSift, 1024);
    int cutTwice = 0;
    for (int row = 0; row < sift.rows; ++row) {
        const float* const values = floatsOf(sift, row);
        const float largest = *std::max_element(values, values + 128);
        EXPECT_GE(*std::min_element(values, values + 128), 0.0F) << row;
        EXPECT_LT(largest, 0.5F) << row;
        if (largest <= 0.2F) continue;
        if (std::count(values, values + 128, largest) > 1) ++cutTwice;
    }
    EXPECT_GT(cutTwice, 512);
}

// The keypoint's own direction is the most frequent, the opposite one more so than others but its
// neighbours; the middle has more gradients than the corners.
TEST(RandomDescriptorsTest, SiftRowsAreDistributedAsDescriptorsAre) {
    const DescMat sift = filled(fillRandomSift, 1024);
    std::array<double, 8> directions{};
    double middle = 0.0;
    double corners = 0.0;
    for (int row = 0; row < sift.rows; ++row) {
        const float* const values = floatsOf(sift, row);
        for (std::size_t i = 0; i < 128; ++i) {
            directions[i % 8] += double{values[i]};
            const std::size_t cell = i / 8;
            if (cell == 5 || cell == 6 || cell == 9 || cell == 10) middle += double{values[i]};
            if (cell == 0 || cell == 3 || cell == 12 || cell == 15) corners += double{values[i]};
        }
    }
    for (const std::size_t other : {1U, 2U, 3U, 4U, 5U, 6U, 7U}) {
        EXPECT_GT(directions[0], 1.3 * directions[other]) << other;
    }
    for (const std::size_t across : {2U, 3U, 5U, 6U}) {
        EXPECT_GT(directions[4], 1.2 * directions[across]) << across;
    }
    EXPECT_GT(middle, 1.3 * corners);
}

TEST(RandomDescriptorsTest, EverySecondRowIsTheOneBeforeInAMirror) {
    const DescMat sift = filled(fillRandomSift, 20);
    for (int row = 0; row < 20; row += 2) {
        const float* const values = floatsOf(sift, row);
        const float* const mirrored = floatsOf(sift, row + 1);
        for (int i = 0; i < 128; ++i) {
            const int cellRow = i / 32;
            const int direction = i % 8;
            const int from = (3 - cellRow) * 32 + i % 32 - direction + (8 - direction) % 8;
            EXPECT_EQ(mirrored[i], values[from]) << row << ", " << i;
        }
    }
}

TEST(RandomDescriptorsTest, NoBitOfLdahRowsIsNearlyAlwaysTheSame) {
    const DescMat ldah = filled(fillRandomLdah, 1024);
    for (int bit = 0; bit < 128; ++bit) {
        int set = 0;
        for (int row = 0; row < ldah.rows; ++row) {
            set += (ldah.row(row).data[bit / 8] >> (bit % 8)) & 1;
        }
        EXPECT_NEAR(set / 1024.0, 0.5, 0.4) << bit;
    }
}

TEST(RandomDescriptorsTest, NoRowsAreAnEmptyMatrixOfTheForm) {
    for (const Fill fill : kFills) {
        DescMat descriptors = filled(fill, 2);
        const int cols = descriptors.cols;
        fill(descriptors, 0);
        EXPECT_EQ(descriptors.rows, 0);
        EXPECT_EQ(descriptors.cols, cols);
        EXPECT_TRUE(descriptors.empty());
    }
}

TEST(RandomDescriptorsTest, NegativeNumbersOfRowsAreRefused) {
    for (const Fill fill : kFills) {
        DescMat descriptors = filled(fill, 2);
        const std::string before = bytesOf(descriptors);
        EXPECT_THROW(fill(descriptors, -1), std::length_error);
        EXPECT_EQ(bytesOf(descriptors), before);
    }
}

TEST(RandomDescriptorsTest, AViewLetsGoOfTheRowThatItShared) {
    for (const Fill fill : kFills) {
        const DescMat other = filled(fill, 5);
        const std::string before = bytesOf(other);
        DescMat view = other.row(4);
        fill(view, 1);
        EXPECT_EQ(bytesOf(view), before.substr(0, bytesOf(view).size()));
        EXPECT_EQ(bytesOf(other), before);
    }
}

// Threads that OpenMP has once made stay.
std::ptrdiff_t threadsOfTheProcess() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

TEST(RandomDescriptorsTest, AreMadeOnTheCallingThread) {
    const test::NumberOfThreads threads(7);
    for (const Fill fill : kFills) {
        const std::ptrdiff_t before = threadsOfTheProcess();
        filled(fill, 1024);
        EXPECT_EQ(threadsOfTheProcess(), before);
    }
}

TEST(RandomDescriptorsTest, KeepTheCallersNumberOfThreads) {
    const test::NumberOfThreads threads(7);
    filled(fillRandomLdah, 4);
    EXPECT_EQ(omp_get_max_threads(), 7);
}

}  // namespace
}  // namespace marlo
