// SPDX-License-Identifier: BSD-3-Clause
// What users of the tables may rely on, in the values as they were compiled.
#include "libfeatures/descriptors/detail/ldah_tables.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QCryptographicHash>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace marlo::detail {
namespace {

double dot(const float* a, const float* b) {
    double sum = 0.0;
    for (int k = 0; k < kDescriptorSize; ++k) {
        sum += static_cast<double>(a[k]) * static_cast<double>(b[k]);
    }
    return sum;
}

std::vector<double> lengths() {
    std::vector<double> result;
    for (const auto& row : kLdahTables.projection) result.push_back(std::sqrt(dot(row, row)));
    return result;
}

const float* firstWeight() {
    return kLdahTables.projection[0];
}
const float* endOfWeights() {
    return kLdahTables.projection[kLdahBits - 1] + kDescriptorSize;
}

TEST(LdahTablesTest, Hold128RowsOf128WeightsAnd128Offsets) {
    EXPECT_EQ(sizeof kLdahTables.projection, 65536U);
    EXPECT_EQ(sizeof kLdahTables.offsets, 512U);
}

TEST(LdahTablesTest, RowsAreOrthogonal) {
    const std::vector<double> length = lengths();
    double largest = 0.0;
    for (std::size_t i = 0; i < length.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            const double cosine =
                dot(kLdahTables.projection[i], kLdahTables.projection[j]) / (length[i] * length[j]);
            ASSERT_LT(std::abs(cosine), 1e-5) << i << ", " << j;
            largest = std::max(largest, std::abs(cosine));
        }
    }
    RecordProperty("largestCosine", std::to_string(largest));
}

TEST(LdahTablesTest, LengthsOfRowsReachFrom8To82) {
    const std::vector<double> length = lengths();
    const auto [shortest, longest] = std::minmax_element(length.begin(), length.end());
    EXPECT_NEAR(*shortest, 8.0, 0.05);
    EXPECT_NEAR(*longest, 81.9, 0.05);
}

TEST(LdahTablesTest, LaterRowsTendToBeLonger) {
    // Spearman's rank correlation of length and index.
    const std::vector<double> length = lengths();
    const auto count = static_cast<double>(length.size());
    double squares = 0.0;
    for (std::size_t i = 0; i < length.size(); ++i) {
        const auto rank = std::count_if(length.begin(), length.end(),
                                        [&](double other) { return other < length[i]; });
        squares += std::pow(static_cast<double>(rank) - static_cast<double>(i), 2);
    }
    EXPECT_GT(1.0 - 6.0 * squares / (count * (count * count - 1.0)), 0.9);
}

TEST(LdahTablesTest, WeightsLieInTheirRange) {
    for (const float* weight = firstWeight(); weight != endOfWeights(); ++weight) {
        ASSERT_GE(*weight, -22.65F) << weight - firstWeight();
        ASSERT_LE(*weight, 25.85F) << weight - firstWeight();
    }
}

TEST(LdahTablesTest, OffsetsLieInTheirRange) {
    for (const float offset : kLdahTables.offsets) {
        EXPECT_GE(offset, -5.485F);
        EXPECT_LE(offset, 11.585F);
    }
}

TEST(LdahTablesTest, TheFirstRowBeginsAndTheLastRowEndsAsTheyShould) {
    const auto fourAt = [](const float* at) { return std::array{at[0], at[1], at[2], at[3]}; };
    EXPECT_EQ(fourAt(firstWeight()), (std::array{-0.0690876F, 0.180609F, 0.233704F, 0.2504F}));
    EXPECT_EQ(fourAt(endOfWeights() - 4), (std::array{-2.0896F, 5.58566F, -5.62096F, 3.79748F}));
}

TEST(LdahTablesTest, SomeOffsetsAreAsTheyShouldBe) {
    const auto& offsets = kLdahTables.offsets;
    EXPECT_EQ(offsets[0], 0.431779F);
    EXPECT_EQ(offsets[1], -0.00835053F);
    EXPECT_EQ(offsets[2], -0.698111F);
    EXPECT_EQ(offsets[3], -0.963172F);
    EXPECT_EQ(offsets[64], -1.75388F);
    EXPECT_EQ(offsets[65], 4.77836F);
    EXPECT_EQ(offsets[127], -0.000819F);
}

TEST(LdahTablesTest, TheIdentifierIsThatOfTheCompiledValues) {
    QByteArray bytes;
    const auto append = [&bytes](float value) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        for (int shift = 0; shift < 32; shift += 8) {
            bytes.append(static_cast<char>(bits >> shift & 0xffU));
        }
    };
    std::for_each(firstWeight(), endOfWeights(), append);
    std::for_each(std::begin(kLdahTables.offsets), std::end(kLdahTables.offsets), append);
    ASSERT_EQ(bytes.size(), 65536 + 512);
    const QByteArray digest = QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
    EXPECT_EQ(kLdahTables.identifier, digest.toHex().left(16).toStdString());
}

}  // namespace
}  // namespace marlo::detail
