// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/i_descriptor_matcher.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "libfeatures/matchers/desc_matcher_left_right.h"
#include "libfeatures/matchers/match_utils.h"
#include "utilities/matching_cases.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using test::sameMatches;

constexpr unsigned int kHuge = 4294967295U;

// What a matrix is and holds; ends with its data.
struct Contents {
    int rows = 0;
    int cols = 0;
    int type = 0;
    std::vector<unsigned char> bytes;
};

Contents contentsOf(const DescMat& matrix) {
    Contents contents = {matrix.rows, matrix.cols, matrix.type(), {}};
    const std::size_t rowBytes = static_cast<std::size_t>(matrix.cols) * matrix.elemSizeBytes();
    for (int i = 0; i < matrix.rows && !matrix.empty(); ++i) {
        const unsigned char* const row = matrix.data + static_cast<std::size_t>(i) * matrix.step;
        contents.bytes.insert(contents.bytes.end(), row, row + rowBytes);
    }
    return contents;
}

void expectContents(const Contents& actual, const DescMat& expected) {
    const Contents wanted = contentsOf(expected);
    EXPECT_EQ(actual.rows, wanted.rows);
    EXPECT_EQ(actual.cols, wanted.cols);
    EXPECT_EQ(actual.type, wanted.type);
    EXPECT_EQ(actual.bytes, wanted.bytes);
}

// Keeps what it is asked to match.
class RecordingMatcher : public IDescriptorMatcher {
public:
    [[nodiscard]] std::unique_ptr<IDescriptorMatcher> clone() const override { return nullptr; }
    [[nodiscard]] std::vector<DMatch> match(const DescMat& query,
                                            const DescMat& train) const override {
        ++calls;
        queryData = query.data;
        queryRows = contentsOf(query);
        trainRows = contentsOf(train);
        if (fails) {
            throw std::domain_error("no");
        }
        return {{3, 1, 0.5F}, {0, 0, 0.25F}};
    }
    [[nodiscard]] QString kernelName() const override { return {}; }

    bool fails = false;
    mutable int calls = 0;
    mutable const unsigned char* queryData = nullptr;
    mutable Contents queryRows;
    mutable Contents trainRows;
};

class MatchSubsetTest : public testing::Test {
protected:
    const RecordingMatcher matcher{};
    // Row i has 10 i bits set, or starts with i.
    const DescMat bits = test::rowsOfBits(16, {0, 10, 20, 30, 40});
    const DescMat floats = test::rowsOfFloats(3, {0.0F, 1.0F, 2.0F, 3.0F});
};

TEST_F(MatchSubsetTest, MatchesCopiesOfTheRowsInTheOrderOfTheLists) {
    (void)matcher.matchSubset(bits, bits, {4, 1, 3}, {0, 2});
    EXPECT_EQ(matcher.calls, 1);
    expectContents(matcher.queryRows, test::rowsOfBits(16, {40, 10, 30}));
    expectContents(matcher.trainRows, test::rowsOfBits(16, {0, 20}));
}

TEST_F(MatchSubsetTest, RowsMayRepeat) {
    (void)matcher.matchSubset(bits, bits, {2, 2, 2}, {4, 0, 4, 0, 4, 0});
    expectContents(matcher.queryRows, test::rowsOfBits(16, {20, 20, 20}));
    expectContents(matcher.trainRows, test::rowsOfBits(16, {40, 0, 40, 0, 40, 0}));
}

TEST_F(MatchSubsetTest, TheFullMatricesAreLeftAlone) {
    (void)matcher.matchSubset(bits, floats, {0, 1}, {1});
    EXPECT_NE(matcher.queryData, bits.data);
    expectContents(contentsOf(bits), test::rowsOfBits(16, {0, 10, 20, 30, 40}));
    expectContents(contentsOf(floats), test::rowsOfFloats(3, {0.0F, 1.0F, 2.0F, 3.0F}));
}

TEST_F(MatchSubsetTest, FloatRowsAreCopiedBitForBit) {
    test::Random random(1);
    DescMat anyBits = test::rowsOfFloats(5, {0.0F, 0.0F, 0.0F});
    for (std::size_t i = 0; i < 3 * anyBits.step; ++i) {
        anyBits.data[i] = static_cast<unsigned char>(i < 20 ? 0xff : random.below(256));  // a NaN
    }
    (void)matcher.matchSubset(anyBits, anyBits, {0, 1, 2}, {0, 1, 2});
    expectContents(matcher.queryRows, anyBits);
    expectContents(matcher.trainRows, anyBits);
}

TEST_F(MatchSubsetTest, RowsOfAViewAreCopied) {
    (void)matcher.matchSubset(bits.row(3), floats.row(2), {0, 0}, {});
    expectContents(matcher.queryRows, test::rowsOfBits(16, {30, 30}));
}

TEST_F(MatchSubsetTest, RowsThatLieApartAreCopied) {
    const test::RowsApart apart(bits);
    (void)matcher.matchSubset(apart.view(), apart.view(), {4, 0, 1}, {4, 4});
    expectContents(matcher.queryRows, test::rowsOfBits(16, {40, 0, 10}));
    expectContents(matcher.trainRows, test::rowsOfBits(16, {40, 40}));
}

