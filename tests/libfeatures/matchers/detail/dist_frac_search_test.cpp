// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/detail/dist_frac_search.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "libfeatures/matchers/desc_matcher_dist_frac.h"
#include "references/matching_reference.h"
#include "utilities/matching_cases.h"
#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

using test::rowsOfBits;
using test::rowsOfFloats;
using test::sameMatches;

std::vector<DMatch> referenceMatches(const DescMat& query, const DescMat& train,
                                     const DescMatcherDistFracBase& parameters) {
    return reference::distFracMatches(query, train, parameters.maxHammingDistance,
                                      parameters.maxDistance, parameters.distanceFraction);
}

template <system::popcnt_t P, int N>
struct Instance {
    static constexpr system::popcnt_t kPopcnt = P;
    static constexpr int kWords = N;
};

template <typename Instance>
class DistFracHammingTest : public testing::Test {
protected:
    static constexpr system::popcnt_t kPopcnt = Instance::kPopcnt;
    static constexpr int kWords = Instance::kWords;

    void SetUp() override {
        if (kPopcnt == system::PopcntX86 && system::hasPOPCNT() != system::PopcntX86) {
            GTEST_SKIP() << "needs another processor";
        }
    }

    [[nodiscard]] testing::AssertionResult agrees(const DescMat& query,
                                                  const DescMat& train) const {
        const test::NumberOfThreads three(3);
        return sameMatches(distFracHamming<kPopcnt, kWords>(query, train, parameters),
                           referenceMatches(query, train, parameters));
    }

    DescMatcherDistFrac parameters;
};

template <int N>
using None = Instance<system::PopcntNone, N>;
template <int N>
using X86 = Instance<system::PopcntX86, N>;
template <int N>
using Arm = Instance<system::PopcntArm, N>;
using Instances = testing::Types<None<1>, None<2>, None<4>, None<8>, None<16>,  //
                                 X86<1>, X86<2>, X86<4>, X86<8>, X86<16>,       //
                                 Arm<1>, Arm<2>, Arm<4>, Arm<8>, Arm<16>>;
TYPED_TEST_SUITE(DistFracHammingTest, Instances);

TYPED_TEST(DistFracHammingTest, GivesTheMatchesOfTheReference) {
    test::Random random(1);
    constexpr int kCols = 8 * TestFixture::kWords;
    for (int i = 0; i < 40; ++i) {
        test::setAnyParameters(this->parameters, random);
        const auto [query, train] = test::anyAlikeBits(30, kCols, random);
        if (query.empty() || train.empty()) continue;
        ASSERT_TRUE(this->agrees(query, train)) << i;
    }
}

TYPED_TEST(DistFracHammingTest, GivesThoseOfAllBlocksOfQueryRows) {
    test::Random random(2);
    constexpr int kCols = 8 * TestFixture::kWords;
    this->parameters.maxHammingDistance = 1024;
    this->parameters.distanceFraction = 1.0F;
    const DescMat train = test::randomBits(9, kCols, random);
    for (const int rows : {727, 728, 729, 1456, 1457}) {
        EXPECT_TRUE(this->agrees(test::randomBits(rows, kCols, random), train)) << rows;
    }
}

class DistFracHamming128Test : public testing::Test {
protected:
    /// The message of the exception; "no exception" where there is none.
    [[nodiscard]] std::string refusal(const DescMat& query, const DescMat& train) const {
        try {
            (void)distFracHamming128(query, train, parameters);
            return "no exception";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }

    const test::NumberOfThreads two{2};
    DescMatcherDistFrac parameters;
    const std::string onlyLdah = "The current descriptor-matcher only accept LDAH descriptors";
};

TEST_F(DistFracHamming128Test, RefusesAFloatQuery) {
    EXPECT_EQ(refusal(rowsOfFloats(16, {1.0F}), rowsOfBits(16, {1})), onlyLdah);
    EXPECT_EQ(refusal(rowsOfFloats(16, {1.0F}), rowsOfFloats(16, {1.0F})), onlyLdah);
}

TEST_F(DistFracHamming128Test, RefusesQueryRowsOfAnotherWidth) {
    for (const int cols : {8, 15, 17, 64}) {
        EXPECT_EQ(refusal(rowsOfBits(cols, {1}), rowsOfBits(16, {1})), onlyLdah) << cols;
        EXPECT_EQ(refusal(rowsOfBits(cols, {1}), rowsOfBits(cols, {1})), onlyLdah) << cols;
    }
}

TEST_F(DistFracHamming128Test, RefusesTrainRowsOfAnotherWidth) {
    for (const int cols : {8, 15, 17, 64}) {
        EXPECT_EQ(refusal(rowsOfBits(16, {1}), rowsOfBits(cols, {1})), onlyLdah) << cols;
    }
}

TEST_F(DistFracHamming128Test, MatchesRowsOf128Bits) {
    test::Random random(3);
    const auto [query, train] = test::alikeBits(40, 40, 16, random);
    EXPECT_EQ(refusal(query, train), "no exception");
    EXPECT_TRUE(sameMatches(distFracHamming128(query, train, parameters),
                            referenceMatches(query, train, parameters)));
}

/// The name after one that was "before".
QString nameOf(const DescMat& query, const DescMat& train, system::popcnt_t popcnt) {
    return distFracKernelName(query, train, popcnt, QStringLiteral("before"));
}

TEST(DistFracKernelNameTest, IsCpuFloatForAFloatQueryOnEveryProcessor) {
    for (const auto popcnt : {system::PopcntNone, system::PopcntX86, system::PopcntArm}) {
        EXPECT_EQ(nameOf(rowsOfFloats(16, {1.0F}), rowsOfFloats(16, {1.0F}), popcnt),
                  QLatin1String("CPU Float"));
        EXPECT_EQ(nameOf(rowsOfFloats(128, {1.0F}), rowsOfBits(16, {1}), popcnt),
                  QLatin1String("CPU Float"));
    }
}

TEST(DistFracKernelNameTest, TellsRowsOf128BitsFromOthersOnX86) {
    const DescMat ldah = rowsOfBits(16, {1});
    const DescMat others = rowsOfBits(64, {1});
    EXPECT_EQ(nameOf(ldah, ldah, system::PopcntX86), QLatin1String("CPU SSE"));
    for (const DescMat* const query : {&ldah, &others}) {
        EXPECT_EQ(nameOf(*query, others, system::PopcntX86), QLatin1String("CPU SSE generic"));
    }
    EXPECT_EQ(nameOf(others, ldah, system::PopcntX86), QLatin1String("CPU SSE generic"));
}

TEST(DistFracKernelNameTest, IsCpuArmForBytesOfAnyWidthOnArm) {
    for (const int cols : {8, 16, 17, 64}) {
        EXPECT_EQ(nameOf(rowsOfBits(cols, {1}), rowsOfBits(16, {1}), system::PopcntArm),
                  QLatin1String("CPU ARM"));
    }
}

TEST(DistFracKernelNameTest, StaysForBytesOnProcessorsThatCannotCountBits) {
    for (const int cols : {8, 16, 17, 64}) {
        EXPECT_EQ(nameOf(rowsOfBits(cols, {1}), rowsOfBits(16, {1}), system::PopcntNone),
                  QLatin1String("before"));
    }
}

}  // namespace
}  // namespace marlo::detail
