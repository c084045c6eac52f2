// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/detail/screen_kernels.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "utilities/kernel_parameters.h"

namespace marlo::detail {
namespace {

/// A group of train rows and three groups of query rows; every term and limit decides nothing.
class ScreenKernelTest : public test::KernelTest<const ScreenFunctions> {
protected:
    static constexpr std::ptrdiff_t kPairs = 5;
    static constexpr int kQueryGroups = 3;
    static constexpr int kQueryRows = kQueryGroups * kScreenQueries;

    void SetUp() override {
        KernelTest::SetUp();
        if (IsSkipped()) return;
        rows_ = GetParam().run->groupRows;
        std::uniform_int_distribution<int> element(-30000, 30000);
        train.resize(static_cast<std::size_t>(2 * kPairs * rows_));
        queries.resize(static_cast<std::size_t>(2 * kPairs * kQueryRows));
        for (std::int16_t& x : train) x = static_cast<std::int16_t>(element(random_) / 6);
        for (std::int16_t& x : queries) x = static_cast<std::int16_t>(element(random_) / 6);
        trainTerms.resize(static_cast<std::size_t>(rows_));
        for (std::int32_t& x : trainTerms) x = element(random_) * 100;
        trainLimits.assign(trainTerms.size(), 0);
        queryTerms.assign(kQueryRows, 0x7fffffff);
        queryLimits.assign(kQueryRows, 0x7fffffff);
    }

    [[nodiscard]] ScreenTile tile(bool withTrainLimits) const {
        ScreenTile all;
        all.pairs = kPairs;
        all.train = train.data();
        all.trainTerms = trainTerms.data();
        all.trainLimits = withTrainLimits ? trainLimits.data() : nullptr;
        all.queries = queries.data();
        all.queryGroups = kQueryGroups;
        all.queryTerms = queryTerms.data();
        all.queryLimits = queryLimits.data();
        return all;
    }

    /// The product of the rows less the train row's term.
    [[nodiscard]] std::int32_t x(int query, int row) const {
        std::int32_t sum = -trainTerms[static_cast<std::size_t>(row)];
        for (int pair = 0; pair < kPairs; ++pair) {
            for (int i = 0; i < 2; ++i) {
                const int group = query / kScreenQueries;
                const int q = 2 * ((group * static_cast<int>(kPairs) + pair) * kScreenQueries +
                                   query % kScreenQueries);
                const int t = 2 * (pair * rows_ + row);
                sum += queries[static_cast<std::size_t>(q + i)] *
                       train[static_cast<std::size_t>(t + i)];
            }
        }
        return sum;
    }

    int screen(bool withTrainLimits, int firstGroup, ScreenCandidates& masks) const {
        return GetParam().run->screen(tile(withTrainLimits), firstGroup, masks);
    }

    int rows_ = 0;
    std::mt19937 random_{5};
    std::vector<std::int16_t> train;
    std::vector<std::int16_t> queries;
    std::vector<std::int32_t> trainTerms;
    std::vector<std::int32_t> trainLimits;
    std::vector<std::int32_t> queryTerms;
    std::vector<std::int32_t> queryLimits;
};

TEST_P(ScreenKernelTest, FindsNothingBelowTheLimits) {
    ScreenCandidates masks{};
    EXPECT_EQ(screen(false, 0, masks), kQueryGroups);
    EXPECT_EQ(screen(true, 0, masks), kQueryGroups);
    EXPECT_EQ(screen(true, kQueryGroups, masks), kQueryGroups);
}

TEST_P(ScreenKernelTest, OneAboveTheQuerysLimitIsACandidateAndTheLimitItselfIsNot) {
    for (int query = 0; query < kQueryRows; ++query) {
        for (int row = 0; row < rows_; ++row) {
            std::int32_t& limit = queryLimits[static_cast<std::size_t>(query)];
            limit = x(query, row);
            std::uint32_t expected = 0;
            for (int other = 0; other < rows_; ++other) {
                expected |= (x(query, other) > limit ? std::uint32_t{1} : 0) << other;
            }
            ScreenCandidates masks{};
            const int group = screen(false, 0, masks);
            ASSERT_EQ(group, expected == 0 ? kQueryGroups : query / kScreenQueries);
            if (expected != 0) {
                ASSERT_EQ(masks.masks[query % kScreenQueries], expected);
                EXPECT_EQ(masks.masks[(query + 1) % kScreenQueries], 0U);
                EXPECT_EQ(screen(false, group + 1, masks), kQueryGroups);
            }
            --limit;
            ASSERT_EQ(screen(false, 0, masks), query / kScreenQueries);
            ASSERT_EQ(masks.masks[query % kScreenQueries], expected | std::uint32_t{1} << row);
            ASSERT_EQ(masks.x[query % kScreenQueries][row], x(query, row));
            limit = 0x7fffffff;
        }
    }
}

TEST_P(ScreenKernelTest, ATrainRowsLimitIsTakenFromTheQuerysTerm) {
    for (int query = 0; query < kQueryRows; ++query) {
        for (int row = 0; row < rows_; ++row) {
            // Only this pair can be one: the other terms are far away.
            queryTerms[static_cast<std::size_t>(query)] = 1'500'000'000;
            std::int32_t& limit = trainLimits[static_cast<std::size_t>(row)];
            limit = 1'500'000'000 - x(query, row);
            ScreenCandidates masks{};
            ASSERT_EQ(screen(true, 0, masks), kQueryGroups) << "x is the difference";
            ++limit;
            ASSERT_EQ(screen(true, 0, masks), query / kScreenQueries);
            ASSERT_EQ(masks.masks[query % kScreenQueries], std::uint32_t{1} << row);
            ASSERT_EQ(screen(false, 0, masks), kQueryGroups) << "without such limits";
            limit = 0;
            queryTerms[static_cast<std::size_t>(query)] = 0x7fffffff;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryKernelOfThisBuild, ScreenKernelTest,
                         test::everyKernel(screenKernels()), test::KernelName());

}  // namespace
}  // namespace marlo::detail