TEST_F(MatchSubsetTest, ReturnsWhatMatchReturns) {
    EXPECT_TRUE(sameMatches(matcher.matchSubset(bits, bits, {0, 1, 2, 3}, {3, 4}),
                            {{3, 1, 0.5F}, {0, 0, 0.25F}}));
}

TEST_F(MatchSubsetTest, EmptyListsGiveEmptyMatrices) {
    for (const std::vector<unsigned int>& some : {std::vector<unsigned int>{}, {1, 2}}) {
        (void)matcher.matchSubset(bits, bits, {}, some);
        expectContents(matcher.queryRows, DescMat(0, 16, DescMat::Byte));
        EXPECT_EQ(matcher.trainRows.rows, static_cast<int>(some.size()));
        (void)matcher.matchSubset(bits, bits, some, {});
        EXPECT_EQ(matcher.queryRows.rows, static_cast<int>(some.size()));
        expectContents(matcher.trainRows, DescMat(0, 16, DescMat::Byte));
    }
    EXPECT_EQ(matcher.calls, 4);
}

TEST_F(MatchSubsetTest, EmptyListsGiveNoMatches) {
    const DescMatcherLeftRight leftRight;
    EXPECT_TRUE(leftRight.matchSubset(bits, bits, {}, {0, 1}).empty());
    EXPECT_TRUE(leftRight.matchSubset(bits, bits, {0, 1}, {}).empty());
    EXPECT_TRUE(leftRight.matchSubset(DescMat(), DescMat(), {}, {}).empty());
}

TEST_F(MatchSubsetTest, WithWrappedIndicesNamesRowsOfTheFullMatrices) {
    const DescMatcherLeftRight leftRight;
    const DescMat train = test::rowsOfBits(16, {11, 41, 1, 31, 21});
    const std::vector<unsigned int> idx1 = {4, 0, 2};
    const std::vector<unsigned int> idx2 = {1, 2, 4};
    std::vector<DMatch> matches = leftRight.matchSubset(bits, train, idx1, idx2);
    EXPECT_TRUE(sameMatches(matches, {{0, 0, 1.0F}, {1, 1, 1.0F}, {2, 2, 1.0F}}));
    updateWrappedIndices(matches, idx1, idx2);
    EXPECT_TRUE(sameMatches(matches, {{4, 1, 1.0F}, {0, 2, 1.0F}, {2, 4, 1.0F}}));
}

TEST_F(MatchSubsetTest, RefusesRowsThatDoNotExist) {
    for (const unsigned int row : {5U, 6U, 2147483647U, 2147483648U, kHuge}) {
        EXPECT_THROW((void)matcher.matchSubset(bits, bits, {0, row}, {1}), std::out_of_range)
            << row;
        EXPECT_THROW((void)matcher.matchSubset(bits, bits, {0}, {row, 1}), std::out_of_range)
            << row;
    }
    EXPECT_THROW((void)matcher.matchSubset(DescMat(), bits, {0}, {0}), std::out_of_range);
    EXPECT_THROW((void)matcher.matchSubset(bits, DescMat(), {0}, {0}), std::out_of_range);
    EXPECT_EQ(matcher.calls, 0);
}

TEST_F(MatchSubsetTest, RowsOfAnotherTypeThanTheFirstCountAsZeros) {
    (void)matcher.matchSubset(bits, floats, {1}, {3, 2});
    expectContents(matcher.queryRows, test::rowsOfBits(16, {10}));
    expectContents(matcher.trainRows, test::rowsOfBits(3, {0, 0}));

    (void)matcher.matchSubset(floats, bits, {1}, {3, 2, 4});
    expectContents(matcher.queryRows, test::rowsOfFloats(3, {1.0F}));
    expectContents(matcher.trainRows, test::rowsOfFloats(16, {0.0F, 0.0F, 0.0F}));
}

TEST_F(MatchSubsetTest, RowsOfAnotherTypeMustExistToo) {
    EXPECT_THROW((void)matcher.matchSubset(bits, floats, {0}, {4}), std::out_of_range);
}

TEST_F(MatchSubsetTest, EachMatrixKeepsItsWidth) {
    const DescMat wide = test::rowsOfBits(64, {500, 3});
    (void)matcher.matchSubset(bits, wide, {1}, {0});
    expectContents(matcher.queryRows, test::rowsOfBits(16, {10}));
    expectContents(matcher.trainRows, test::rowsOfBits(64, {500}));
}

TEST_F(MatchSubsetTest, RowsWithoutColumnsAreEmpty) {
    const DescMat none(3, 0, DescMat::Byte);
    (void)matcher.matchSubset(none, bits, {0, 2}, {1});
    EXPECT_EQ(matcher.queryRows.cols, 0);
    EXPECT_TRUE(matcher.queryRows.bytes.empty());
}

TEST_F(MatchSubsetTest, LetsOutWhatMatchThrows) {
    RecordingMatcher failing;
    failing.fails = true;
    EXPECT_THROW((void)failing.matchSubset(bits, bits, {0}, {0}), std::domain_error);
}

}  // namespace
}  // namespace marlo
