// SPDX-License-Identifier: BSD-3-Clause
#include "ldah_tables/command_line.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace marlo::tools {
namespace {

// What the user is told, empty if the value is taken.
std::string complaint(const std::string& text, int least) {
    try {
        wholeNumber("--side", text, least);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "";
}

TEST(WholeNumberTest, IsReadInFull) {
    EXPECT_EQ(wholeNumber("--side", "1600", 1), 1600);
    EXPECT_EQ(wholeNumber("--side", "007", 1), 7);
}

TEST(WholeNumberTest, MayBeTheLeastButNotLess) {
    EXPECT_EQ(wholeNumber("--side", "1", 1), 1);
    EXPECT_EQ(wholeNumber("--views", "0", 0), 0);
    EXPECT_EQ(complaint("0", 1), "--side needs a whole number, 1 or more, not '0'");
    EXPECT_EQ(complaint("-1", 0), "--side needs a whole number, 0 or more, not '-1'");
}

TEST(WholeNumberTest, MayBeTheLargestIntButNotMore) {
    EXPECT_EQ(wholeNumber("--side", "2147483647", 1), 2147483647);
    EXPECT_EQ(complaint("2147483648", 1),
              "--side needs a whole number, 1 or more, not '2147483648'");
}

TEST(WholeNumberTest, IsNotFollowedByOtherText) {
    EXPECT_EQ(complaint("12px", 1), "--side needs a whole number, 1 or more, not '12px'");
    EXPECT_EQ(complaint("12 ", 1), "--side needs a whole number, 1 or more, not '12 '");
    EXPECT_EQ(complaint("1.5", 1), "--side needs a whole number, 1 or more, not '1.5'");
}

TEST(WholeNumberTest, IsNotPrecededByOtherText) {
    EXPECT_EQ(complaint(" 12", 1), "--side needs a whole number, 1 or more, not ' 12'");
    EXPECT_EQ(complaint("many", 1), "--side needs a whole number, 1 or more, not 'many'");
}

TEST(WholeNumberTest, IsNotEmpty) {
    EXPECT_EQ(complaint("", 0), "--side needs a whole number, 0 or more, not ''");
}

}  // namespace
}  // namespace marlo::tools
