// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/detail/ldah_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "references/ldah_reference.h"
#include "support/detail/simd.h"
#include "utilities/kernel_parameters.h"
#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

// The kernel of processors with vectors of 16 floats, compiled for any processor, so that its
// arithmetic and its groups of descriptors are tested everywhere.
namespace sixteen_lanes {
typedef float Floats __attribute__((vector_size(64)));
constexpr int kRows = 8;
unsigned bitsOf(Floats sums) {
    unsigned bits = 0;
    for (int i = 0; i < 16; ++i) bits |= static_cast<unsigned>(sums[i] <= 0.0F) << i;
    return bits;
}
#include "libfeatures/descriptors/detail/ldah_body.h"
}  // namespace sixteen_lanes

using reference::LdahCode;
using Row = std::array<float, kDescriptorSize>;

constexpr std::size_t kSize = kDescriptorSize;
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

struct Tables {
    float projection[kLdahBits][kDescriptorSize] = {};
    float offsets[kLdahBits] = {};

    [[nodiscard]] LdahCode codeOf(const Row& row) const {
        return reference::ldahCode(projection, offsets, row.data());
    }
};

LdahCode allSet() {
    LdahCode code;
    code.fill(0xff);
    return code;
}

// The bits of a descriptor if `product` were how a row of the projection is applied to it.
template <typename Product>
LdahCode codeBy(Product product, const Tables& tables, const Row& row) {
    LdahCode code{};
    for (std::size_t j = 0; j < kSize; ++j) {
        const float sum = product(tables.projection[j], row) + tables.offsets[j];
        code[j / 8] = static_cast<unsigned char>(code[j / 8] | unsigned{sum <= 0.0F} << j % 8);
    }
    return code;
}

class LdahKernelTest : public test::KernelTest<LdahFunction> {
protected:
    LdahKernelTest() {
        for (auto& weights : tables->projection) {
            for (float& weight : weights) weight = random.uniform(-1.0F, 1.0F);
        }
        for (float& offset : tables->offsets) offset = random.uniform(-1.0F, 1.0F);
    }

    Row randomRow() {
        Row row;
        for (float& value : row) value = random.uniform(0.0F, 1.0F);
        return row;
    }
    std::vector<Row> randomRows(std::size_t count) {
        std::vector<Row> rows;
        for (std::size_t i = 0; i < count; ++i) rows.push_back(randomRow());
        return rows;
    }

    [[nodiscard]] std::vector<LdahCode> codesOf(const std::vector<Row>& rows) const {
        std::vector<LdahCode> codes(rows.size());
        GetParam().run(LdahPanels(tables->projection, tables->offsets),
                       reinterpret_cast<const float*>(rows.data()),
                       static_cast<std::ptrdiff_t>(rows.size()),
                       reinterpret_cast<unsigned char*>(codes.data()));
        return codes;
    }

    test::Random random{1};
    const std::unique_ptr<Tables> tables = std::make_unique<Tables>();
};

TEST_P(LdahKernelTest, CodesAreThoseOfTheReference) {
    for (std::size_t count = 0; count <= 35; ++count) {
        const std::vector<Row> rows = randomRows(count);
        const std::vector<LdahCode> codes = codesOf(rows);
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(codes[i], tables->codeOf(rows[i])) << i << " of " << count;
        }
    }
}

TEST_P(LdahKernelTest, WritesSixteenBytesForEachRowAndNothingElse) {
    constexpr unsigned char kUntouched = 0xa5;
    const LdahPanels panels(tables->projection, tables->offsets);
    for (std::size_t count = 0; count <= 35; ++count) {
        const std::vector<Row> rows = randomRows(count);
        std::vector<unsigned char> bytes(1 + 16 * count + 64, kUntouched);
        GetParam().run(panels, reinterpret_cast<const float*>(rows.data()),
                       static_cast<std::ptrdiff_t>(count), bytes.data() + 1);
        EXPECT_EQ(bytes[0], kUntouched) << count;
        EXPECT_TRUE(std::all_of(bytes.end() - 64, bytes.end(), [](unsigned char byte) {
            return byte == kUntouched;
        })) << count;
    }
}

TEST_P(LdahKernelTest, ARowAndItsNegativeOffsetGiveExactlyZeroWhichSetsTheBit) {
    for (int i = 0; i < 10; ++i) {
        const Row row = randomRow();
        for (std::size_t j = 0; j < kSize; ++j) {
            tables->offsets[j] = -reference::ldahProduct(tables->projection[j], row.data());
        }
        // So many that whole groups and all smaller ones are met.
        for (const LdahCode& code : codesOf(std::vector<Row>(15, row))) EXPECT_EQ(code, allSet());

        // Any other arithmetic shows: it does not meet the zero.
        const auto inOneSum = [](const float* weights, const Row& values) {
            float sum = 0.0F;
            for (std::size_t k = 0; k < kSize; ++k) sum += weights[k] * values[k];
            return sum;
        };
        EXPECT_NE(codeBy(inOneSum, *tables, row), allSet());
        const auto fused = [](const float* weights, const Row& values) {
            float sums[4] = {};
            for (std::size_t k = 0; k < kSize; ++k) {
                sums[k % 4] = std::fma(weights[k], values[k], sums[k % 4]);
            }
            return ((sums[0] + sums[1]) + sums[2]) + sums[3];
        };
        EXPECT_NE(codeBy(fused, *tables, row), allSet());
        const auto inPairs = [](const float* weights, const Row& values) {
            float sums[4] = {};
            for (std::size_t k = 0; k < kSize; ++k) sums[k % 4] += weights[k] * values[k];
            return (sums[0] + sums[1]) + (sums[2] + sums[3]);
        };
        EXPECT_NE(codeBy(inPairs, *tables, row), allSet());
        const auto backwards = [](const float* weights, const Row& values) {
            float sums[4] = {};
            for (std::size_t k = kSize; k-- > 0;) sums[k % 4] += weights[k] * values[k];
            return ((sums[0] + sums[1]) + sums[2]) + sums[3];
        };
        EXPECT_NE(codeBy(backwards, *tables, row), allSet());
    }
}

