// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/d_match.h"

#include <gtest/gtest.h>

#include <sstream>
#include <type_traits>

namespace marlo {
namespace {

TEST(DMatchTest, IsAllZeroAtFirst) {
    const DMatch match;
    EXPECT_EQ(match.queryIndex, 0U);
    EXPECT_EQ(match.trainIndex, 0U);
    EXPECT_EQ(match.distance, 0.0F);
}

TEST(DMatchTest, ConstructorSetsQueryTrainAndDistance) {
    const DMatch match(1, 4294967295U, 0.5F);
    EXPECT_EQ(match.queryIndex, 1U);
    EXPECT_EQ(match.trainIndex, 4294967295U);
    EXPECT_EQ(match.distance, 0.5F);
}

TEST(DMatchTest, IsAPlainRecord) {
    EXPECT_TRUE(std::is_trivially_copyable_v<DMatch>);
    EXPECT_FALSE(std::is_polymorphic_v<DMatch>);
}

TEST(DMatchTest, EqualityIgnoresTheDistance) {
    EXPECT_TRUE(DMatch(1, 2, 0.5F) == DMatch(1, 2, 9.0F));
    EXPECT_FALSE(DMatch(1, 2, 0.5F) != DMatch(1, 2, 9.0F));
}

TEST(DMatchTest, EqualityNeedsBothIndices) {
    EXPECT_FALSE(DMatch(1, 2, 0.0F) == DMatch(2, 1, 0.0F));
    EXPECT_FALSE(DMatch(1, 2, 0.0F) == DMatch(1, 3, 0.0F));
    EXPECT_FALSE(DMatch(1, 2, 0.0F) == DMatch(3, 2, 0.0F));
    EXPECT_TRUE(DMatch(1, 2, 0.0F) != DMatch(2, 1, 0.0F));
}

TEST(DMatchTest, PrintsALine) {
    std::ostringstream out;
    out << DMatch(3, 4294967295U, 0.25F);
    EXPECT_EQ(out.str(), "Match 3, 4294967295, 0.25\n");
}

}  // namespace
}  // namespace marlo