TEST_P(LdahKernelTest, ASumThatIsBarelyPositiveLeavesTheBitClear) {
    for (int i = 0; i < 10; ++i) {
        const Row row = randomRow();
        for (std::size_t j = 0; j < kSize; ++j) {
            const float product = reference::ldahProduct(tables->projection[j], row.data());
            tables->offsets[j] = std::nextafter(-product, kInfinity);
        }
        for (const LdahCode& code : codesOf(std::vector<Row>(15, row))) {
            EXPECT_EQ(code, LdahCode{});
        }
    }
}

TEST_P(LdahKernelTest, ZeroOfEitherSignSetsTheBitAndTheSmallestNumberDoesNot) {
    for (std::size_t j = 0; j < kSize; ++j) {
        const float offsets[] = {0.0F, -0.0F, std::numeric_limits<float>::denorm_min()};
        tables->offsets[j] = offsets[j % 3];
    }
    Row positive{};
    Row negative;
    negative.fill(-0.0F);
    LdahCode expected{};
    for (std::size_t j = 0; j < kSize; ++j) {
        if (j % 3 != 2) expected[j / 8] = static_cast<unsigned char>(expected[j / 8] | 1U << j % 8);
    }
    for (const LdahCode& code : codesOf({positive, negative, positive})) EXPECT_EQ(code, expected);
}

TEST_P(LdahKernelTest, BitJLiesInByteJOver8AtPositionJMod8) {
    for (auto& weights : tables->projection)
        std::fill(std::begin(weights), std::end(weights), 0.0F);
    for (std::size_t j = 0; j < kSize; ++j) {
        tables->projection[j][j] = 1.0F;
        tables->offsets[j] = 0.0F;
    }
    std::vector<Row> rows(kSize);
    for (std::size_t j = 0; j < kSize; ++j) {
        rows[j].fill(1.0F);
        rows[j][j] = -1.0F;
    }
    const std::vector<LdahCode> codes = codesOf(rows);
    for (std::size_t j = 0; j < kSize; ++j) {
        LdahCode expected{};
        expected[j / 8] = static_cast<unsigned char>(1U << j % 8);
        EXPECT_EQ(codes[j], expected) << j;
    }
}

TEST_P(LdahKernelTest, ARowOfNaNHasAllBitsClear) {
    std::fill(std::begin(tables->offsets), std::end(tables->offsets), -1e6F);
    std::vector<Row> rows = randomRows(9);
    rows[3].fill(kNaN);
    const std::vector<LdahCode> codes = codesOf(rows);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(codes[i], i == 3 ? LdahCode{} : allSet()) << i;
    }
}

TEST_P(LdahKernelTest, OneNaNClearsAllBitsOfItsRow) {
    std::fill(std::begin(tables->offsets), std::end(tables->offsets), -1e6F);
    std::vector<Row> rows = randomRows(2 * kSize);
    for (std::size_t k = 0; k < kSize; ++k) rows[2 * k][k] = kNaN;
    const std::vector<LdahCode> codes = codesOf(rows);
    for (std::size_t k = 0; k < kSize; ++k) {
        EXPECT_EQ(codes[2 * k], LdahCode{}) << k;
        EXPECT_EQ(codes[2 * k + 1], allSet()) << k;
    }
}

TEST_P(LdahKernelTest, InfinitiesHaveTheirSignsAndMayCancelOut) {
    // An infinite value is weighted with 1, -1 or 0 in turns, a second one always with -1.
    for (std::size_t j = 0; j < kSize; ++j) {
        const float weights[] = {1.0F, -1.0F, 0.0F};
        tables->projection[j][5] = weights[j % 3];
        tables->projection[j][8] = -1.0F;
    }
    std::vector<Row> rows = randomRows(2);
    rows[0][5] = kInfinity;
    rows[1][5] = kInfinity;
    rows[1][8] = kInfinity;
    LdahCode expected{};
    for (std::size_t j = 0; j < kSize; ++j) {
        if (j % 3 == 1) expected[j / 8] = static_cast<unsigned char>(expected[j / 8] | 1U << j % 8);
    }
    const std::vector<LdahCode> codes = codesOf(rows);
    EXPECT_EQ(codes[0], expected);  // inf, -inf and NaN
    EXPECT_EQ(codes[1], expected);  // NaN, -inf and NaN
}

TEST_P(LdahKernelTest, ThePanelsOfTheLibraryHoldItsTables) {
    for (int i = 0; i < 10; ++i) {
        Row row = randomRow();
        for (float& value : row) value *= 0.15F;
        LdahCode code;
        GetParam().run(ldahPanels(), row.data(), 1, code.data());
        EXPECT_EQ(code,
                  reference::ldahCode(kLdahTables.projection, kLdahTables.offsets, row.data()));
    }
}

std::vector<Kernel<LdahFunction>> everyKernelAndOneOfSixteenLanes() {
    const KernelList<LdahFunction> kernels = ldahKernels();
    std::vector<Kernel<LdahFunction>> all(kernels.begin(), kernels.end());
    all.push_back({"sixteen_lanes", runsEverywhere, sixteen_lanes::makeCodes});
    return all;
}

INSTANTIATE_TEST_SUITE_P(EveryKernelOfThisBuild, LdahKernelTest,
                         testing::ValuesIn(everyKernelAndOneOfSixteenLanes()), test::KernelName());

}  // namespace
}  // namespace marlo::detail
